// Questions about files on the host that Qt's file classes leave open: are two names one file, and have the
// bytes reached the drive.
#pragma once

#include "core/Failure.h"

#include <QByteArrayView>
#include <QString>

class QFileDevice;

namespace Tessarin::Core {

/// True when both names lead to the same existing file (same device and inode, links followed).
[[nodiscard]] bool isSameFile(const QString &firstPath, const QString &secondPath);

/// True when the open file is still the one that the name leads to.
[[nodiscard]] bool isOpenAt(const QFileDevice &file, const QString &path);

/// Flushes an open file and waits until the drive has it (fsync). False means the data may be lost.
[[nodiscard]] bool syncFile(QFileDevice &file);

enum class FileLock {
    Taken,
    Held, ///< By another program, or by another handle of this one.
    None, ///< The file system has no locks.
};

/// Takes the file's advisory lock (flock) without waiting.
[[nodiscard]] FileLock takeLock(QFileDevice &file);
/// False when the lock is held. True on a file system without locks.
[[nodiscard]] bool lockFile(QFileDevice &file);

/// Writes all bytes where an unbuffered file stands. On failure, errno tells why.
[[nodiscard]] bool writeFully(QFileDevice &file, QByteArrayView bytes);

/// Sends written bytes on their way to the drive, and waits for those before them, so that a long write
/// neither piles up in memory nor tells of progress that the drive has not made. False when the drive has not
/// taken bytes that were written before, here or earlier: it tells so once, and syncFile() may not know of
/// it.
[[nodiscard]] bool startWriteback(QFileDevice &file, qint64 offset, qint64 size);

/// Lets the next read of a file that was synced come from the drive.
void dropCachedPages(QFileDevice &file);

/// Makes the names in a directory durable, where the file system can do that.
void syncDirectory(const QString &directoryPath);

/// True when an error number tells that there is no room for more bytes, and of no other fault.
[[nodiscard]] bool isLackOfRoom(int errorNumber);

/// What an error number tells of a call on the container.
[[nodiscard]] Failure containerFailure(int errorNumber);
/// The same of a local file that is written.
[[nodiscard]] Failure targetFailure(int errorNumber);

} // namespace Tessarin::Core
