// Rebuilding the container without its dead bytes. Blocks are moved as they are stored; the old container is
// deleted only when a complete, checked new one lies on the local disk.
#include "core/VaultManager.h"

#include "core/BlockStore.h"
#include "core/HostFile.h"
#include "core/Leftovers.h"
#include "core/VaultKeys.h"
#include "core/VaultRecovery.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QStorageInfo>
#include <QTemporaryDir>

#include <cerrno>
#include <limits>

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

enum class CopyResult { Done, NoRoom, Failed };

CopyResult failureOf(int errorNumber)
{
    return isLackOfRoom(errorNumber) ? CopyResult::NoRoom : CopyResult::Failed;
}

/// The part with the header comes last and by itself: a copy that breaks off is no container to anybody.
CopyResult copyInChunks(QFile &source, QFile &target, const ProgressCallback &progress)
{
    const qint64 totalBytes = source.size();
    qint64 doneBytes = 0;
    QByteArray chunk;
    const auto copyPart = [&](qint64 offset, qint64 end) {
        if (!source.seek(offset) || !target.seek(offset))
            return CopyResult::Failed;
        while (offset < end) {
            readChunk(source, qMin(copyChunkSize, end - offset), chunk);
            if (chunk.isEmpty())
                return CopyResult::Failed;
            if (!writeFully(target, chunk) || !startWriteback(target, offset, chunk.size()))
                return failureOf(errno);
            offset += chunk.size();
            doneBytes += chunk.size();
            if (progress)
                progress(doneBytes, totalBytes, replacingLabel());
        }
        return CopyResult::Done;
    };
    if (const CopyResult result = copyPart(copyChunkSize, totalBytes); result != CopyResult::Done)
        return result;
    if (!syncFile(target))
        return failureOf(errno);
    return copyPart(0, qMin(copyChunkSize, totalBytes));
}

/// Copies a file and waits until it and its name have reached the drive. The new file stays open and locked.
CopyResult copyDurably(const QString &sourcePath, QFile &target, const ProgressCallback &progress)
{
    QFile source(sourcePath);
    if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !target.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered) ||
        !lockFile(target)) {
        return CopyResult::Failed;
    }
    if (const CopyResult result = copyInChunks(source, target, progress); result != CopyResult::Done)
        return result;
    if (!syncFile(target))
        return failureOf(errno);
    syncDirectory(QFileInfo(target).absolutePath());
    return CopyResult::Done;
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

/// A copy that is on the drive for good, read again from there; one that failed does not stay. Until `target`
/// is closed, no other program takes it for the leftover of a compaction that was killed.
CopyResult copyAndCheck(const QString &sourcePath, QFile &target, const ProgressCallback &progress)
{
    CopyResult result = copyDurably(sourcePath, target, progress);
    if (result == CopyResult::Done && !holdSameBytes(sourcePath, target.fileName(), progress))
        result = CopyResult::Failed;
    if (result != CopyResult::Done && target.isOpen())
        target.remove();
    return result;
}

