// Files as the kernel sees them.
#include "core/HostFile.h"

#include <QDir>
#include <QFile>
#include <QFileDevice>
#include <QFileInfo>

#include <fcntl.h>
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

bool syncFile(QFileDevice &file)
{
    return file.flush() && ::fsync(file.handle()) == 0;
}

void syncDirectory(const QString &directoryPath)
{
    const int directory =
        ::open(QFile::encodeName(directoryPath).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0)
        return;
    ::fsync(directory);
    ::close(directory);
}

bool makePrivatePath(const QString &directoryPath)
{
    const QFileInfo info(directoryPath);
    if (info.isDir())
        return true;
    if (!makePrivatePath(info.absolutePath()))
        return false;

    const QByteArray name = QFile::encodeName(directoryPath);
    return ::mkdir(name.constData(), S_IRWXU) == 0 && ::chmod(name.constData(), S_IRWXU) == 0;
}

} // namespace Tessarin::Core
