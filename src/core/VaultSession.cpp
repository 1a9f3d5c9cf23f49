// The session: its keys, and creating, unlocking, locking, the password, saving the index.
#include "core/VaultManager.h"

#include "core/HostFile.h"
#include "core/KeyRemains.h"
#include "core/Leftovers.h"
#include "core/Secret.h"
#include "core/VaultKeys.h"
#include "core/VaultRecovery.h"

#include <algorithm>
#include <cerrno>

namespace Tessarin::Core {

VaultManager::VaultManager() = default;

VaultManager::~VaultManager() = default;

VaultManager::State VaultManager::state() const
{
    return sessionState;
}

Failure VaultManager::lastFailure() const
{
    return failure;
}

bool VaultManager::fail(Failure reason) const
{
    failure = reason;
    return false;
}

bool VaultManager::succeed() const
{
    failure = Failure::None;
    return true;
}

SecureFileIndex VaultManager::fileIndex() const
{
    return sessionIndex;
}

bool VaultManager::isLongEnough(QByteArrayView newPassword)
{
    const auto isCharacterStart = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; };
    return std::count_if(newPassword.begin(), newPassword.end(), isCharacterStart) >= minimumPasswordLength;
}

bool VaultManager::createVault(const QString &containerPath, const QByteArray &password)
{
    if (!isLongEnough(password))
        return fail(Failure::Refused);
    // Edited copies of the vault that is open go back into it before its key is replaced.
    if (sessionState == Unlocked && !lockVault() && sessionState == Unlocked)
        return false;

    ContainerDocument document;
    renewKeyParameters(document);
    document.crypto.payloadNonce = crypto.generateNonce(CryptoManager::nonceSizeBytes);

    sessionContainerPath = containerPath;
    payloads.clear();
    sessionIndex.clear();
    masterKey = newMasterKey();
    document.crypto.encryptedMasterKey = encryptMasterKey(document, password, masterKey);
    document.encryptedIndex = encryptIndex(document, sessionIndex, masterKey);
    masterKey.clear();
    sessionState = Locked;
    if (document.crypto.encryptedMasterKey.isEmpty() || document.encryptedIndex.isEmpty())
        return fail(Failure::Other);

    errno = 0;
    return containers.writeDocument(containerPath, document) ? succeed() : fail(containerFailure(errno));
}

bool VaultManager::unlockVault(const QString &containerPath, const QByteArray &password)
{
    if (password.isEmpty())
        return fail(Failure::Refused);
    if (sessionState == Unlocked && !lockVault() && sessionState == Unlocked)
        return false;

    OpenedVault opened;
    if (!openVault(containerPath, password, opened))
        return false;

    knownHeaderHash.clear();
    masterKey = std::move(opened.masterKey);
    sessionIndex = opened.index;
    sessionSeal = sealOf(opened.document);
    sessionContainerPath = containerPath;
    payloads.clear();
    sessionState = Unlocked;
    clearLeftoversOfSession();
    return workspace.prepare() ? succeed() : fail(Failure::WorkspaceUnavailable);
}

bool VaultManager::lockVault()
{
    return lockVault({});
}

bool VaultManager::lockVault(const ProgressCallback &progress)
{
    if (sessionState == Unlocked && (!endImportSeries() || !syncModifiedTempFiles(progress)))
        return false;

    openCopies.clear();
    const bool cleaned = workspace.cleanup();
    masterKey.clear();
    wipeUnusedStack();
    payloads.clear();
    sessionState = Locked;
    return cleaned ? succeed() : fail(Failure::WorkspaceUnavailable);
}

bool VaultManager::changePassword(const QString &containerPath, const QByteArray &currentPassword,
                                  const QByteArray &newPassword)
{
    return changePassword(containerPath, currentPassword, newPassword, {});
}

bool VaultManager::changePassword(const QString &containerPath, const QByteArray &currentPassword,
                                  const QByteArray &newPassword, const ProgressCallback &progress)
{
    if (sessionState != Locked || currentPassword.isEmpty() || !isLongEnough(newPassword))
        return fail(Failure::Refused);

    OpenedVault opened;
    // A damaged index does not stand in the way.
    const bool isIndexKnown = openVault(containerPath, currentPassword, opened);
    if (opened.masterKey.isEmpty())
        return false;
    // Read again under the lock: the key that was opened must still be the one that is wrapped there.
    ContainerUpdate update(containerPath);
    ContainerDocument document;
    if (!update.begin())
        return fail(update.failure());
    if (!containers.parseHeader(update.header(), &document) ||
        document.crypto.encryptedMasterKey != opened.document.crypto.encryptedMasterKey ||
        !update.discardRecords([&](const UndoRecord &record) { return record.knows(update.header()); })) {
        return fail(Failure::ChangedByOther);
    }
    // Another program may have added blocks since.
    const bool isIndexCurrent = isIndexKnown && decryptIndex(document, opened.masterKey, &opened.index);
    if (!wipeKeyRemains(update.file(), isIndexCurrent ? &opened.index : nullptr, progress))
        return fail(Failure::DriveGone);

    const QString formerCipher = document.crypto.cipher;
    renewKeyParameters(document);
    // The name of the cipher, which may be any, is part of the index's associated data too.
    if (document.crypto.cipher != formerCipher) {
        if (!isIndexCurrent)
            return fail(Failure::DamagedData);
        document.crypto.payloadNonce = crypto.generateNonce(CryptoManager::nonceSizeBytes);
        document.encryptedIndex = encryptIndex(document, opened.index, opened.masterKey);
    }
    document.crypto.encryptedMasterKey = encryptMasterKey(document, newPassword, opened.masterKey);
    if (document.crypto.encryptedMasterKey.isEmpty())
        return fail(Failure::Other);
    if (update.writeHeader(containers.buildHeader(document), ContainerUpdate::Care::ForgetsFormer) !=
        ContainerUpdate::Outcome::Done) {
        return fail(update.failure());
    }
    // What a compaction has left still opens with the former password.
    leftovers = decryptIndex(document, opened.masterKey, &opened.index)
                    ? clearLeftovers({update.file(), opened.masterKey, opened.index}, mostBytesReadUnseen, {})
                    : leftoversBeside(containerPath);
    return succeed();
}

