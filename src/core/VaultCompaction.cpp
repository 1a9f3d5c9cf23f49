// Rebuilding the container without its dead bytes. Blocks are moved as they are stored; the old container is
// deleted only when a complete, checked new one lies on the local disk.
#include "core/VaultManager.h"

#include "core/BlockReader.h"
#include "core/HostFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QStorageInfo>
#include <QTemporaryDir>

namespace Tessarin::Core {

namespace {

constexpr qint64 copyChunkSize = 8 * 1024 * 1024;

qint64 plaintextBytes(const SecureFileIndex &index)
{
    qint64 total = 0;
    for (const VaultFileEntry &file : index.entries())
        total += file.sizeBytes;
    return total;
}

/// Bytes of a container that holds just the index's blocks.
qint64 containerBytes(const SecureFileIndex &index)
{
    qint64 total = ContainerFormat::blockAreaOffset;
    for (const VaultFileEntry &file : index.entries()) {
        for (const VaultFileBlock &block : file.blocks)
            total += qMax(block.encryptedSize, qint64(0));
    }
    return total;
}

bool blocksLieWithin(const SecureFileIndex &index, qint64 containerSize)
{
    for (const VaultFileEntry &file : index.entries()) {
        for (const VaultFileBlock &block : file.blocks) {
            if (block.offset < ContainerFormat::blockAreaOffset ||
                block.offset > containerSize - block.encryptedSize) {
                return false;
            }
        }
    }
    return true;
}

bool copyInChunks(QFile &source, QFile &target, const ProgressCallback &progress)
{
    const QString label = QCoreApplication::translate("VaultManager", "Substituindo container no USB");
    const qint64 totalBytes = source.size();
    qint64 doneBytes = 0;
    while (!source.atEnd()) {
        const QByteArray chunk = source.read(copyChunkSize);
        if (chunk.isEmpty() || target.write(chunk) != chunk.size())
            return false;
        doneBytes += chunk.size();
        if (progress)
            progress(doneBytes, totalBytes, label);
    }
    return doneBytes == totalBytes;
}

} // namespace

/// The new container while it is made and checked.
struct VaultManager::CompactedContainer
{
    QString path;
    ContainerDocument document;
    SecureFileIndex index;
};

bool VaultManager::compactVault(const ProgressCallback &progress, QString *preservedPath)
{
    if (sessionState != Unlocked || sessionContainerPath.isEmpty())
        return false;

    CompactedContainer compacted;
    if (!containers.readDocument(sessionContainerPath, &compacted.document))
        return false;
    QTemporaryDir folder(QDir::tempPath() + QLatin1String("/Tessarin-compact-XXXXXX"));
    folder.setAutoRemove(false);
    if (!folder.isValid())
        return false;
    auto removeFolder = qScopeGuard([&folder] { QDir(folder.path()).removeRecursively(); });

    compacted.path = folder.filePath(QLatin1String(ContainerFormat::defaultFileName));
    if (QStorageInfo(folder.path()).bytesAvailable() < containerBytes(sessionIndex) ||
        !buildCompacted(compacted, progress) || !verifyCompacted(compacted)) {
        return false;
    }

    // Through a link, the file itself is replaced and not the link.
    const QString targetPath = QFileInfo(sessionContainerPath).canonicalFilePath();
    if (!QFile::remove(targetPath))
        return false;
    if (!putInPlace(compacted.path, targetPath, progress)) {
        removeFolder.dismiss();
        if (preservedPath != nullptr)
            *preservedPath = compacted.path;
        return false;
    }

    sessionIndex = compacted.index;
    return true;
}

/// Writes the new container into its working folder. The index is sealed last, with the new offsets in it.
bool VaultManager::buildCompacted(CompactedContainer &compacted, const ProgressCallback &progress) const
{
    QFile oldContainer(sessionContainerPath);
    if (!oldContainer.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return false;

    for (const VaultDirectoryEntry &directory : sessionIndex.directories())
        compacted.index.addDirectory(directory);
    ContainerDocument &document = compacted.document;
    document.fileIndex.clear();
    document.encryptedIndex.clear();
    document.crypto.payloadNonce = crypto.generateNonce(CryptoManager::nonceSizeBytes);

    return containers.writeDocument(compacted.path, document, [&](QIODevice &output) {
        if (!copyLiveBlocks(oldContainer, output, compacted, progress))
            return false;
        document.encryptedIndex = encryptIndex(document, compacted.index);
        return !document.encryptedIndex.isEmpty();
    });
}

bool VaultManager::copyLiveBlocks(QFile &oldContainer, QIODevice &output, CompactedContainer &compacted,
                                  const ProgressCallback &progress) const
{
    const qint64 totalBytes = plaintextBytes(sessionIndex);
    qint64 doneBytes = 0;
    for (VaultFileEntry file : sessionIndex.entries()) {
        for (VaultFileBlock &block : file.blocks) {
            const QByteArray stored = readStoredBlock(oldContainer, block);
            block.offset = output.pos();
            if (stored.isEmpty() || output.write(stored) != stored.size())
                return false;
            doneBytes += block.plainSize;
            if (progress)
                progress(doneBytes, totalBytes, file.vaultPath);
        }
        compacted.index.addOrReplace(file);
    }
    return true;
}

bool VaultManager::verifyCompacted(const CompactedContainer &compacted) const
{
    ContainerDocument document;
    SecureFileIndex index;
    return containers.readDocument(compacted.path, &document) && decryptIndex(document, &index) &&
           index.toJson() == compacted.index.toJson() &&
           blocksLieWithin(index, QFileInfo(compacted.path).size());
}

/// Copies the new container to the drive and waits for it; a failed copy does not stay there.
bool VaultManager::putInPlace(const QString &newContainerPath, const QString &targetPath,
                              const ProgressCallback &progress) const
{
    QFile source(newContainerPath);
    QFile target(targetPath);
    if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !target.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        return false;
    }
    if (!copyInChunks(source, target, progress) || !syncFile(target)) {
        target.remove();
        return false;
    }

    syncDirectory(QFileInfo(targetPath).absolutePath());
    return true;
}

} // namespace Tessarin::Core
