// Questions about files on the host that Qt's file classes leave open: are two names one file, and have the
// bytes reached the drive.
#pragma once

#include <QString>

class QFileDevice;

namespace Tessarin::Core {

/// True when both names lead to the same existing file (same device and inode, links followed).
[[nodiscard]] bool isSameFile(const QString &firstPath, const QString &secondPath);

/// True when the open file is still the one that the name leads to.
[[nodiscard]] bool isOpenAt(const QFileDevice &file, const QString &path);

/// Flushes an open file and waits until the drive has it (fsync). False means the data may be lost.
[[nodiscard]] bool syncFile(QFileDevice &file);

/// Makes the names in a directory durable, where the file system can do that.
void syncDirectory(const QString &directoryPath);

/// Creates a directory and its missing parents, the new ones with mode 0700 whatever the umask.
[[nodiscard]] bool makePrivatePath(const QString &directoryPath);

} // namespace Tessarin::Core
