// File contents: into the container as encrypted blocks, and out of it.
#include "core/VaultManager.h"

#include "core/BlockStore.h"
#include "core/HostFile.h"
#include "core/VaultPath.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>

namespace Tessarin::Core {

bool VaultManager::importFile(const QString &sourcePath, const QString &vaultPath,
                              const ProgressCallback &progress)
{
    const QString path = normalizedVaultPath(vaultPath);
    if (sessionState != Unlocked || path.isEmpty() || isSameFile(sourcePath, container.path()))
        return fail(Failure::Refused);

    QFile source(sourcePath);
    if (!QFileInfo(sourcePath).isFile() || !source.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return fail(Failure::SourceUnreadable);

    ImportGroup single(container);
    ImportGroup &group = importGroup ? *importGroup : single;
    if (!group.add(source, path, progress))
        return fail(group.failure());
    return importGroup && !group.isDue() ? succeed() : commitImports(group);
}

bool VaultManager::importFile(const QString &sourcePath, const QString &vaultPath)
{
    return importFile(sourcePath, vaultPath, {});
}

bool VaultManager::commitImports(ImportGroup &group)
{
    const bool isCommitted = group.commit();
    // Only now the files that were replaced are no longer the vault's.
    const QList<ImportedFile> files = group.takeCommitted();
    for (const ImportedFile &file : files)
        forgetCopies(file.vaultPath, file.sourcePath);
    return isCommitted ? succeed() : fail(group.failure());
}

void VaultManager::beginImportSeries()
{
    if (sessionState == Unlocked && !importGroup)
        importGroup.emplace(container);
}

bool VaultManager::endImportSeries()
{
    if (!importGroup)
        return succeed();
    const bool isCommitted = commitImports(*importGroup);
    const bool isWhole = !importGroup->hasLostFiles();
    const Failure reason = importGroup->failure();
    importGroup.reset();
    return isCommitted && isWhole ? succeed() : fail(reason);
}

bool VaultManager::writeVaultFileToDevice(const QString &vaultPath, QIODevice *device) const
{
    return writeVaultFileToDevice(vaultPath, device, {});
}

bool VaultManager::writeVaultFileToDevice(const QString &vaultPath, QIODevice *device,
                                          const ProgressCallback &progress) const
{
    if (device == nullptr || sessionState != Unlocked)
        return fail(Failure::Refused);
    const VaultFileEntry *entry = currentIndex().findFile(vaultPath);
    QFile file(container.path());
    if (entry == nullptr)
        return fail(Failure::Refused);
    errno = 0;
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return fail(containerFailure(errno));

    const qint64 totalBytes = entry->sizeBytes;
    qint64 doneBytes = 0;
    BlockStore blocks(file, container.masterKey());
    for (const VaultFileBlock &block : entry->blocks) {
        errno = 0;
        const QByteArrayView plain = blocks.read(block);
        if (plain.isEmpty())
            return fail(errno == 0 ? Failure::DamagedData : containerFailure(errno));
        errno = 0;
        if (device->write(plain.data(), plain.size()) != plain.size())
            return fail(targetFailure(errno));
        doneBytes += block.plainSize;
        if (progress)
            progress(doneBytes, totalBytes, entry->vaultPath);
    }
    return succeed();
}

bool VaultManager::exportFile(const QString &vaultPath, const QString &targetPath) const
{
    return exportFile(vaultPath, targetPath, {});
}

bool VaultManager::exportFile(const QString &vaultPath, const QString &targetPath,
                              const ProgressCallback &progress) const
{
    const QString path = normalizedVaultPath(vaultPath);
    // Opening the container under another of its names would cut it to nothing.
    if (sessionState != Unlocked || isSameFile(targetPath, container.path()) ||
        !indexContainsFilePath(currentIndex(), path)) {
        return fail(Failure::Refused);
    }
    QFile target(targetPath);
    errno = 0;
    if (!target.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered))
        return fail(targetFailure(errno));
    return writeVaultFileToDevice(path, &target, progress);
}

/// Stops copies of a file that is no longer the vault's from being written back.
void VaultManager::forgetCopies(const QString &vaultPath, const QString &exceptTempPath)
{
    const QList<TrackedTempFile> copies = openCopies.trackedFiles();
    for (const TrackedTempFile &copy : copies) {
        if (vaultPathsEqual(copy.vaultPath, vaultPath) && copy.tempPath != exceptTempPath)
            openCopies.untrack(copy.vaultPath);
    }
}

} // namespace Tessarin::Core
