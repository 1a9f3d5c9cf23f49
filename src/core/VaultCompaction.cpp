// Rebuilding the container without its dead bytes. Blocks are moved as they are stored; the old container is
// deleted only when a complete, checked new one lies on the local disk.
#include "core/VaultManager.h"

#include "core/BlockReader.h"
#include "core/HostFile.h"
#include "core/VaultRecovery.h"

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
constexpr qint64 comparedChunkSize = 256 * 1024; ///< Two of them fit the processor's cache.

/// Sums in which no size that a forged index names can overflow.
qint64 plaintextBytes(const SecureFileIndex &index)
{
    quint64 total = 0;
    for (const VaultFileEntry &file : index.entries())
        total += static_cast<quint64>(file.sizeBytes);
    return static_cast<qint64>(total);
}

/// Bytes of a container that holds just the index's blocks.
qint64 containerBytes(const SecureFileIndex &index)
{
    constexpr qint64 largestBlock = ContainerFormat::blockPlainSize + CryptoManager::tagSizeBytes;
    qint64 total = ContainerFormat::blockAreaOffset;
    for (const VaultFileEntry &file : index.entries()) {
        for (const VaultFileBlock &block : file.blocks)
            total += qBound(qint64(0), block.encryptedSize, largestBlock);
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

/// Of copying the new container to the drive and reading it again.
QString replacingLabel()
{
    return QCoreApplication::translate("VaultManager", "Substituindo container no USB");
}

qint64 freeBytes(const QString &folderPath)
{
    return QStorageInfo(folderPath).bytesAvailable();
}

/// Fills the chunk's memory anew; empty at the end and on failure.
void readChunk(QFile &source, qint64 size, QByteArray &chunk)
{
    chunk.resize(size);
    chunk.resize(qMax(qint64(0), source.read(chunk.data(), size)));
}

/// The part with the header comes last and by itself: a copy that breaks off is no container to anybody.
bool copyInChunks(QFile &source, QFile &target, const ProgressCallback &progress)
{
    const qint64 totalBytes = source.size();
    qint64 doneBytes = 0;
    QByteArray chunk;
    const auto copyPart = [&](qint64 offset, qint64 end) {
        if (!source.seek(offset) || !target.seek(offset))
            return false;
        while (offset < end) {
            readChunk(source, qMin(copyChunkSize, end - offset), chunk);
            if (chunk.isEmpty() || target.write(chunk) != chunk.size() ||
                !startWriteback(target, offset, chunk.size())) {
                return false;
            }
            offset += chunk.size();
            doneBytes += chunk.size();
            if (progress)
                progress(doneBytes, totalBytes, replacingLabel());
        }
        return true;
    };
    return copyPart(copyChunkSize, totalBytes) && syncFile(target) &&
           copyPart(0, qMin(copyChunkSize, totalBytes));
}

/// Copies a file and waits until it and its name have reached the drive; a failed copy does not stay.
bool copyDurably(const QString &sourcePath, const QString &targetPath, const ProgressCallback &progress)
{
    QFile source(sourcePath);
    QFile target(targetPath);
    if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !target.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered)) {
        return false;
    }
    if (!copyInChunks(source, target, progress) || !syncFile(target)) {
        target.remove();
        return false;
    }
    syncDirectory(QFileInfo(targetPath).absolutePath());
    return true;
}

/// Compares two files with what the drives hold, not with what memory still does.
bool holdSameBytes(const QString &firstPath, const QString &secondPath, const ProgressCallback &progress)
{
    QFile first(firstPath);
    QFile second(secondPath);
    if (!first.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !second.open(QIODevice::ReadOnly | QIODevice::Unbuffered) || first.size() != second.size()) {
        return false;
    }
    const qint64 totalBytes = first.size();
    dropCachedPages(first);
    dropCachedPages(second);
    QByteArray chunk;
    QByteArray otherChunk;
    for (qint64 doneBytes = 0; doneBytes < totalBytes;) {
        readChunk(first, comparedChunkSize, chunk);
        readChunk(second, comparedChunkSize, otherChunk);
        if (chunk.isEmpty() || chunk != otherChunk)
            return false;
        doneBytes += chunk.size();
        if (progress && (doneBytes % copyChunkSize == 0 || doneBytes == totalBytes))
            progress(doneBytes, totalBytes, replacingLabel());
    }
    return true;
}