bool VaultManager::saveIndex(const SecureFileIndex &index)
{
    return storeIndex(index, ContainerUpdate::Care::Usual);
}

bool VaultManager::storeIndex(const SecureFileIndex &index, ContainerUpdate::Care care)
{
    if (sessionState != Unlocked || sessionContainerPath.isEmpty())
        return fail(Failure::Refused);

    ContainerUpdate update(sessionContainerPath);
    ContainerDocument document;
    if (!beginChange(update, document) ||
        writeIndex(update, document, index, care) != ContainerUpdate::Outcome::Done) {
        return false;
    }
    sessionIndex = index;
    return succeed();
}

/// Spares parsing a header that this session wrote itself. False when another one is in force.
bool VaultManager::recallHeader(ContainerUpdate &update, ContainerDocument &document) const
{
    if (knownHeaderHash.isEmpty() || update.headerHash() != knownHeaderHash)
        return false;
    document = knownDocument;
    return true;
}

/// Locks the container and reads its header. False when its index is not the one that this session knows:
/// another program has saved, or another file lies there, and what it holds must not be lost. Also false
/// during a series, which holds the lock itself.
bool VaultManager::beginChange(ContainerUpdate &update, ContainerDocument &document) const
{
    if (importSeries)
        return fail(Failure::Refused);
    if (!update.begin())
        return fail(update.failure());
    failure = Failure::ChangedByOther;
    if (recallHeader(update, document))
        return update.discardRecords([](const UndoRecord &) { return true; });
    const QByteArray header = update.header();
    const bool isHeader = containers.parseHeader(header, &document);
    if (header.isNull())
        return false;
    const auto isIndexWhole = [&] {
        SecureFileIndex index;
        return decryptIndex(document, masterKey, &index);
    };
    // The seal is the nonce and the tag, which are the ends of a header whose middle may be torn.
    if (isHeader && sealOf(document) == sessionSeal && (!update.brokenOffChange() || isIndexWhole())) {
        // A wrapping of the key that no record knows may be a torn one: opening the vault decides.
        return update.discardRecords([&](const UndoRecord &record) {
            ContainerDocument former;
            return record.knows(header) ||
                   (containers.parseHeader(record.formerHeader, &former) && wrapAlike(former, document));
        });
    }

    // A save of this session may have broken off half way; another's that came to its end stays.
    const bool isOwn = isHeader && ownSeals.contains(sealOf(document));
    const std::optional<UndoRecord> record = update.brokenOffChange();
    return record && (isOwn || !isWholeHeader(update.file(), header, masterKey, *record)) &&
           containers.parseHeader(record->formerHeader, &document) && sealOf(document) == sessionSeal &&
           update.restore(*record) && update.discardRecords([](const UndoRecord &) { return true; });
}

/// Seals the index under a nonce of its own and puts the header in force.
ContainerUpdate::Outcome VaultManager::writeIndex(ContainerUpdate &update, ContainerDocument &document,
                                                  const SecureFileIndex &index, ContainerUpdate::Care care)
{
    document.encryptedPayload.clear();
    document.crypto.authTag.clear();
    document.crypto.payloadNonce = crypto.generateNonce(static_cast<int>(document.crypto.nonce.size()));
    document.encryptedIndex = encryptIndex(document, index, masterKey);
    failure = Failure::Other;
    if (document.encryptedIndex.isEmpty())
        return ContainerUpdate::Outcome::Undone;

    const QByteArray header = containers.buildHeader(document);
    ownSeals.insert(sealOf(document));
    const ContainerUpdate::Outcome outcome =
        update.isInSeries() ? update.writeHeaderInSeries(header) : update.writeHeader(header, care);
    knownHeaderHash.clear();
    failure = update.failure();
    if (outcome != ContainerUpdate::Outcome::Done)
        return outcome;
    sessionSeal = sealOf(document);
    knownHeaderHash = update.headerHash();
    knownDocument = document;
    knownDocument.encryptedIndex.clear();
    return outcome;
}

} // namespace Tessarin::Core
