// A copy counts only once the drive has all of it.
#include "ui/FileCopy.h"

#include "core/HostFile.h"
#include "core/Secret.h"

#include <QByteArray>
#include <QFile>

namespace Tessarin::UI {

namespace {

Core::Failure failureOf(const QFile &target)
{
    return target.error() == QFile::ResourceError ? Core::Failure::TargetFull
                                                  : Core::Failure::TargetUnwritable;
}

} // namespace

Core::Failure copyFile(QFile &source, QFile &target,
                       const std::function<void(qint64 doneBytes, qint64 totalBytes)> &report)
{
    constexpr qint64 chunkBytes = 8 * 1024 * 1024;
    const qint64 totalBytes = source.size();
    qint64 copiedBytes = 0;
    QByteArray chunk(chunkBytes, Qt::Uninitialized);
    const Core::WipedAtScopeEnd wiped(chunk); // It may be a decrypted file.
    for (;;) {
        const qint64 readBytes = source.read(chunk.data(), chunk.size());
        if (readBytes < 0)
            return Core::Failure::SourceUnreadable;
        if (readBytes == 0)
            break;
        if (target.write(chunk.constData(), readBytes) != readBytes)
            return failureOf(target);
        copiedBytes += readBytes;
        report(copiedBytes, totalBytes);
    }
    // One that came up short, or grew meanwhile, is no copy to rely on.
    if (copiedBytes != totalBytes)
        return Core::Failure::SourceChanged;
    return Core::syncFile(target) ? Core::Failure::None : failureOf(target);
}

} // namespace Tessarin::UI
