// File contents: into the container as encrypted blocks, and out of it.
#include "core/VaultManager.h"

#include "core/BlockReader.h"
#include "core/HostFile.h"
#include "core/Secret.h"
#include "core/VaultNamespace.h"
#include "core/VaultPath.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QUuid>

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

/// Takes appended bytes away again. Nothing refers to them, so a failure here costs only space.
void cutBack(QFile &container, qint64 formerSize)
{
    if (container.resize(formerSize))
        static_cast<void>(syncFile(container));
}

} // namespace

bool VaultManager::importFile(const QString &sourcePath, const QString &vaultPath,
                              const ProgressCallback &progress)
{
    const QString path = normalizedVaultPath(vaultPath);
    if (sessionState != Unlocked || path.isEmpty())
        return false;

    const QFileInfo sourceInfo(sourcePath);
    QFile source(sourcePath);
    if (!sourceInfo.isFile() || isSameFile(sourcePath, sessionContainerPath) ||
        !source.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return false;
    }

    ContainerDocument formerDocument;
    QFile container(sessionContainerPath);
    if (!containers.readDocument(sessionContainerPath, &formerDocument) ||
        formerDocument.payloadOffset != ContainerFormat::blockAreaOffset ||
        !container.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered)) {
        return false;
    }

    const qint64 formerSize = container.size();
    VaultFileEntry entry = newEntry(path, sourceInfo);
    if (!container.seek(formerSize) || !appendBlocks(source, container, entry, progress) ||
        !syncFile(container)) {
        cutBack(container, formerSize);
        return false;
    }

    SecureFileIndex index = indexForImport(path);
    ContainerDocument document = formerDocument;
    if (!index.addOrReplace(entry) || !writeIndex(document, index)) {
        if (restoreHeader(container, formerDocument))
            cutBack(container, formerSize);
        return false;
    }

    sessionIndex = index;
    forgetCopies(path, sourcePath);
    return true;
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
    while (const VaultFileEntry *replaced = index.findFile(vaultPath))
        index.remove(QString(replaced->vaultPath));
    return index;
}

/// Encrypts the source block by block to where the container stands, and completes the entry.
bool VaultManager::appendBlocks(QFile &source, QFile &container, VaultFileEntry &entry,
                                const ProgressCallback &progress) const
{
    const QByteArray blockData = associatedData({}, "file-block");
    const qint64 totalBytes = entry.sizeBytes;
    qint64 doneBytes = 0;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    QByteArray buffer(ContainerFormat::blockPlainSize, Qt::Uninitialized);
    const auto wipeUsedBytes = qScopeGuard([&] {
        sodium_memzero(buffer.data(), static_cast<size_t>(qMin(doneBytes, ContainerFormat::blockPlainSize)));
    });

    while (!source.atEnd()) {
        const qint64 chunkSize = source.read(buffer.data(), buffer.size());
        if (chunkSize < 1)
            return false;

        const QByteArray chunk = QByteArray::fromRawData(buffer.constData(), chunkSize);
        hash.addData(chunk);
        VaultFileBlock block;
        block.nonce = crypto.generateNonce(CryptoManager::nonceSizeBytes);
        const QByteArray ciphertext = crypto.encrypt(chunk, dataKey(), block.nonce, blockData);
        block.offset = container.pos();
        block.plainSize = chunkSize;
        block.encryptedSize = ciphertext.size();
        if (ciphertext.isEmpty() || container.write(ciphertext) != ciphertext.size())
            return false;

        entry.blocks.append(block);
        doneBytes += chunkSize;
        if (progress)
            progress(doneBytes, totalBytes, entry.vaultPath);
    }
    entry.sha256 = hash.result();
    return true;
}

/// Makes the header on the drive the former one again, after a write that failed somewhere. False when that
/// cannot be made sure of: then the header may refer to what was appended.
bool VaultManager::restoreHeader(const QFile &container, const ContainerDocument &formerDocument) const
{
    if (!isOpenAt(container, sessionContainerPath))
        return false;

    ContainerDocument onDrive;
    if (containers.readDocument(sessionContainerPath, &onDrive) &&
        containers.buildHeader(onDrive) == containers.buildHeader(formerDocument)) {
        return true;
    }
    return containers.updateDocumentHeader(sessionContainerPath, formerDocument);
}

bool VaultManager::writeVaultFileToDevice(const QString &vaultPath, QIODevice *device) const
{
    if (device == nullptr || sessionState != Unlocked)
        return false;
    const VaultFileEntry *entry = sessionIndex.findFile(vaultPath);
    QFile container(sessionContainerPath);
    if (entry == nullptr || !container.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return false;

    const QByteArray blockData = associatedData({}, "file-block");
    for (const VaultFileBlock &block : entry->blocks) {
        const QByteArray stored = readStoredBlock(container, block);
        if (stored.isEmpty())
            return false;
        QByteArray plain = crypto.decrypt(stored, dataKey(), block.nonce, blockData);
        const WipedAtScopeEnd wipePlain(plain);
        if (plain.size() != block.plainSize || device->write(plain) != plain.size())
            return false;
    }
    return true;
}

bool VaultManager::exportFile(const QString &vaultPath, const QString &targetPath) const
{
    const QString path = normalizedVaultPath(vaultPath);
    // Opening the container under another of its names would cut it to nothing.
    if (sessionState != Unlocked || path.isEmpty() || isSameFile(targetPath, sessionContainerPath))
        return false;

    QFile target(targetPath);
    return target.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered) &&
           writeVaultFileToDevice(path, &target);
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
