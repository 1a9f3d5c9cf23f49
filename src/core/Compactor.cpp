// The steps of a compaction.
#include "core/Compactor.h"

#include "core/BlockStore.h"
#include "core/ContainerCopy.h"
#include "core/HeaderArea.h"
#include "core/HostFile.h"
#include "core/LeftoverNames.h"
#include "core/VaultKeys.h"

#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Tessarin::Core {

namespace {

/// Bytes of a container that holds just the index's blocks; no size that a forged index names overflows it.
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

qint64 freeBytes(const QString &folderPath)
{
    return QStorageInfo(folderPath).bytesAvailable();
}

} // namespace

Compactor::Compactor(const VaultUnderLock &vaultUnderLock, const ContainerDocument &header,
                     const QByteArray &identityInForce, ProgressCallback progressCallback)
    : vault(vaultUnderLock),
      oldHeader(header),
      oldIdentity(identityInForce),
      progress(std::move(progressCallback)),
      document(header)
{
}

Compactor::~Compactor()
{
    if (!preserved.isEmpty())
        return;
    if (twin.isOpen())
        static_cast<void>(removeWithKey(twin.fileName()));
    if (builtPath.isEmpty())
        return;
    static_cast<void>(removeWithKey(builtPath));
    QDir(folder->path()).removeRecursively();
}

const ContainerDocument &Compactor::newDocument() const
{
    return document;
}

const SecureFileIndex &Compactor::newIndex() const
{
    return index;
}

QString Compactor::preservedPath() const
{
    return preserved;
}

Failure Compactor::failure() const
{
    return reason;
}

bool Compactor::build()
{
    reason = Failure::WorkspaceUnavailable;
    if (!prepareFolder())
        return false;
    if (freeBytes(folder->path()) < containerBytes(vault.index))
        return false;

    for (const VaultDirectoryEntry &directory : vault.index.directories())
        index.addDirectory(directory);
    document.crypto.payloadNonce = CryptoManager().generateNonce(CryptoManager::nonceSizeBytes);
    // The index is sealed last, with the new offsets in it.
    const auto writeBlocks = [this](QIODevice &output) {
        if (!copyLiveBlocks(output) || !padBlocks(output))
            return false;
        document.encryptedIndex = encryptIndex(document, index, vault.masterKey);
        return !document.encryptedIndex.isEmpty();
    };
    return containers.writeDocument(builtPath, document, writeBlocks) && verify();
}

bool Compactor::prepareFolder()
{
    // Until it is locked, a program that clears up may take the new folder for one that was left.
    for (int attempt = 0; attempt < 10; ++attempt) {
        folder.emplace(workingFolderTemplate());
        folder->setAutoRemove(false);
        if (!folder->isValid())
            return false;
        const QString path = folder->path();
        if (lockOwnDirectory(path, folderLock) != FileLock::Held && isOpenAt(folderLock, path)) {
            builtPath = folder->filePath(QLatin1String(ContainerFormat::defaultFileName));
            return true;
        }
        folderLock.close();
        QDir().rmdir(path);
    }
    return false;
}

bool Compactor::copyLiveBlocks(QIODevice &output)
{
    const qint64 totalBytes = plaintextBytes(vault.index);
    qint64 doneBytes = 0;
    BlockStore blocks(vault.container, vault.masterKey);
    for (VaultFileEntry file : vault.index.entries()) {
        for (VaultFileBlock &block : file.blocks) {
            errno = 0;
            const QByteArrayView stored = blocks.readStored(block);
            if (stored.isEmpty()) {
                reason = errno == 0 ? Failure::DamagedData : containerFailure(errno);
                return false;
            }
            block.offset = output.pos();
            if (output.write(stored.data(), stored.size()) != stored.size())
                return false;
            doneBytes += block.plainSize;
            if (progress)
                progress(doneBytes, totalBytes, file.vaultPath);
        }
        index.addOrReplace(file);
    }
    return true;
}

/// Has the container end with a page, as after every import, unless it would become longer by that.
bool Compactor::padBlocks(QIODevice &output) const
{
    const qint64 end = output.pos();
    const qint64 size = std::max(std::min(pageBorderFrom(end), vault.container.size()) - end, qint64(0));
    return end == ContainerFormat::blockAreaOffset || output.write(QByteArray(size, '\0')) == size;
}

bool Compactor::verify() const
{
    ContainerDocument written;
    SecureFileIndex writtenIndex;
    return containers.readDocument(builtPath, &written) &&
           decryptIndex(written, vault.masterKey, &writtenIndex) && writtenIndex.toJson() == index.toJson() &&
           blocksLieWithin(writtenIndex, QFileInfo(builtPath).size());
}

Compactor::Result Compactor::putInPlace()
{
    reason = Failure::DriveGone;
    // Through a link, the file itself is replaced and not the link.
    const QString path = QFileInfo(vault.container).canonicalFilePath();
    if (!putTwinBeside(path))
        return Result::Kept;
    const QFileDevice::Permissions permissions = QFile::permissions(path);
    if (!isOldInForce(path)) {
        reason = QFileInfo::exists(path) ? Failure::ChangedByOther : Failure::DriveGone;
        return Result::Kept;
    }
    // A file system on a network may tell of a failure when the file is gone: then the new container stays.
    if (!QFile::remove(path) && isOpenAt(vault.container, path)) {
        reason = Failure::ReadOnly;
        return Result::Kept;
    }

    // A deleted file keeps its room on the drive while it is open, and the new container needs that room.
    vault.container.close();
    QFile target(path);
    if (copyAndVerify(builtPath, target, progress) == CopyResult::Done) {
        target.setPermissions(permissions);
        return Result::Replaced;
    }
    // The drive with the twin has just failed, so what was built stays as well.
    preserved = twin.isOpen() && QFile::exists(twin.fileName()) ? twin.fileName() : builtPath;
    return Result::Preserved;
}

/// Where the drive has room for both, puts a copy of the new container beside the old one, so that at every
/// instant a complete container lies on the drive. False when the drive fails in another way than for lack
/// of room: then it would not take the only copy either.
bool Compactor::putTwinBeside(const QString &path)
{
    const qint64 available = freeBytes(QFileInfo(path).absolutePath());
    const qint64 needed = QFileInfo(builtPath).size() + ContainerFormat::headerAreaSize;
    if (available >= 0 && available < needed)
        return true;
    twin.setFileName(newTwinPath(path));
    return copyAndVerify(builtPath, twin, progress) != CopyResult::Failed;
}

/// Before the old container is deleted: on a file system without locks, another program may have saved or
/// changed the password since, or another file may lie there now. Neither is ours to delete.
bool Compactor::isOldInForce(const QString &path) const
{
    ContainerDocument inForce;
    return isOpenAt(vault.container, path) && containers.readDocument(path, &inForce) &&
           indexIdentity(inForce) == oldIdentity && wrapAlike(inForce, oldHeader);
}

} // namespace Tessarin::Core
