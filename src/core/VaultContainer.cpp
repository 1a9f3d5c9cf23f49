// The session's side of a change.
#include "core/VaultContainer.h"

#include "core/CryptoManager.h"
#include "core/Recovery.h"
#include "core/VaultKeys.h"

#include <QFile>

#include <optional>
#include <utility>

namespace Tessarin::Core {

void VaultContainer::adopt(const QString &newPath, OpenedVault vault)
{
    containerPath = newPath;
    key = std::move(vault.masterKey);
    replace(vault.document, vault.index);
    knownHeaderHash = vault.headerHash;
}

void VaultContainer::replace(const ContainerDocument &newDocument, const SecureFileIndex &newIndex)
{
    indexInForce = newIndex;
    identity = indexIdentity(newDocument);
    know(newDocument, {});
}

void VaultContainer::close()
{
    key.clear();
}

const QString &VaultContainer::path() const
{
    return containerPath;
}

const SecretBytes &VaultContainer::masterKey() const
{
    return key;
}

const SecureFileIndex &VaultContainer::index() const
{
    return indexInForce;
}

const QByteArray &VaultContainer::identityOfIndex() const
{
    return identity;
}

const ContainerDocument &VaultContainer::document() const
{
    return header;
}

Failure VaultContainer::begin(ContainerTransaction &transaction)
{
    if (!transaction.begin())
        return transaction.failure();
    if (recallHeader(transaction) || parseHeader(transaction) || rollBackOwnChange(transaction))
        return Failure::None;
    return transaction.failure() == Failure::None ? Failure::ChangedByOther : transaction.failure();
}

/// Spares parsing a header that this session knows.
bool VaultContainer::recallHeader(ContainerTransaction &transaction) const
{
    return !knownHeaderHash.isEmpty() && transaction.headerHash() == knownHeaderHash &&
           transaction.settleAll();
}

bool VaultContainer::parseHeader(ContainerTransaction &transaction)
{
    const ContainerManager containers;
    ContainerDocument present;
    if (!containers.parseHeader(transaction.header(), &present) || indexIdentity(present) != identity)
        return false;
    // Nonce and tag are the ends of a header whose middle may be torn.
    SecureFileIndex index;
    if (transaction.record() && !decryptIndex(present, key, &index))
        return false;
    const QByteArray headerText = transaction.header().toByteArray();
    // A wrapping of the key that no record knows may be a torn one: opening the vault decides.
    const bool isSettled = transaction.settleAll([&](const UndoRecord &record) {
        ContainerDocument former;
        return record.knows(headerText) ||
               (containers.parseHeader(record.formerHeader, &former) && wrapAlike(former, present));
    });
    if (isSettled)
        know(present, transaction.headerHash());
    return isSettled;
}

/// A change of this session may have broken off half way; another's that came to its end stays.
bool VaultContainer::rollBackOwnChange(ContainerTransaction &transaction)
{
    const ContainerManager containers;
    const std::optional<UndoRecord> record = transaction.record();
    ContainerDocument former;
    if (!record || !containers.parseHeader(record->formerHeader, &former) ||
        indexIdentity(former) != identity) {
        return false;
    }
    ContainerDocument present;
    const bool isOwn = containers.parseHeader(transaction.header(), &present) &&
                       triedIdentities.contains(indexIdentity(present));
    if (!isOwn && isWholeHeader(transaction.file(), transaction.header(), key, *record))
        return false;
    if (!transaction.settle(*record, record->formerHeader) || !transaction.settleAll())
        return false;
    know(former, transaction.headerHash());
    return true;
}

ContainerTransaction::Outcome VaultContainer::commitIndex(ContainerTransaction &transaction,
                                                          const SecureFileIndex &newIndex,
                                                          ContainerTransaction::Policy policy)
{
    ContainerDocument next = header;
    next.encryptedPayload.clear();
    next.crypto.authTag.clear();
    next.crypto.payloadNonce = CryptoManager().generateNonce(static_cast<int>(next.crypto.nonce.size()));
    next.encryptedIndex = encryptIndex(next, newIndex, key);
    if (next.encryptedIndex.isEmpty())
        return ContainerTransaction::Outcome::RolledBack;

    triedIdentities.insert(indexIdentity(next));
    const ContainerTransaction::Outcome outcome =
        transaction.commit(ContainerManager().buildHeader(next), policy);
    if (outcome == ContainerTransaction::Outcome::Committed) {
        indexInForce = newIndex;
        identity = indexIdentity(next);
        know(next, transaction.headerHash());
    }
    return outcome;
}

bool VaultContainer::reload()
{
    ContainerDocument present;
    if (!ContainerManager().readDocument(containerPath, &present) || indexIdentity(present) != identity)
        return false;
    know(present, {});
    return true;
}

/// Without its sealed index, which may be large, and is sealed anew for every change.
void VaultContainer::know(const ContainerDocument &knownDocument, const QByteArray &headerHash)
{
    header = knownDocument;
    header.encryptedIndex.clear();
    knownHeaderHash = headerHash;
}

} // namespace Tessarin::Core
