// The workspace on disk.
#include "core/TempWorkspaceManager.h"

#include "core/HostFile.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QUuid>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
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
    return name != "." && name != "..";
}

bool isFolder(const QByteArray &name)
{
    struct stat status = {};
    return ::lstat(name.constData(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// Gives a folder its final name unless something has that name already.
void claimName(const QByteArray &temporaryName, const QByteArray &name)
{
    // The common kind of renaming replaces nothing but an empty folder.
    if (::renameat2(AT_FDCWD, temporaryName.constData(), AT_FDCWD, name.constData(), RENAME_NOREPLACE) != 0 &&
        isUnsupportedRenaming(errno))
        ::rename(temporaryName.constData(), name.constData());
}

/// The folder that the workspaces of all users share. Like the temporary directory above it, everyone may
/// add to it and nobody may remove what is another's. It has its permissions before it has its name, since
/// other programs may be looking for it at the same time.
bool makeCommonFolder(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    if (isFolder(name))
        return true;

    QByteArray temporaryName = name + ".XXXXXX";
    if (QDir().mkpath(QFileInfo(path).absolutePath()) && ::mkdtemp(temporaryName.data()) != nullptr) {
        if (::chmod(temporaryName.constData(), S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO) == 0)
            claimName(temporaryName, name);
        ::rmdir(temporaryName.constData()); // Still there when another program was faster.
    }
    return isFolder(name);
}

/// False for a name that is too long for a file system, and for one that its bytes do not give back: halves
/// of surrogate pairs would all become the same name.
bool canBeFileName(const QString &name)
{
    const QByteArray encoded = QFile::encodeName(name);
    return encoded.size() <= NAME_MAX && !encoded.contains('\0') && QFile::decodeName(encoded) == name;
}

} // namespace

/// An open directory that is its owner's alone. On one that is not open, and without a name, every call
/// fails.
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

    [[nodiscard]] bool isOpen() const { return descriptor != -1; }

    /// Opens a directory by its path, without following a link at its end. Not open when it is not private.
    static Directory at(const QByteArray &path)
    {
        return opened(::open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    }

    [[nodiscard]] Directory subdirectory(const QByteArray &name, bool mayCreate) const
    {
        if (!isUsableName(name))
            return {};
        if (mayCreate)
            ::mkdirat(descriptor, name.constData(), S_IRWXU); // It may be there already.
        return opened(
            ::openat(descriptor, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    }

    /// The directory below this one that a path leads to, and the name in it.
    [[nodiscard]] std::pair<Directory, QByteArray> parentOf(const QString &copyPath, bool mayCreate) const
    {
        QByteArrayList names = QFile::encodeName(copyPath).split('/');
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
        for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end;
             entry.increment(error)) {
            std::error_code ignored;
            std::filesystem::remove_all(entry->path(), ignored);
        }
        return std::filesystem::is_empty(path, error);
    }

private:
    static Directory opened(int newDescriptor)
    {
        Directory directory;
        directory.descriptor = newDescriptor;
        struct stat status = {};
        const bool isPrivate = newDescriptor != -1 && ::fstat(newDescriptor, &status) == 0 &&
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
          QDir(temporaryDirectory())
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
    // Joined by hand: QDir takes a path that begins with ":" for one of Qt's resources.
    return directory + QLatin1Char('/') + copyPath(vaultPath);
}

/// The path of a copy inside the workspace: the vault path, where the file system can hold that.
QString TempWorkspaceManager::copyPath(const QString &vaultPath) const
{
    QStringList names = vaultPath.split(QLatin1Char('/'));
    for (QString &name : names) {
        if (!canBeFileName(name))
            name = substituteName(name, name);
    }
    const QString path = names.join(QLatin1Char('/'));
    const qsizetype length = QFile::encodeName(directory).size() + 1 + QFile::encodeName(path).size();
    return length < PATH_MAX ? path : substituteName(vaultPath, names.last());
}

/// A name that the file system can hold, with the beginning and the suffix of the one that it stands for.
/// The workspace's random path in the digest keeps anyone from giving another file of a vault this name.
QString TempWorkspaceManager::substituteName(const QString &original, const QString &name) const
{
    constexpr qsizetype shownLetters = 40;
    constexpr qsizetype longestSuffix = 16;
    const QString seed = directory + original;
    const QByteArray digest =
        QCryptographicHash::hash({reinterpret_cast<const char *>(seed.utf16()), seed.size() * 2},
                                 QCryptographicHash::Sha256)
            .first(16)
            .toHex();
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const QString suffix = dot != -1 && name.size() - dot <= longestSuffix ? name.mid(dot) : QString();
    QString substitute = name.left(shownLetters) + QLatin1Char('-') + QLatin1String(digest) + suffix;
    substitute.remove(QChar(QChar::Null));
    return QFile::decodeName(QFile::encodeName(substitute));
}

bool TempWorkspaceManager::prepare()
{
    const QByteArray path = QFile::encodeName(directory);
    if (!makeCommonFolder(QFileInfo(directory).absolutePath()))
        return false;
    ::mkdir(path.constData(), S_IRWXU); // It may be there already.
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
    return descriptor != -1 &&
           copy.open(descriptor, QIODevice::WriteOnly | QIODevice::Unbuffered, QFile::AutoCloseHandle);
}

bool TempWorkspaceManager::putCopy(const QString &vaultPath, QFile &copy)
{
    if (handle && vaultPath != lockFileName) {
        const auto [parent, name] = handle->parentOf(copyPath(vaultPath), true);
        if (handle->moveFile(newCopyName, parent, name)) {
            const bool isThere = isOpenAt(copy, pathForVaultFile(vaultPath));
            copy.close();
            if (!isThere)
                parent.deleteFile(name);
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
    const auto [parent, name] = handle->parentOf(copyPath(vaultPath), false);
    const int descriptor = parent.openFile(name, O_RDONLY | O_NONBLOCK);
    QFile copy;
    struct stat status = {};
    return descriptor != -1 && copy.open(descriptor, QIODevice::ReadOnly, QFile::AutoCloseHandle) &&
           ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
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
