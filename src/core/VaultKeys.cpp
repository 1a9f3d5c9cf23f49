// Wrapping and sealing, as docs/container-format.md has it.
#include "core/VaultKeys.h"

#include "core/CryptoManager.h"

#include <QScopeGuard>

namespace Tessarin::Core {

namespace {

constexpr qint32 masterKeySizeBytes = 64;
constexpr qint32 passwordKeySizeBytes = 64;

/// A forged header could ask the fallback derivation for hours of work; this many take some ten seconds.
constexpr qint32 mostKdfIterations = 2'000'000;

SecretBytes derivePasswordKey(const QByteArray &password, const ContainerCryptoMetadata &metadata)
{
    if (keyDerivationNamed(metadata.kdf) == KeyDerivation::Pbkdf2HmacSha256 &&
        metadata.kdfIterations > mostKdfIterations) {
        return {};
    }
    return SecretBytes(CryptoManager().deriveKey(
        password, {metadata.kdf, metadata.salt, metadata.kdfIterations, passwordKeySizeBytes}));
}

/// The cipher takes the first bytes of a key; the others are kept for later use.
QByteArray cipherKey(const SecretBytes &key)
{
    return key.view(CryptoManager::keySizeBytes);
}

} // namespace

QByteArray associatedData(const ContainerDocument &document, Purpose purpose)
{
    const ContainerCryptoMetadata &metadata = document.crypto;
    const QLatin1StringView name = nameOf(purpose);
    QByteArrayList parts{ContainerFormat::headerMagic, QByteArray(name.data(), name.size()),
                         QByteArray::number(document.formatVersion)};
    if (purpose == Purpose::MasterKey) {
        parts << metadata.cipher.toUtf8() << metadata.kdf.toUtf8()
              << QByteArray::number(metadata.kdfIterations) << metadata.salt << metadata.nonce;
    } else if (purpose == Purpose::Index) {
        parts << metadata.cipher.toUtf8() << metadata.payloadNonce;
    }
    return parts.join('|');
}

SecretBytes newMasterKey()
{
    return SecretBytes(CryptoManager().generateSalt(masterKeySizeBytes));
}

QByteArray dataKey(const SecretBytes &masterKey)
{
    return cipherKey(masterKey);
}

void renewKeyParameters(ContainerDocument &document)
{
    const CryptoManager crypto;
    document.crypto.kdf = nameOf(KeyDerivation::Argon2id);
    document.crypto.cipher = nameOf(Cipher::XChaCha20Poly1305);
    document.crypto.kdfIterations = 0;
    document.crypto.nonce = crypto.generateNonce(CryptoManager::nonceSizeBytes);
    document.crypto.salt = crypto.generateSalt(CryptoManager::saltSizeBytes);
}

QByteArray encryptMasterKey(const ContainerDocument &document, const QByteArray &password,
                            const SecretBytes &masterKey)
{
    const auto wipeStack = qScopeGuard(wipeUnusedStack);
    const SecretBytes passwordKey = derivePasswordKey(password, document.crypto);
    if (passwordKey.isEmpty() || masterKey.isEmpty())
        return {};

    return CryptoManager().encrypt(masterKey.view(), cipherKey(passwordKey), document.crypto.nonce,
                                   associatedData(document, Purpose::MasterKey));
}

SecretBytes decryptMasterKey(const ContainerDocument &document, const QByteArray &password)
{
    if (document.crypto.encryptedMasterKey.isEmpty())
        return {};
    const auto wipeStack = qScopeGuard(wipeUnusedStack);
    const SecretBytes passwordKey = derivePasswordKey(password, document.crypto);
    if (passwordKey.isEmpty())
        return {};

    return SecretBytes(CryptoManager().decrypt(document.crypto.encryptedMasterKey, cipherKey(passwordKey),
                                               document.crypto.nonce,
                                               associatedData(document, Purpose::MasterKey)));
}

bool wrapAlike(const ContainerDocument &first, const ContainerDocument &second)
{
    ContainerCryptoMetadata other = second.crypto;
    other.payloadNonce = first.crypto.payloadNonce;
    return first.crypto == other;
}

QByteArray encryptIndex(const ContainerDocument &document, const SecureFileIndex &index,
                        const SecretBytes &masterKey)
{
    return CryptoManager().encrypt(index.toJson(), dataKey(masterKey), document.crypto.payloadNonce,
                                   associatedData(document, Purpose::Index));
}

bool decryptIndex(const ContainerDocument &document, const SecretBytes &masterKey, SecureFileIndex *index)
{
    const QByteArray json =
        CryptoManager().decrypt(document.encryptedIndex, dataKey(masterKey), document.crypto.payloadNonce,
                                associatedData(document, Purpose::Index));
    SecureFileIndex fresh;
    if (!fresh.fromJson(json))
        return false;

    *index = fresh;
    return true;
}

QByteArray indexIdentity(const ContainerDocument &document)
{
    return document.crypto.payloadNonce + document.encryptedIndex.right(CryptoManager::tagSizeBytes);
}

} // namespace Tessarin::Core
