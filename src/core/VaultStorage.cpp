// File contents: into the container as encrypted blocks, and out of it.
#include "core/VaultManager.h"

#include "core/BlockStore.h"
#include "core/HostFile.h"
#include "core/Sha256.h"
#include "core/VaultKeys.h"
#include "core/VaultNamespace.h"
#include "core/VaultPath.h"
#include "core/VaultRecovery.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>

namespace Tessarin::Core {

namespace {

VaultFileEntry newEntry(const QString &vaultPath, const QFileInfo &source)
{
    VaultFileEntry entry;
    entry.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    entry.vaultPath = vaultPath;
    entry.sizeBytes = source.size();
    entry.lastModifiedUtc = source.lastModified().toUTC();
    return entry;
}

} // namespace

bool VaultManager::importFile(const QString &sourcePath, const QString &vaultPath,
                              const ProgressCallback &progress)
{
    const QString path = normalizedVaultPath(vaultPath);
    if (sessionState != Unlocked || path.isEmpty() || isSameFile(sourcePath, sessionContainerPath))
        return fail(Failure::Refused);

    const QFileInfo sourceInfo(sourcePath);
    QFile source(sourcePath);
    if (!sourceInfo.isFile() || !source.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return fail(Failure::SourceUnreadable);

    ContainerUpdate ownChange(sessionContainerPath);
    ContainerUpdate &change = importSeries ? *importSeries : ownChange;
    ContainerDocument document;
    if (importSeries ? !continueSeries(document) : !beginChange(change, document))
        return false;
    // It is sealed anew below; until then the memory is the blocks'.
    document.encryptedIndex.clear();

    const qint64 formerSize = change.file().size();
    VaultFileEntry entry = newEntry(path, sourceInfo);
    SecureFileIndex index = indexForImport(path);
    if (!change.file().seek(formerSize) || !appendBlocks(source, change, entry, progress) ||
        !index.addOrReplace(entry)) {
        change.cutBack(formerSize);
        return false;
    }

    const bool isSeries = change.isInSeries();
    const ContainerUpdate::Outcome outcome =
        writeIndex(change, document, index, ContainerUpdate::Care::Usual);
    if (outcome == ContainerUpdate::Outcome::Undone)
        change.cutBack(formerSize);
    if (outcome != ContainerUpdate::Outcome::Done) {
        if (isSeries)
            adoptIndexInForce(change);
        return false;
    }

    sessionIndex = index;
    forgetCopies(path, sourcePath);
    return succeed();
}

bool VaultManager::importFile(const QString &sourcePath, const QString &vaultPath)
{
    return importFile(sourcePath, vaultPath, {});
}

/// The session's index with the parents of the new path, and without a file that it replaces.
SecureFileIndex VaultManager::indexForImport(const QString &vaultPath) const
{
    SecureFileIndex index = sessionIndex;
    ensureParentDirectories(index, vaultPath);
    index.removeInAnyCase(vaultPath);
    return index;
}

/// Encrypts the source block by block to where the container stands, and completes the entry.
bool VaultManager::appendBlocks(QFile &source, ContainerUpdate &change, VaultFileEntry &entry,
                                const ProgressCallback &progress) const
{
    const qint64 totalBytes = entry.sizeBytes;
    qint64 doneBytes = 0;
    Sha256 hash;
    BlockStore blocks(change.file(), masterKey);

    while (!source.atEnd()) {
        const QByteArrayView chunk = blocks.readPlain(source);
        if (chunk.isEmpty())
            return fail(source.error() == QFile::NoError ? Failure::SourceChanged
                                                         : Failure::SourceUnreadable);

        hash.add(chunk);
        errno = 0;
        const std::optional<VaultFileBlock> block = blocks.append();
        if (!block)
            return fail(containerFailure(errno));
        if (!change.startWriteback(block->offset, block->encryptedSize))
            return fail(change.failure());

        entry.blocks.append(*block);
        doneBytes += block->plainSize;
        if (progress)
            progress(doneBytes, totalBytes, entry.vaultPath);
    }
    entry.sha256 = hash.result();
    // A source that was cut short meanwhile is not what the user chose.
    if (doneBytes < totalBytes)
        return fail(Failure::SourceChanged);
    return !entry.sha256.isEmpty() || fail(Failure::Other);
}

void VaultManager::beginImportSeries()
{
    if (sessionState != Unlocked)
        return;
    auto series = std::make_unique<ContainerUpdate>(sessionContainerPath);
    ContainerDocument document;
    if (beginChange(*series, document) && series->beginSeries())
        importSeries = std::move(series);
}

/// False when the header is no longer the one that the series wrote last, as on a file system without locks.
bool VaultManager::continueSeries(ContainerDocument &document) const
{
    return recallHeader(*importSeries, document) ||
           (containers.parseHeader(importSeries->header(), &document) && sealOf(document) == sessionSeal);
}

bool VaultManager::endImportSeries()
{
    if (!importSeries)
        return succeed();
    const std::unique_ptr<ContainerUpdate> series = std::move(importSeries);
    if (series->endSeries() == ContainerUpdate::Outcome::Done)
        return succeed();
    adoptIndexInForce(*series);
    return fail(series->failure());
}

/// After a series that failed: the session knows what the header on the drive lists, or, where that is torn
/// or cannot be read, what it lists when it has been put back.
void VaultManager::adoptIndexInForce(ContainerUpdate &update)
{
    knownHeaderHash.clear();
    for (const QByteArray &header : {update.header(), update.lastSafeHeader()}) {
        ContainerDocument document;
        if (containers.parseHeader(header, &document) && decryptIndex(document, masterKey, &sessionIndex)) {
            sessionSeal = sealOf(document);
            return;
        }
    }
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
    const VaultFileEntry *entry = sessionIndex.findFile(vaultPath);
    QFile container(sessionContainerPath);
    if (entry == nullptr)
        return fail(Failure::Refused);
    errno = 0;
    if (!container.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return fail(containerFailure(errno));

    const qint64 totalBytes = entry->sizeBytes;
    qint64 doneBytes = 0;
    BlockStore blocks(container, masterKey);
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
    if (sessionState != Unlocked || path.isEmpty() || isSameFile(targetPath, sessionContainerPath) ||
        !indexContainsFilePath(sessionIndex, path)) {
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
