// The workspace on disk.
#include "core/TempWorkspaceManager.h"

#include "core/HostFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QStandardPaths>
#include <QUuid>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin::Core {

namespace {

constexpr QLatin1String lockFileName(".tessarin-workspace.lock");
constexpr QFileDevice::Permissions ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

bool isUsableName(const QByteArray &name)
{
    return !name.isEmpty() && !name.contains('\0') && name != "." && name != "..";
}

/// The folder that the workspaces of all users share. Like the temporary directory above it, everyone may
/// add to it and nobody may remove what is another's.
bool makeCommonFolder(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat status = {};
    if (::lstat(name.constData(), &status) == 0)
        return S_ISDIR(status.st_mode);

    return QDir().mkpath(QFileInfo(path).absolutePath()) && ::mkdir(name.constData(), S_IRWXU) == 0 &&
           ::chmod(name.constData(), S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO) == 0;
}

} // namespace

/// An open directory that is its owner's alone.
class TempWorkspaceManager::Directory
{
public:
    Directory() = default;
    ~Directory() { close(); }
    Directory(Directory &&other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    Directory &operator=(Directory &&other) noexcept
    {
        std::swap(descriptor, other.descriptor);
        return *this;
    }
    Q_DISABLE_COPY(Directory)

    [[nodiscard]] bool isOpen() const { return descriptor >= 0; }

    /// Opens a directory by its path, without following a link at its end. Not open when it is not private.
    static Directory at(const QByteArray &path)
    {
        return opened(::open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    }

    [[nodiscard]] Directory subdirectory(const QByteArray &name, bool mayCreate) const
    {
        if (!isUsableName(name))
            return {};
        if (mayCreate && ::mkdirat(descriptor, name.constData(), S_IRWXU) == 0 &&
            ::fchmodat(descriptor, name.constData(), S_IRWXU, 0) != 0)
            return {};
        return opened(
            ::openat(descriptor, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    }

    /// The directory of a vault path's parent below this one, and the name in it.
    [[nodiscard]] std::pair<Directory, QByteArray> parentOf(const QString &vaultPath, bool mayCreate) const
    {
        QByteArrayList names = QFile::encodeName(vaultPath).split('/');
        const QByteArray last = names.takeLast();
        Directory parent = opened(::openat(descriptor, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        for (const QByteArray &name : std::as_const(names)) {
            if (parent.isOpen())
                parent = parent.subdirectory(name, mayCreate);
        }
        return {std::move(parent), isUsableName(last) ? last : QByteArray()};
    }

    [[nodiscard]] int openFile(const QByteArray &name, int flags) const
    {
        return ::openat(descriptor, name.constData(), flags | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    }

    [[nodiscard]] bool moveFile(const QByteArray &name, const Directory &target,
                                const QByteArray &newName) const
    {
        return ::renameat(descriptor, name.constData(), target.descriptor, newName.constData()) == 0;
    }

    void deleteFile(const QByteArray &name) const { ::unlinkat(descriptor, name.constData(), 0); }

    /// Deletes all that is in it, wherever it lies by now; links as such.
    [[nodiscard]] bool removeContents() const
    {
        const std::filesystem::path path("/proc/self/fd/" + std::to_string(descriptor));
        std::error_code error;
        bool isRemoved = true;
        for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end;
             entry.increment(error)) {
            std::error_code failure;
            std::filesystem::remove_all(entry->path(), failure);
            isRemoved = isRemoved && !failure;
        }
        return isRemoved && !error;
    }

private:
    static Directory opened(int newDescriptor)
    {
        Directory directory;
        directory.descriptor = newDescriptor;
        struct stat status = {};
        const bool isPrivate = newDescriptor >= 0 && ::fstat(newDescriptor, &status) == 0 &&
                               status.st_uid == ::geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
        if (!isPrivate)
            directory.close();
        return directory;
    }

    void close()
    {
        if (isOpen())
            ::close(std::exchange(descriptor, -1));
    }

    int descriptor = -1;
};

TempWorkspaceManager::TempWorkspaceManager()
    : directory(
          QDir(QStandardPaths::writableLocation(QStandardPaths::TempLocation))
              .absoluteFilePath(
                  QStringLiteral("Tessarin/%1").arg(QUuid::createUuid().toString(QUuid::WithoutBraces))))
{
}

TempWorkspaceManager::~TempWorkspaceManager() = default;

QString TempWorkspaceManager::workspacePath() const
{
    return directory;
}

QString TempWorkspaceManager::pathForVaultFile(const QString &vaultPath) const
{
    return QDir(directory).filePath(vaultPath);
}

bool TempWorkspaceManager::prepare()
{
    const QByteArray path = QFile::encodeName(directory);
    if (!makeCommonFolder(QFileInfo(directory).absolutePath()))
        return false;
    if (::mkdir(path.constData(), S_IRWXU) != 0 && errno != EEXIST)
        return false;
    auto newHandle = std::make_unique<Directory>(Directory::at(path));
    if (!newHandle->isOpen())
        return false;

    auto newLock = std::make_unique<QLockFile>(pathForVaultFile(lockFileName));
    newLock->setStaleLockTime(0);
    if (!newLock->tryLock(0))
        return false;

    QFile::setPermissions(pathForVaultFile(lockFileName), ownerOnly);
    handle = std::move(newHandle);
    lock = std::move(newLock);
    return true;
}

bool TempWorkspaceManager::openNewCopy(QFile &copy)
{
    if (!handle)
        return false;
    newCopyName = ".tessarin-" + QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
    const int descriptor = handle->openFile(newCopyName, O_WRONLY | O_CREAT | O_EXCL);
    return descriptor >= 0 &&
           copy.open(descriptor, QIODevice::WriteOnly | QIODevice::Unbuffered, QFile::AutoCloseHandle) &&
           ::fchmod(descriptor, S_IRUSR | S_IWUSR) == 0;
}

bool TempWorkspaceManager::putCopy(const QString &vaultPath, QFile &copy)
{
    if (handle && vaultPath != lockFileName) {
        const auto [parent, name] = handle->parentOf(vaultPath, true);
        if (parent.isOpen() && !name.isEmpty() && handle->moveFile(newCopyName, parent, name)) {
            const bool isThere = isOpenAt(copy, pathForVaultFile(vaultPath));
            copy.close();
            return isThere;
        }
    }
    dropCopy(copy);
    return false;
}

void TempWorkspaceManager::dropCopy(QFile &copy)
{
    copy.close();
    if (handle)
        handle->deleteFile(newCopyName);
}

bool TempWorkspaceManager::holdsCopy(const QString &vaultPath) const
{
    if (!handle)
        return false;
    const auto [parent, name] = handle->parentOf(vaultPath, false);
    const int descriptor =
        !parent.isOpen() || name.isEmpty() ? -1 : parent.openFile(name, O_RDONLY | O_NONBLOCK);
    QFile copy;
    return descriptor >= 0 && copy.open(descriptor, QIODevice::ReadOnly, QFile::AutoCloseHandle) &&
           isOpenAt(copy, pathForVaultFile(vaultPath));
}

bool TempWorkspaceManager::cleanup()
{
    lock.reset();
    // Never by the path alone: what lies there by now may be a link to all that the user has.
    const QByteArray path = QFile::encodeName(directory);
    const Directory workspace = handle ? std::move(*std::exchange(handle, {})) : Directory::at(path);
    const bool isEmpty = !workspace.isOpen() || workspace.removeContents();
    if (workspace.isOpen())
        ::rmdir(path.constData());
    struct stat status = {};
    return isEmpty && ::lstat(path.constData(), &status) != 0;
}

} // namespace Tessarin::Core
