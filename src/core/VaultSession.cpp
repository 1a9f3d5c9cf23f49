// The session: its keys, and creating, unlocking, locking, the password, saving the index.
#include "core/VaultManager.h"

#include "core/HostFile.h"
#include "core/KeyRemains.h"
#include "core/LeftoverNames.h"
#include "core/Leftovers.h"
#include "core/Recovery.h"
#include "core/Secret.h"
#include "core/VaultKeys.h"

#include <algorithm>
#include <cerrno>

namespace Tessarin::Core {

namespace {

/// False when it stays open, since something that belongs into it cannot go there.
bool leaveOpenVault(VaultManager &session)
{
    if (session.state() == VaultManager::Unlocked)
        static_cast<void>(session.lockVault());
    return session.state() == VaultManager::Locked;
}

} // namespace

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
    failure = reason == Failure::None ? Failure::Other : reason;
    return false;
}

bool VaultManager::succeed() const
{
    failure = Failure::None;
    return true;
}

SecureFileIndex VaultManager::fileIndex() const
{
    return currentIndex();
}

/// Of a group, with what is still to be committed.
const SecureFileIndex &VaultManager::currentIndex() const
{
    return importGroup ? importGroup->index() : container.index();
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
    if (!leaveOpenVault(*this))
        return false;

    payloads.clear();
    container = VaultContainer();
    ContainerDocument document;
    renewKeyParameters(document);
    document.crypto.payloadNonce = crypto.generateNonce(CryptoManager::nonceSizeBytes);
    const SecretBytes masterKey = newMasterKey();
    document.crypto.encryptedMasterKey = encryptMasterKey(document, password, masterKey);
    document.encryptedIndex = encryptIndex(document, {}, masterKey);
    if (document.crypto.encryptedMasterKey.isEmpty() || document.encryptedIndex.isEmpty())
        return fail(Failure::Other);

    errno = 0;
    return containers.writeDocument(containerPath, document) ? succeed() : fail(containerFailure(errno));
}

bool VaultManager::unlockVault(const QString &containerPath, const QByteArray &password)
{
    if (password.isEmpty())
        return fail(Failure::Refused);
    if (!leaveOpenVault(*this))
        return false;

    OpenedVault opened;
    if (const Failure reason = openVault(containerPath, password, opened); reason != Failure::None)
        return fail(reason);

    container.adopt(containerPath, std::move(opened));
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
    container.close();
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
    const Failure reason = openVault(containerPath, currentPassword, opened);
    if (opened.masterKey.isEmpty())
        return fail(reason);
    // Read again under the lock: the key that was opened must still be the one that is wrapped there.
    ContainerTransaction change(containerPath);
    ContainerDocument document;
    if (!change.begin())
        return fail(change.failure());
    const QByteArray header = change.header().toByteArray();
    const bool isAsOpened = change.headerHash() == opened.headerHash;
    if (!containers.parseHeader(header, &document) ||
        document.crypto.encryptedMasterKey != opened.document.crypto.encryptedMasterKey ||
        !change.settleAll([&](const UndoRecord &record) { return isAsOpened || record.knows(header); })) {
        return fail(change.failure() == Failure::None ? Failure::ChangedByOther : change.failure());
    }
    // Another program may have added blocks since.
    const bool isIndexCurrent = decryptIndex(document, opened.masterKey, &opened.index);
    if (!wipeKeyRemains(change.file(), isIndexCurrent ? &opened.index : nullptr, progress))
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
    if (change.commit(containers.buildHeader(document), ContainerTransaction::Policy::ForgetsFormerKey) !=
        ContainerTransaction::Outcome::Committed) {
        return fail(change.failure());
    }
    // What a compaction has left still opens with the former password.
    leftovers = decryptIndex(document, opened.masterKey, &opened.index)
                    ? clearLeftovers({change.file(), opened.masterKey, opened.index}, mostBytesReadUnseen, {})
                    : leftoversBeside(containerPath);
    return succeed();
}

bool VaultManager::saveIndex(const SecureFileIndex &index)
{
    return storeIndex(index, ContainerTransaction::Policy::Usual);
}

bool VaultManager::storeIndex(const SecureFileIndex &index, ContainerTransaction::Policy policy)
{
    if (sessionState != Unlocked || importGroup)
        return fail(Failure::Refused);

    ContainerTransaction change(container.path());
    if (const Failure reason = container.begin(change); reason != Failure::None)
        return fail(reason);
    const bool isCommitted =
        container.commitIndex(change, index, policy) == ContainerTransaction::Outcome::Committed;
    return isCommitted ? succeed() : fail(change.failure());
}

} // namespace Tessarin::Core
