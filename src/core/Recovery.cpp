// Opening a vault, and the decision between two headers.
#include "core/Recovery.h"

#include "core/BlockStore.h"
#include "core/ContainerTransaction.h"
#include "core/HeaderArea.h"
#include "core/HostFile.h"
#include "core/Sha256.h"
#include "core/VaultKeys.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

namespace Tessarin::Core {

namespace {

using BlockKey = std::pair<qint64, QByteArray>;

QSet<BlockKey> blockKeys(const SecureFileIndex &index)
{
    QSet<BlockKey> keys;
    for (const VaultFileEntry &file : index.entries()) {
        for (const VaultFileBlock &block : file.blocks)
            keys.insert({block.offset, block.nonce});
    }
    return keys;
}

/// True when every block that the record's index does not list can be read and decrypted.
bool newBlocksOpen(QIODevice &container, const SecureFileIndex &index, const SecretBytes &key,
                   const UndoRecord &record)
{
    ContainerDocument formerDocument;
    SecureFileIndex formerIndex;
    if (ContainerManager().parseHeader(record.formerHeader, &formerDocument))
        static_cast<void>(decryptIndex(formerDocument, key, &formerIndex));
    QSet<BlockKey> knownBlocks = blockKeys(formerIndex);

    BlockStore blocks(container, key);
    const auto opens = [&](const VaultFileBlock &block) {
        const BlockKey blockKey(block.offset, block.nonce);
        if (!knownBlocks.contains(blockKey) && blocks.read(block).isEmpty())
            return false;
        knownBlocks.insert(blockKey); // A hostile index may list one block any number of times.
        return true;
    };
    const QList<VaultFileEntry> &files = index.entries();
    return std::all_of(files.cbegin(), files.cend(), [&](const VaultFileEntry &file) {
        return std::all_of(file.blocks.cbegin(), file.blocks.cend(), opens);
    });
}

/// The key is set when it opens, even if the index does not.
bool openHeader(QByteArrayView header, const QByteArray &password, OpenedVault &opened)
{
    if (!ContainerManager().parseHeader(header, &opened.document))
        return false;
    opened.headerHash = Sha256::of(header);
    opened.masterKey = decryptMasterKey(opened.document, password);
    return !opened.masterKey.isEmpty() && decryptIndex(opened.document, opened.masterKey, &opened.index);
}

/// The header counts if the record knows it, or if it opens with all that it lists beyond the record ("no
/// later save is undone"); otherwise the record's header counts. The one that counts; empty when none does.
QByteArray headerThatCounts(QIODevice &container, QByteArrayView header, const UndoRecord &record,
                            const QByteArray &password, OpenedVault &opened)
{
    const bool isKnown = record.knows(header);
    if (openHeader(header, password, opened) &&
        (isKnown || newBlocksOpen(container, opened.index, opened.masterKey, record))) {
        return header.toByteArray();
    }
    if (isKnown || !openHeader(record.formerHeader, password, opened))
        return {};
    // A header that is whole but for the password was saved under another one since.
    return isWholeHeader(container, header, opened.masterKey, record) ? QByteArray() : record.formerHeader;
}

/// A header up to this size, changed from one that was no larger, has its record in the tail.
constexpr qint64 mostBesideItsRecord = ContainerFormat::headerAreaSize / 2 - 2 * HeaderArea::pageSize;

/// Where a change broke off.
bool recover(QFile &container, const QString &path, const QByteArray &password, OpenedVault &opened)
{
    // Looked for once more under the lock: the program that wrote the record may have been at work still.
    ContainerTransaction repair(path);
    const bool isWritable = repair.begin() && repair.hasLock();
    const std::optional<UndoRecord> record = findUndoRecord(container);
    const std::optional<HeaderArea> area = HeaderArea::read(container);
    if (!area || !record)
        return area && openHeader(area->header(), password, opened);

    const QByteArray header = headerThatCounts(container, area->header(), *record, password, opened);
    if (header.isEmpty()) {
        opened.masterKey.clear();
        return false;
    }
    // When this fails, as on a drive that became read-only, the next change tries again.
    if (isWritable && repair.settle(*record, header))
        static_cast<void>(repair.settleAll());
    return true;
}

/// A record behind the blocks has nothing to undo where the header opens, but what its change added may not
/// be certain, nor a former key gone. Beside a smaller header it belongs to a change that took something
/// away, and waits for the next one.
bool openArea(const HeaderArea &area, QFile &container, const QString &path, const QByteArray &password,
              OpenedVault &opened)
{
    // A container with another length line has no records.
    if (!area.hasUsualLayout())
        return openHeader(area.header(), password, opened);
    const bool isLarge = area.header().size() > mostBesideItsRecord;
    if (isLarge ? findUndoRecord(container) : findUndoRecordInTail(container))
        return recover(container, path, password, opened);
    return openHeader(area.header(), password, opened) ||
           (findUndoRecord(container) && recover(container, path, password, opened));
}

} // namespace

Failure openVault(const QString &path, const QByteArray &password, OpenedVault &opened)
{
    // Opening a named pipe would wait for ever.
    QFile container(path);
    if (!QFileInfo(path).isFile())
        return Failure::DriveGone;
    errno = 0;
    if (!container.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return containerFailure(errno);
    readSparingly(container);
    errno = 0;
    const std::optional<HeaderArea> area = HeaderArea::read(container);
    const Failure reason = errno == EIO ? Failure::DriveGone : Failure::WrongPasswordOrDamaged;
    if (!area)
        return reason;
    return openArea(*area, container, path, password, opened) ? Failure::None : reason;
}

bool isWholeHeader(QIODevice &container, QByteArrayView header, const SecretBytes &masterKey,
                   const UndoRecord &record)
{
    ContainerDocument document;
    SecureFileIndex index;
    return ContainerManager().parseHeader(header, &document) && decryptIndex(document, masterKey, &index) &&
           newBlocksOpen(container, index, masterKey, record);
}

} // namespace Tessarin::Core
