// What Qt's file classes leave open about files of the host: are two names one file, have the bytes reached
// the drive, is another program using it, what does errno mean, where do temporary files go.
#pragma once

#include "core/Failure.h"

#include <QByteArrayView>
#include <QString>

#include <optional>

class QFile;
class QFileDevice;

namespace Tessarin::Core {

/// True when both names lead to the same existing file (same device and inode, links followed).
[[nodiscard]] bool isSameFile(const QString &firstPath, const QString &secondPath);

/// True when the open file is still the one that the name leads to.
[[nodiscard]] bool isOpenAt(const QFileDevice &file, const QString &path);

/// The size of an open file; empty when the file system does not tell it. QFile::size() may answer with an
/// older one then.
[[nodiscard]] std::optional<qint64> sizeOf(const QFileDevice &file);

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

/// Sends what is appended to a file on its way to the drive (sync_file_range), some MiB at a time, and waits
/// for those before them: a long write neither piles up in memory nor tells of progress that the drive has
/// not made. What lies before the appended bytes is not waited for.
class Writeback
{
public:
    explicit Writeback(qint64 begin) : waitedTo(begin), startedTo(begin) {}

    /// The file has been written up to `end`. False, with errno, when the drive has not taken bytes that were
    /// written before, here or elsewhere in the file: it tells so once, and syncFile() may not know of it.
    [[nodiscard]] bool advance(QFileDevice &file, qint64 end);

private:
    qint64 waitedTo;
    qint64 startedTo;
};

/// Reads by this handle fetch no more than they ask for, and leave the file's time of access alone.
void readSparingly(QFileDevice &file);

/// Lets the next read of a file that was synced come from the drive.
void dropCachedPages(QFileDevice &file);

/// Makes the names in a directory durable. True also where the file system cannot do that.
[[nodiscard]] bool syncDirectory(const QString &directoryPath);

/// Opens a directory and takes its lock, which tells other programs that it is in use. Held also when it is
/// another user's or no directory.
[[nodiscard]] FileLock lockOwnDirectory(const QString &path, QFile &directory);

/// True when renameat2 failed for a kind of renaming that the file system lacks.
[[nodiscard]] bool isUnsupportedRenaming(int errorNumber);

/// True when an error number tells that there is no room for more bytes, and of no other fault.
[[nodiscard]] bool isLackOfRoom(int errorNumber);

/// The system's directory for temporary files; /tmp where TMPDIR names none.
[[nodiscard]] QString temporaryDirectory();

/// What an error number tells of a call on the container.
[[nodiscard]] Failure containerFailure(int errorNumber);
/// The same of a local file that is written.
[[nodiscard]] Failure targetFailure(int errorNumber);

} // namespace Tessarin::Core