/// A copy that is on the drive for good, read again from there; one that failed does not stay.
bool copyAndCheck(const QString &sourcePath, const QString &targetPath, const ProgressCallback &progress)
{
    if (!copyDurably(sourcePath, targetPath, progress))
        return false;
    if (holdSameBytes(sourcePath, targetPath, progress))
        return true;
    QFile::remove(targetPath);
    return false;
}

/// What the names of a container's twins begin with; a number and the suffix follow.
QString twinBaseName(const QFileInfo &container)
{
    return container.completeBaseName() + QLatin1String("-compactado-");
}

const QLatin1StringView twinSuffix(".trvx");

/// Where the drive has room for both, puts a checked copy of the new container beside the old one, so that
/// at every instant a complete container lies on the drive. Empty where it has not.
QString putTwinBeside(const QString &newContainerPath, const QString &targetPath,
                      const ProgressCallback &progress)
{
    const QFileInfo target(targetPath);
    if (freeBytes(target.absolutePath()) <
        QFileInfo(newContainerPath).size() + ContainerFormat::headerAreaSize)
        return {};
    QString twinPath;
    for (int number = 1; twinPath.isEmpty() || QFileInfo::exists(twinPath); ++number)
        twinPath = target.dir().filePath(twinBaseName(target) + QString::number(number) + twinSuffix);
    return copyAndCheck(newContainerPath, twinPath, progress) ? twinPath : QString();
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
    ContainerUpdate oldContainer(sessionContainerPath);
    if (!beginChange(oldContainer, compacted.document))
        return false;
    QTemporaryDir folder(QDir::tempPath() + QLatin1String("/Tessarin-compact-XXXXXX"));
    folder.setAutoRemove(false);
    if (!folder.isValid())
        return false;
    auto removeFolder = qScopeGuard([&folder] { QDir(folder.path()).removeRecursively(); });

    compacted.path = folder.filePath(QLatin1String(ContainerFormat::defaultFileName));
    if (freeBytes(folder.path()) < containerBytes(sessionIndex) ||
        !buildCompacted(oldContainer.file(), compacted, progress) || !verifyCompacted(compacted)) {
        return false;
    }

    // Through a link, the file itself is replaced and not the link.
    const QString targetPath = QFileInfo(sessionContainerPath).canonicalFilePath();
    const QString twinPath = putTwinBeside(compacted.path, targetPath, progress);
    auto removeTwin = qScopeGuard([&twinPath] {
        if (!twinPath.isEmpty())
            QFile::remove(twinPath);
    });
    // Another file may have been put in its place meanwhile; that one is not ours to delete.
    const QFileDevice::Permissions permissions = QFile::permissions(targetPath);
    if (!isOpenAt(oldContainer.file(), targetPath) || !QFile::remove(targetPath))
        return false;

    // A deleted file keeps its room on the drive while it is open, and the new container needs that room.
    oldContainer.file().close();
    // The old container is gone: from here on the new one's offsets count, wherever it ends up.
    sessionIndex = compacted.index;
    sessionSeal = sealOf(compacted.document);
    knownHeaderHash.clear();
    if (copyAndCheck(compacted.path, targetPath, progress)) {
        QFile::setPermissions(targetPath, permissions);
        return true;
    }
    removeTwin.dismiss();
    if (twinPath.isEmpty())
        removeFolder.dismiss();
    if (preservedPath != nullptr)
        *preservedPath = twinPath.isEmpty() ? compacted.path : twinPath;
    return false;
}

QStringList VaultManager::compactionTwins(const QString &containerPath)
{
    const QFileInfo container(containerPath);
    const QString beginning = twinBaseName(container);
    QStringList twins;
    const QFileInfoList files = container.dir().entryInfoList(QDir::Files, QDir::Name);
    for (const QFileInfo &file : files) {
        if (file.fileName().startsWith(beginning) && file.fileName().endsWith(twinSuffix))
            twins.append(file.filePath());
    }
    return twins;
}

/// Writes the new container into its working folder. The index is sealed last, with the new offsets in it.
bool VaultManager::buildCompacted(QFile &oldContainer, CompactedContainer &compacted,
                                  const ProgressCallback &progress) const
{
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
    QByteArray stored;
    for (VaultFileEntry file : sessionIndex.entries()) {
        for (VaultFileBlock &block : file.blocks) {
            if (!readStoredBlock(oldContainer, block, stored))
                return false;
            block.offset = output.pos();
            if (output.write(stored) != stored.size())
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

} // namespace Tessarin::Core
