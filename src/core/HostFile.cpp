// Files as the kernel sees them.
#include "core/HostFile.h"

#include <QDir>
#include <QFile>
#include <QFileDevice>
#include <QFileInfo>

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin::Core {

namespace {

using FileStatus = struct stat;

bool statusOf(const QString &path, FileStatus &status)
{
    return ::stat(QFile::encodeName(path).constData(), &status) == 0;
}

bool isOneFile(const FileStatus &first, const FileStatus &second)
{
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

} // namespace

bool isSameFile(const QString &firstPath, const QString &secondPath)
{
    FileStatus first = {};
    FileStatus second = {};
    return statusOf(firstPath, first) && statusOf(secondPath, second) && isOneFile(first, second);
}

bool isOpenAt(const QFileDevice &file, const QString &path)
{
    FileStatus opened = {};
    FileStatus named = {};
    return ::fstat(file.handle(), &opened) == 0 && statusOf(path, named) && isOneFile(opened, named);
}

std::optional<qint64> sizeOf(const QFileDevice &file)
{
    FileStatus status = {};
    return ::fstat(file.handle(), &status) == 0 ? std::optional<qint64>(status.st_size) : std::nullopt;
}

bool syncFile(QFileDevice &file)
{
    return file.flush() && ::fsync(file.handle()) == 0;
}

FileLock takeLock(QFileDevice &file)
{
    if (::flock(file.handle(), LOCK_EX | LOCK_NB) == 0)
        return FileLock::Taken;
    return errno == EWOULDBLOCK ? FileLock::Held : FileLock::None;
}

bool lockFile(QFileDevice &file)
{
    return takeLock(file) != FileLock::Held;
}

bool writeFully(QFileDevice &file, QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const ssize_t written =
            TEMP_FAILURE_RETRY(::write(file.handle(), bytes.data(), static_cast<size_t>(bytes.size())));
        if (written <= 0)
            return false;
        bytes = bytes.sliced(written);
    }
    return true;
}

bool Writeback::advance(QFileDevice &file, qint64 end)
{
    constexpr qint64 leastSize = 4 * 1024 * 1024; // Small files are sent together.
    if (end - startedTo < leastSize)
        return true;
    constexpr unsigned int wait =
        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    const auto send = [&file](qint64 from, qint64 to, unsigned int how) {
        return from == to || ::sync_file_range(file.handle(), from, to - from, how) == 0;
    };
    const bool isSent = send(waitedTo, startedTo, wait) && send(startedTo, end, SYNC_FILE_RANGE_WRITE);
    waitedTo = std::exchange(startedTo, end);
    // What is no ordinary file, or lies on a file system without this, is written when it is.
    return isSent || errno == EINVAL || errno == ESPIPE || errno == ENOSYS;
}

void readSparingly(QFileDevice &file)
{
    ::posix_fadvise(file.handle(), 0, 0, POSIX_FADV_RANDOM);
    // Refused where the file is another user's.
    ::fcntl(file.handle(), F_SETFL, ::fcntl(file.handle(), F_GETFL) | O_NOATIME);
}

void dropCachedPages(QFileDevice &file)
{
    ::posix_fadvise(file.handle(), 0, 0, POSIX_FADV_DONTNEED);
}

bool syncDirectory(const QString &directoryPath)
{
    const int directory =
        ::open(QFile::encodeName(directoryPath).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory == -1)
        return false;
    const bool isSynced = ::fsync(directory) == 0 || errno == EINVAL || errno == ENOTSUP;
    ::close(directory);
    return isSynced;
}

FileLock lockOwnDirectory(const QString &path, QFile &directory)
{
    const int descriptor =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat status = {};
    const bool isOwn = descriptor != -1 &&
                       directory.open(descriptor, QIODevice::ReadOnly, QFile::AutoCloseHandle) &&
                       ::fstat(descriptor, &status) == 0 && status.st_uid == ::geteuid();
    return isOwn ? takeLock(directory) : FileLock::Held;
}

bool isUnsupportedRenaming(int errorNumber)
{
    return errorNumber == EINVAL || errorNumber == ENOSYS || errorNumber == EOPNOTSUPP;
}

bool isLackOfRoom(int errorNumber)
{
    return errorNumber == ENOSPC || errorNumber == EDQUOT || errorNumber == EFBIG;
}

QString temporaryDirectory()
{
    // Where it does not exist, Qt answers with nothing or, in newer versions, with its path all the same.
    const QString directory = QDir::tempPath();
    return QFileInfo(directory).isDir() ? directory : QStringLiteral("/tmp");
}

Failure containerFailure(int errorNumber)
{
    switch (errorNumber) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return Failure::NoSpace;
    case EROFS:
    case EACCES:
    case EPERM:
        return Failure::ReadOnly;
    case EWOULDBLOCK: // Of a lock.
        return Failure::InUse;
    case EIO:
    case ENODEV:
    case ENXIO:
    case ENOENT:
    case ENOTDIR:
    case ESTALE:
        return Failure::DriveGone;
    default:
        return Failure::Other;
    }
}

Failure targetFailure(int errorNumber)
{
    if (errorNumber == ENAMETOOLONG)
        return Failure::NameTooLong;
    return isLackOfRoom(errorNumber) ? Failure::TargetFull : Failure::TargetUnwritable;
}

} // namespace Tessarin::Core
