// The session: its keys, and creating, unlocking, locking, the password, saving the index.
#include "core/VaultManager.h"

#include "core/KeyRemains.h"
#include "core/Secret.h"
#include "core/VaultRecovery.h"

#include <QScopeGuard>

#include <algorithm>

namespace Tessarin::Core {

namespace {

constexpr qint32 masterKeySizeBytes = 64;
constexpr qint32 passwordKeySizeBytes = 64;

/// A forged header could ask the fallback derivation for hours of work; this many take some ten seconds.
constexpr qint32 mostKdfIterations = 2'000'000;

/// True when two headers hold the same wrapping of the key, with all that opening it takes.
bool wrapsAlike(const ContainerDocument &first, const ContainerDocument &second)
{
    const ContainerCryptoMetadata &a = first.crypto;
    const ContainerCryptoMetadata &b = second.crypto;
    return a.kdf == b.kdf && a.cipher == b.cipher && a.kdfIterations == b.kdfIterations && a.salt == b.salt &&
           a.nonce == b.nonce && a.encryptedMasterKey == b.encryptedMasterKey;
}

} // namespace

VaultManager::VaultManager() = default;

VaultManager::~VaultManager() = default;

VaultManager::State VaultManager::state() const
{
    return sessionState;
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
        return false;
    // Edited copies of the vault that is open go back into it before its key is replaced.
    if (sessionState == Unlocked && !lockVault() && sessionState == Unlocked)
        return false;

    ContainerDocument document;
    sealWithNewKey(document);
    document.crypto.payloadNonce = crypto.generateNonce(CryptoManager::nonceSizeBytes);

    sessionContainerPath = containerPath;
    payloads.clear();
    sessionIndex.clear();
    masterKey = SecretBytes(crypto.generateSalt(masterKeySizeBytes));
    document.crypto.encryptedMasterKey = encryptMasterKey(document, password, masterKey);
    document.encryptedIndex = encryptIndex(document, sessionIndex);
    masterKey.clear();
    sessionState = Locked;
    if (document.crypto.encryptedMasterKey.isEmpty() || document.encryptedIndex.isEmpty())
        return false;

    return containers.writeDocument(containerPath, document);
}

bool VaultManager::unlockVault(const QString &containerPath, const QByteArray &password)
{
    if (password.isEmpty())
        return false;
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
    return workspace.prepare();
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
    return cleaned;
}

bool VaultManager::changePassword(const QString &containerPath, const QByteArray &currentPassword,
                                  const QByteArray &newPassword)
{
    if (sessionState != Locked || currentPassword.isEmpty() || !isLongEnough(newPassword))
        return false;

    OpenedVault opened;
    // A damaged index does not stand in the way.
    const bool isIndexKnown = openVault(containerPath, currentPassword, opened);
    if (opened.masterKey.isEmpty())
        return false;
    // Read again under the lock: the key that was opened must still be the one that is wrapped there.
    ContainerUpdate update(containerPath);
    ContainerDocument document;
    if (!update.begin() || !containers.parseHeader(update.header(), &document) ||
        document.crypto.encryptedMasterKey != opened.document.crypto.encryptedMasterKey ||
        !update.discardRecords([&](const UndoRecord &record) { return record.knows(update.header()); })) {
        return false;
    }
    // Another program may have added blocks since.
    const bool isIndexCurrent = isIndexKnown && decryptIndex(document, opened.masterKey, &opened.index);
    if (!wipeKeyRemains(update.file(), isIndexCurrent ? &opened.index : nullptr))
        return false;

    sealWithNewKey(document);
    document.crypto.encryptedMasterKey = encryptMasterKey(document, newPassword, opened.masterKey);
    if (document.crypto.encryptedMasterKey.isEmpty() ||
        update.writeHeader(containers.buildHeader(document), ContainerUpdate::Care::ForgetsFormer) !=
            ContainerUpdate::Outcome::Done) {
        return false;
    }
    // What a compaction has left still opens with the former password.
    leftovers = compactionTwins(containerPath);
    if (decryptIndex(document, opened.masterKey, &opened.index))
        clearLeftovers({update.file(), opened.masterKey, opened.index}, {});
    return true;
}

bool VaultManager::saveIndex(const SecureFileIndex &index)
{
    return storeIndex(index, ContainerUpdate::Care::Usual);
}

bool VaultManager::storeIndex(const SecureFileIndex &index, ContainerUpdate::Care care)
{
    if (sessionState != Unlocked || sessionContainerPath.isEmpty())
        return false;

    ContainerUpdate update(sessionContainerPath);
    ContainerDocument document;
    if (!beginChange(update, document) ||
        writeIndex(update, document, index, care) != ContainerUpdate::Outcome::Done) {
        return false;
    }
    sessionIndex = index;
    return true;
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
    if (importSeries || !update.begin())
        return false;
    if (recallHeader(update, document))
        return update.discardRecords([](const UndoRecord &) { return true; });
    const QByteArray header = update.header();
    const bool isHeader = containers.parseHeader(header, &document);
    if (header.isNull())
        return false;
    const auto isIndexWhole = [&] {
        SecureFileIndex index;
        return decryptIndex(document, &index);
    };
    // The seal is the nonce and the tag, which are the ends of a header whose middle may be torn.
    if (isHeader && sealOf(document) == sessionSeal && (!update.brokenOffChange() || isIndexWhole())) {
        // A wrapping of the key that no record knows may be a torn one: opening the vault decides.
        return update.discardRecords([&](const UndoRecord &record) {
            ContainerDocument former;
            return record.knows(header) ||
                   (containers.parseHeader(record.formerHeader, &former) && wrapsAlike(former, document));
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
    document.encryptedIndex = encryptIndex(document, index);
    if (document.encryptedIndex.isEmpty())
        return ContainerUpdate::Outcome::Undone;

    const QByteArray header = containers.buildHeader(document);
    ownSeals.insert(sealOf(document));
    const ContainerUpdate::Outcome outcome =
        update.isInSeries() ? update.writeHeaderInSeries(header) : update.writeHeader(header, care);
    knownHeaderHash.clear();
    if (outcome != ContainerUpdate::Outcome::Done)
        return outcome;
    sessionSeal = sealOf(document);
    knownHeaderHash = update.headerHash();
    knownDocument = document;
    knownDocument.encryptedIndex.clear();
    return outcome;
}

/// Sets what a fresh wrapping of the master key needs, but for the wrapped key itself.
void VaultManager::sealWithNewKey(ContainerDocument &document) const
{
    document.crypto.kdf = QLatin1String(ContainerFormat::kdfName);
    document.crypto.cipher = QLatin1String(ContainerFormat::cipherName);
    document.crypto.kdfIterations = 0;
    document.crypto.nonce = crypto.generateNonce(CryptoManager::nonceSizeBytes);
    document.crypto.salt = crypto.generateSalt(CryptoManager::saltSizeBytes);
}

/// Binds a ciphertext to its role and to the header's parameters.
QByteArray VaultManager::associatedData(const ContainerDocument &document, const QByteArray &purpose) const
{
    const ContainerCryptoMetadata &metadata = document.crypto;
    QByteArrayList parts{ContainerFormat::headerMagic, purpose, QByteArray::number(document.formatVersion)};
    if (purpose == "master-key") {
        parts << metadata.cipher.toUtf8() << metadata.kdf.toUtf8()
              << QByteArray::number(metadata.kdfIterations) << metadata.salt << metadata.nonce;
    } else if (purpose != "file-block") {
        parts << metadata.cipher.toUtf8() << metadata.payloadNonce;
    }
    return parts.join('|');
}

SecretBytes VaultManager::deriveSessionKey(const QByteArray &password,
                                           const ContainerCryptoMetadata &metadata) const
{
    if (metadata.kdf != QLatin1String(ContainerFormat::kdfName) && metadata.kdfIterations > mostKdfIterations)
        return {};

    return SecretBytes(crypto.deriveKey(
        password, {metadata.kdf, metadata.salt, metadata.kdfIterations, passwordKeySizeBytes}));
}

QByteArray VaultManager::encryptMasterKey(const ContainerDocument &document, const QByteArray &password,
                                          const SecretBytes &key) const
{
    const auto wipeStack = qScopeGuard(wipeUnusedStack);
    const SecretBytes passwordKey = deriveSessionKey(password, document.crypto);
    if (passwordKey.isEmpty() || key.isEmpty())
        return {};

    return crypto.encrypt(key.view(), cipherKey(passwordKey), document.crypto.nonce,
                          associatedData(document, "master-key"));
}

SecretBytes VaultManager::decryptMasterKey(const ContainerDocument &document,
                                           const QByteArray &password) const
{
    if (document.crypto.encryptedMasterKey.isEmpty())
        return {};
    const auto wipeStack = qScopeGuard(wipeUnusedStack);
    const SecretBytes passwordKey = deriveSessionKey(password, document.crypto);
    if (passwordKey.isEmpty())
        return {};

    return SecretBytes(crypto.decrypt(document.crypto.encryptedMasterKey, cipherKey(passwordKey),
                                      document.crypto.nonce, associatedData(document, "master-key")));
}

QByteArray VaultManager::encryptIndex(const ContainerDocument &document, const SecureFileIndex &index) const
{
    return crypto.encrypt(index.toJson(), dataKey(), document.crypto.payloadNonce,
                          associatedData(document, "index"));
}

bool VaultManager::decryptIndex(const ContainerDocument &document, SecureFileIndex *index) const
{
    return decryptIndex(document, masterKey, index);
}

bool VaultManager::decryptIndex(const ContainerDocument &document, const SecretBytes &key,
                                SecureFileIndex *index) const
{
    if (index == nullptr || document.encryptedIndex.isEmpty())
        return false;

    const QByteArray json = crypto.decrypt(document.encryptedIndex, cipherKey(key),
                                           document.crypto.payloadNonce, associatedData(document, "index"));
    SecureFileIndex fresh;
    if (json.isEmpty() || !fresh.fromJson(json))
        return false;

    *index = fresh;
    return true;
}

QByteArray VaultManager::dataKey() const
{
    return cipherKey(masterKey);
}

} // namespace Tessarin::Core
