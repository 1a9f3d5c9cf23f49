// A copy counts only once the drive has all of it.
#include "ui/FileCopy.h"

#include "core/HostFile.h"
#include "core/Secret.h"

#include <QByteArray>
#include <QFile>

namespace Tessarin::UI {

bool copyFile(QFile &source, QFile &target,
              const std::function<void(qint64 doneBytes, qint64 totalBytes)> &report)
{
    constexpr qint64 chunkBytes = 8 * 1024 * 1024;
    const qint64 totalBytes = source.size();
    qint64 copiedBytes = 0;
    QByteArray chunk(chunkBytes, Qt::Uninitialized);
    const Core::WipedAtScopeEnd wiped(chunk); // It may be a decrypted file.
    for (;;) {
        const qint64 readBytes = source.read(chunk.data(), chunk.size());
        if (readBytes < 0 || (readBytes > 0 && target.write(chunk.constData(), readBytes) != readBytes))
            return false;
        if (readBytes == 0)
            break;
        copiedBytes += readBytes;
        report(copiedBytes, totalBytes);
    }
    // One that came up short, or grew meanwhile, is no copy to rely on.
    return copiedBytes == totalBytes && Core::syncFile(target);
}

} // namespace Tessarin::UI
