// Opening a vault, and deciding what counts when a change of it broke off. Rule names are those of
// docs/architecture.md.
#include "core/VaultRecovery.h"

#include "core/BlockStore.h"
#include "core/HostFile.h"
#include "core/VaultKeys.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cerrno>
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

} // namespace

bool VaultManager::openVault(const QString &path, const QByteArray &password, OpenedVault &opened) const
{
    // Opening a named pipe would wait for ever.
    QFile container(path);
    if (!QFileInfo(path).isFile())
        return fail(Failure::DriveGone);
    errno = 0;
    if (!container.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return fail(containerFailure(errno));
    failure = Failure::WrongPasswordOrDamaged;
    if (!findUndoRecord(container)) {
        return containers.readDocument(path, &opened.document) && openDocument(password, opened);
    }

    // Looked for once more under the lock: the program that wrote the record may have been at work still.
    ContainerUpdate update(path);
    const bool isWritable = update.begin();
    const std::optional<UndoRecord> record = findUndoRecord(container);
    if (!record)
        return containers.readDocument(path, &opened.document) && openDocument(password, opened);
    if (openWithRecord(container, *record, password, opened, isWritable ? &update : nullptr))
        return true;
    opened.masterKey.clear();
    return false;
}

/// Where a change broke off, the header counts if the record knows it, or if it opens with all that it lists
/// beyond the record ("no later save is undone"); otherwise the record's header counts. Without `update`
/// nothing is written, and the vault opens from memory.
bool VaultManager::openWithRecord(QFile &container, const UndoRecord &record, const QByteArray &password,
                                  OpenedVault &opened, ContainerUpdate *update) const
{
    const QByteArray header = ContainerUpdate::headerOf(container);
    if (header.isNull())
        return false;
    const bool isKnown = record.knows(header);
    if (openHeader(header, password, opened) &&
        (isKnown || newBlocksOpen(container, opened.index, opened.masterKey, record))) {
        if (update != nullptr)
            static_cast<void>(update->discardRecords([](const UndoRecord &) { return true; }));
        return true;
    }
    if (isKnown || !openHeader(record.formerHeader, password, opened))
        return false;
    // A header that is whole but for the password was saved under another one since.
    if (isWholeHeader(container, header, opened.masterKey, record))
        return false;
    // When this fails, as on a drive that became read-only, the next change tries again.
    if (update != nullptr)
        static_cast<void>(update->restore(record));
    return true;
}

bool VaultManager::openHeader(const QByteArray &header, const QByteArray &password, OpenedVault &opened) const
{
    return containers.parseHeader(header, &opened.document) && openDocument(password, opened);
}

/// Opens the key and the index of `opened.document`.
bool VaultManager::openDocument(const QByteArray &password, OpenedVault &opened) const
{
    opened.masterKey = decryptMasterKey(opened.document, password);
    return !opened.masterKey.isEmpty() && decryptIndex(opened.document, opened.masterKey, &opened.index);
}

bool VaultManager::isWholeHeader(QFile &container, const QByteArray &header, const SecretBytes &key,
                                 const UndoRecord &record) const
{
    ContainerDocument document;
    SecureFileIndex index;
    return containers.parseHeader(header, &document) && decryptIndex(document, key, &index) &&
           newBlocksOpen(container, index, key, record);
}

/// True when every block that the record's index does not list can be read and decrypted.
bool VaultManager::newBlocksOpen(QFile &container, const SecureFileIndex &index, const SecretBytes &key,
                                 const UndoRecord &record) const
{
    ContainerDocument formerDocument;
    SecureFileIndex formerIndex;
    if (containers.parseHeader(record.formerHeader, &formerDocument))
        static_cast<void>(decryptIndex(formerDocument, key, &formerIndex));
    const QSet<BlockKey> formerBlocks = blockKeys(formerIndex);

    BlockStore blocks(container, key);
    const auto opens = [&](const VaultFileBlock &block) {
        return formerBlocks.contains({block.offset, block.nonce}) || !blocks.read(block).isEmpty();
    };
    const QList<VaultFileEntry> &files = index.entries();
    return std::all_of(files.cbegin(), files.cend(), [&](const VaultFileEntry &file) {
        return std::all_of(file.blocks.cbegin(), file.blocks.cend(), opens);
    });
}

} // namespace Tessarin::Core
