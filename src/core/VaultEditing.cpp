// Temporary copies for other programs to open, and their way back.
#include "core/VaultManager.h"

#include "core/HostFile.h"
#include "core/VaultPath.h"

#include <QFile>
#include <QFileInfo>

namespace Tessarin::Core {

namespace {

/// Opens for writing, emptied and readable by its owner alone, before anything is in it.
bool openPrivate(QFile &file)
{
    constexpr QFileDevice::Permissions ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered, ownerOnly) &&
           file.setPermissions(ownerOnly);
}

} // namespace

bool VaultManager::prepareFileForEditing(const QString &vaultPath, QString *tempPath)
{
    if (sessionState != Unlocked || tempPath == nullptr)
        return false;
    const VaultFileEntry *entry = sessionIndex.findFile(normalizedVaultPath(vaultPath));
    if (entry == nullptr)
        return false;

    // The stored letter case: two spellings of one name must not become two copies that overwrite each other.
    const QString path = entry->vaultPath;
    const QString copyPath = workspace.pathForVaultFile(path);
    QFile copy(copyPath);
    if (workspace.isReservedPath(path) || !makePrivatePath(QFileInfo(copyPath).absolutePath()) ||
        !openPrivate(copy)) {
        return false;
    }

    // From here on the copy is not what was tracked, and if it stays incomplete it must not go back.
    openCopies.untrack(path);
    if (!writeVaultFileToDevice(path, &copy))
        return false;
    copy.close();
    if (!openCopies.track(path, copyPath))
        return false;

    *tempPath = copyPath;
    return true;
}

bool VaultManager::syncModifiedTempFiles()
{
    const QList<TrackedTempFile> modified = openCopies.modifiedFiles();
    for (const TrackedTempFile &copy : modified) {
        if (!importFile(copy.tempPath, copy.vaultPath))
            return false;
    }
    return true;
}

QList<TrackedTempFile> VaultManager::modifiedOpenFiles() const
{
    return openCopies.modifiedFiles();
}

QString VaultManager::workspacePath() const
{
    return workspace.workspacePath();
}

} // namespace Tessarin::Core
