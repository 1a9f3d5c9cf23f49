// The namespace of files and folders. No operation here touches a block, and none asks whether the session is
// unlocked: what stores the index refuses while it is locked.
#include "core/VaultManager.h"

#include "core/ParentDirectories.h"
#include "core/VaultPath.h"

#include <algorithm>

namespace Tessarin::Core {

namespace {

bool itemExists(const SecureFileIndex &index, const QString &path)
{
    return indexContainsFilePath(index, path) || indexContainsDirectoryPath(index, path);
}

/// The path with its leading `directory` replaced; the letter case of the rest is kept.
QString movedPath(const QString &path, const QString &directory, const QString &newDirectory)
{
    return newDirectory + path.mid(directory.size());
}

/// False when two entries have met at one path. Names that only an index written elsewhere can hold come to
/// that, and files that lie below a path which has no directory entry.
bool keepsEveryEntry(const SecureFileIndex &former, const SecureFileIndex &changed)
{
    return changed.entries().size() == former.entries().size() &&
           changed.directories().size() >= former.directories().size();
}

/// The index after a directory, with all below it, took another path.
SecureFileIndex withDirectoryMoved(const SecureFileIndex &index, const QString &from, const QString &to)
{
    SecureFileIndex moved;
    for (const VaultDirectoryEntry &directory : index.directories())
        moved.addDirectory(directory);
    ensureParentDirectories(moved, to);

    SecureFileIndex result;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (VaultDirectoryEntry directory : moved.directories()) {
        if (vaultPathsEqual(directory.path, from) || pathIsInsideDirectory(directory.path, from)) {
            directory.path = movedPath(directory.path, from, to);
            directory.modifiedUtc = now;
        }
        result.addDirectory(directory);
    }
    for (VaultFileEntry file : index.entries()) {
        if (pathIsInsideDirectory(file.vaultPath, from))
            file.vaultPath = movedPath(file.vaultPath, from, to);
        result.addOrReplace(file);
    }
    return result;
}

} // namespace

bool VaultManager::moveFile(const QString &filePath, const QString &targetDirectory)
{
    const QString source = normalizedVaultPath(filePath);
    const QString target = normalizedVaultPath(targetDirectory);
    if (!target.isEmpty() && !indexContainsDirectoryPath(currentIndex(), target))
        return fail(Failure::Refused);

    return relocateFile(source, joinVaultPath(target, vaultBaseName(source)));
}

bool VaultManager::renameFile(const QString &filePath, const QString &newFilePath)
{
    return relocateFile(normalizedVaultPath(filePath), normalizedVaultPath(newFilePath));
}

/// What moving and renaming share: the file must exist and be closed, its new path must be free.
bool VaultManager::relocateFile(const QString &filePath, const QString &newFilePath)
{
    const VaultFileEntry *file = currentIndex().findFile(filePath);
    if (file == nullptr || newFilePath.isEmpty() || itemExists(currentIndex(), newFilePath) ||
        hasOpenCopy(filePath)) {
        return fail(Failure::Refused);
    }

    SecureFileIndex relocated = currentIndex();
    return relocated.setVaultPath(file->vaultPath, newFilePath) && saveIndex(relocated);
}

bool VaultManager::deleteFile(const QString &filePath)
{
    const QString path = normalizedVaultPath(filePath);
    const VaultFileEntry *file = currentIndex().findFile(path);
    if (file == nullptr)
        return fail(Failure::Refused);

    SecureFileIndex remaining = currentIndex();
    if (!remaining.remove(file->vaultPath) ||
        !storeIndex(remaining, ContainerTransaction::Policy::FreesSpace))
        return false;

    // An edit of the deleted file must not bring it back on lock.
    forgetCopies(path, {});
    return succeed();
}

bool VaultManager::createDirectory(const QString &directoryPath)
{
    const QString path = normalizedVaultPath(directoryPath);
    if (path.isEmpty() || itemExists(currentIndex(), path))
        return fail(Failure::Refused);

    SecureFileIndex extended = currentIndex();
    ensureParentDirectories(extended, path);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    return extended.addDirectory({path, now, now}) && saveIndex(extended);
}

bool VaultManager::renameDirectory(const QString &directoryPath, const QString &newDirectoryPath)
{
    const QString from = normalizedVaultPath(directoryPath);
    const QString to = normalizedVaultPath(newDirectoryPath);
    if (to.isEmpty() || pathIsInsideDirectory(to, from))
        return fail(Failure::Refused);
    if (!indexContainsDirectoryPath(currentIndex(), from) || itemExists(currentIndex(), to))
        return fail(Failure::Refused);
    if (hasOpenCopy(from) || hasOpenCopyInside(from))
        return fail(Failure::Refused);

    const SecureFileIndex moved = withDirectoryMoved(currentIndex(), from, to);
    return keepsEveryEntry(currentIndex(), moved) ? saveIndex(moved) : fail(Failure::Refused);
}

bool VaultManager::deleteDirectory(const QString &directoryPath)
{
    const QString path = normalizedVaultPath(directoryPath);
    const VaultDirectoryEntry *directory = currentIndex().findDirectory(path);
    if (directory == nullptr)
        return fail(Failure::Refused);

    const auto isInside = [&path](const QString &other) { return pathIsInsideDirectory(other, path); };
    const QList<VaultDirectoryEntry> &directories = currentIndex().directories();
    const QList<VaultFileEntry> &files = currentIndex().entries();
    if (std::any_of(directories.cbegin(), directories.cend(),
                    [&](const auto &other) { return isInside(other.path); }) ||
        std::any_of(files.cbegin(), files.cend(),
                    [&](const auto &file) { return isInside(file.vaultPath); })) {
        return fail(Failure::Refused);
    }

    SecureFileIndex remaining = currentIndex();
    return remaining.removeDirectory(directory->path) &&
           storeIndex(remaining, ContainerTransaction::Policy::FreesSpace);
}

bool VaultManager::hasOpenCopy(const QString &vaultPath) const
{
    const QList<TrackedTempFile> copies = openCopies.trackedFiles();
    return std::any_of(copies.cbegin(), copies.cend(), [&](const TrackedTempFile &copy) {
        return vaultPathsEqual(copy.vaultPath, vaultPath);
    });
}

bool VaultManager::hasOpenCopyInside(const QString &directoryPath) const
{
    const QList<TrackedTempFile> copies = openCopies.trackedFiles();
    return std::any_of(copies.cbegin(), copies.cend(), [&](const TrackedTempFile &copy) {
        return pathIsInsideDirectory(copy.vaultPath, directoryPath);
    });
}

} // namespace Tessarin::Core