/// Where the drive has room for both, puts a checked copy of the new container beside the old one, so that
/// at every instant a complete container lies on the drive.
CopyResult putTwinBeside(const QString &newContainerPath, const QString &targetPath, QFile &twin,
                         const ProgressCallback &progress)
{
    const qint64 available = freeBytes(QFileInfo(targetPath).absolutePath());
    const qint64 needed = QFileInfo(newContainerPath).size() + ContainerFormat::headerAreaSize;
    if (available >= 0 && available < needed)
        return CopyResult::NoRoom;
    twin.setFileName(newTwinPath(targetPath));
    return copyAndCheck(newContainerPath, twin, progress);
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
        return fail(Failure::Refused);
    failure = Failure::Other;

    CompactedContainer compacted;
    ContainerUpdate usual(sessionContainerPath);
    QFile withOtherLine(sessionContainerPath);
    const bool isUsual = !hasOtherLengthLine();
    QFile &oldContainer = isUsual ? usual.file() : withOtherLine;
    if (!(isUsual ? beginChange(usual, compacted.document)
                  : lockForReading(withOtherLine, compacted.document))) {
        return false;
    }
    clearLeftovers({oldContainer, masterKey, sessionIndex, std::numeric_limits<qint64>::max()}, progress);

    QTemporaryDir folder(workingFolderTemplate());
    folder.setAutoRemove(false);
    QFile folderLock;
    if (!folder.isValid() || lockWorkingFolder(folder.path(), folderLock) == FileLock::Held)
        return false;
    auto removeFolder = qScopeGuard([&folder] { QDir(folder.path()).removeRecursively(); });

    compacted.path = folder.filePath(QLatin1String(ContainerFormat::defaultFileName));
    if (freeBytes(folder.path()) < containerBytes(sessionIndex) ||
        !buildCompacted(oldContainer, compacted, progress) || !verifyCompacted(compacted)) {
        return false;
    }

    // Through a link, the file itself is replaced and not the link.
    const QString targetPath = QFileInfo(sessionContainerPath).canonicalFilePath();
    QFile twin;
    const CopyResult twinResult = putTwinBeside(compacted.path, targetPath, twin, progress);
    const bool hasTwin = twinResult == CopyResult::Done;
    auto removeTwin = qScopeGuard([&twin, hasTwin] {
        if (hasTwin)
            twin.remove();
    });
    // A drive that could not take a second container for another reason will not take the only one either.
    if (twinResult == CopyResult::Failed)
        return false;
    const QFileDevice::Permissions permissions = QFile::permissions(targetPath);
    if (!isStillTheSame(oldContainer, targetPath, compacted.document) || !QFile::remove(targetPath))
        return false;

    // A deleted file keeps its room on the drive while it is open, and the new container needs that room.
    oldContainer.close();
    // The old container is gone: from here on the new one's offsets count, wherever it ends up.
    sessionIndex = compacted.index;
    sessionSeal = sealOf(compacted.document);
    knownHeaderHash.clear();
    QFile target(targetPath);
    if (copyAndCheck(compacted.path, target, progress) == CopyResult::Done) {
        target.setPermissions(permissions);
        return succeed();
    }
    removeTwin.dismiss();
    removeFolder.dismiss(); // The drive with the twin has just failed.
    const bool isOnDrive = hasTwin && QFile::exists(twin.fileName());
    if (preservedPath != nullptr)
        *preservedPath = isOnDrive ? twin.fileName() : compacted.path;
    return false;
}

/// True for a container whose blocks begin elsewhere than where this program puts them. It has no records,
/// and nothing but compaction changes it.
bool VaultManager::hasOtherLengthLine() const
{
    ContainerDocument document;
    return containers.readDocument(sessionContainerPath, &document) &&
           document.payloadOffset != ContainerFormat::blockAreaOffset;
}

bool VaultManager::lockForReading(QFile &container, ContainerDocument &document) const
{
    return container.open(QIODevice::ReadOnly | QIODevice::Unbuffered) && lockFile(container) &&
           containers.readDocument(container.fileName(), &document) && sealOf(document) == sessionSeal;
}

/// Before the old container is deleted: on a file system without locks, another program may have saved or
/// changed the password since, or another file may lie there now. Neither is ours to delete.
bool VaultManager::isStillTheSame(const QFile &oldContainer, const QString &path,
                                  const ContainerDocument &compacted) const
{
    ContainerDocument document;
    return isOpenAt(oldContainer, path) && containers.readDocument(path, &document) &&
           sealOf(document) == sessionSeal &&
           document.crypto.encryptedMasterKey == compacted.crypto.encryptedMasterKey;
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
        document.encryptedIndex = encryptIndex(document, compacted.index, masterKey);
        return !document.encryptedIndex.isEmpty();
    });
}

bool VaultManager::copyLiveBlocks(QFile &oldContainer, QIODevice &output, CompactedContainer &compacted,
                                  const ProgressCallback &progress) const
{
    const qint64 totalBytes = plaintextBytes(sessionIndex);
    qint64 doneBytes = 0;
    BlockStore blocks(oldContainer, masterKey);
    for (VaultFileEntry file : sessionIndex.entries()) {
        for (VaultFileBlock &block : file.blocks) {
            const QByteArrayView stored = blocks.readStored(block);
            block.offset = output.pos();
            if (stored.isEmpty() || output.write(stored.data(), stored.size()) != stored.size())
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
    return containers.readDocument(compacted.path, &document) && decryptIndex(document, masterKey, &index) &&
           index.toJson() == compacted.index.toJson() &&
           blocksLieWithin(index, QFileInfo(compacted.path).size());
}

} // namespace Tessarin::Core
