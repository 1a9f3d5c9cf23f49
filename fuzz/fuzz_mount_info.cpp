// Lines of the mount table. Mount points and labels come from whatever was plugged in, and what the kernel
// escapes must come back as it was.
#include "Require.h"

#include "platform/linux/BlockDevices.h"

using namespace Tessarin::Platform::Linux;
using Tessarin::Fuzz::require;

namespace {

QString escapedByTheKernel(QString text)
{
    return text.replace(u'\\', QLatin1String("\\134"))
        .replace(u' ', QLatin1String("\\040"))
        .replace(u'\t', QLatin1String("\\011"))
        .replace(u'\n', QLatin1String("\\012"));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString input =
        QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    if (const auto line = parseMountInfoLine(input))
        require(!line->mountPoint.isEmpty() && !line->fileSystemType.isEmpty() && !line->source.isEmpty());

    const QString mountPoint = u'/' + input;
    const auto line = parseMountInfoLine(QLatin1String("36 35 8:17 / ") + escapedByTheKernel(mountPoint) +
                                         QLatin1String(" rw shared:1 - vfat /dev/sdb1 rw"));
    require(line && line->mountPoint == mountPoint && line->source == QLatin1String("/dev/sdb1"));
    return 0;
}
