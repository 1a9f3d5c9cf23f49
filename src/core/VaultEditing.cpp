// Temporary copies for other programs to open, and their way back.
#include "core/VaultManager.h"

#include "core/VaultPath.h"

#include <QFile>
#include <QFileInfo>

namespace Tessarin::Core {

bool VaultManager::prepareFileForEditing(const QString &vaultPath, QString *tempPath)
{
    return prepareFileForEditing(vaultPath, tempPath, {});
}

bool VaultManager::prepareFileForEditing(const QString &vaultPath, QString *tempPath,
                                         const ProgressCallback &progress)
{
    if (sessionState != Unlocked || tempPath == nullptr)
        return fail(Failure::Refused);
    const VaultFileEntry *entry = currentIndex().findFile(normalizedVaultPath(vaultPath));
    if (entry == nullptr)
        return fail(Failure::Refused);

    // The stored letter case: two spellings of one name must not become two copies that overwrite each other.
    const QString path = entry->vaultPath;
    const QString copyPath = workspace.pathForVaultFile(path);
    // A former copy, which may be edited, stays until the new one is complete.
    QFile copy;
    if (!workspace.openNewCopy(copy))
        return fail(Failure::WorkspaceUnavailable);
    if (!writeVaultFileToDevice(path, &copy, progress)) {
        workspace.dropCopy(copy);
        return false;
    }
    if (!workspace.putCopy(path, copy) || !openCopies.track(path, copyPath))
        return fail(Failure::WorkspaceUnavailable);

    *tempPath = copyPath;
    return succeed();
}

bool VaultManager::syncModifiedTempFiles()
{
    return syncModifiedTempFiles({});
}

bool VaultManager::syncModifiedTempFiles(const ProgressCallback &progress)
{
    // What is saved again while copies go back has to follow. A copy that never rests keeps the vault open.
    QHash<QString, QDateTime> savedAt;
    for (int roundsLeft = 3;; --roundsLeft) {
        QList<TrackedTempFile> modified = openCopies.modifiedFiles();
        modified.removeIf([&savedAt](const TrackedTempFile &copy) {
            return savedAt.value(copy.tempPath) == QFileInfo(copy.tempPath).lastModified();
        });
        if (modified.isEmpty())
            return succeed();
        if (roundsLeft == 0)
            return fail(Failure::SourceChanged);
        if (!importCopies(modified, savedAt, progress))
            return false;
    }
}

/// Notes of each copy when what is imported of it was saved.
bool VaultManager::importCopies(const QList<TrackedTempFile> &modified, QHash<QString, QDateTime> &savedAt,
                                const ProgressCallback &progress)
{
    qint64 totalBytes = 0;
    for (const TrackedTempFile &copy : modified)
        totalBytes += QFileInfo(copy.tempPath).size();
    qint64 formerBytes = 0; // Of the copies before.
    for (const TrackedTempFile &copy : modified) {
        qint64 copyBytes = 0;
        const auto report = [&](qint64 doneBytes, qint64, const QString &label) {
            copyBytes = doneBytes;
            if (progress)
                progress(formerBytes + doneBytes, totalBytes, label);
        };
        if (!workspace.holdsCopy(copy.vaultPath))
            return fail(Failure::SourceUnreadable);
        savedAt[copy.tempPath] = QFileInfo(copy.tempPath).lastModified();
        if (!importFile(copy.tempPath, copy.vaultPath, report))
            return false;
        formerBytes += copyBytes;
    }
    return true;
}

QList<TrackedTempFile> VaultManager::openFiles() const
{
    return openCopies.trackedFiles();
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
