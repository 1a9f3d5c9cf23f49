// libsodium's primitives behind byte arrays, and PBKDF2 over Qt's HMAC.
#include "core/CryptoManager.h"

#include "core/FormatNames.h"
#include "core/Secret.h"

#include <QCryptographicHash>
#include <QMessageAuthenticationCode>
#include <QtEndian>

#include <algorithm>
#include <functional>
#include <numeric>

#include <sodium.h>

namespace Tessarin::Core {

static_assert(CryptoManager::keySizeBytes == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);
static_assert(CryptoManager::nonceSizeBytes == crypto_aead_xchacha20poly1305_ietf_NPUBBYTES);
static_assert(CryptoManager::tagSizeBytes == crypto_aead_xchacha20poly1305_ietf_ABYTES);
static_assert(CryptoManager::saltSizeBytes == crypto_pwhash_SALTBYTES);

namespace {

constexpr unsigned long long argonPasses = 3;
constexpr size_t argonMemoryBytes = 256UL * 1024 * 1024;
constexpr qint32 mostKeyBytes = 1024 * 1024;

const unsigned char *bytesOf(QByteArrayView bytes)
{
    return reinterpret_cast<const unsigned char *>(bytes.data());
}

unsigned char *bytesOf(char *memory)
{
    return reinterpret_cast<unsigned char *>(memory);
}

unsigned long long lengthOf(QByteArrayView bytes)
{
    return static_cast<unsigned long long>(bytes.size());
}

QByteArray argon2id(const QByteArray &password, const KeyDerivationParams &params)
{
    if (params.salt.size() < CryptoManager::saltSizeBytes)
        return {};

    QByteArray key(params.keyLength, Qt::Uninitialized);
    const bool isDerived =
        crypto_pwhash(bytesOf(key.data()), lengthOf(key), password.constData(), lengthOf(password),
                      bytesOf(params.salt), argonPasses, argonMemoryBytes, crypto_pwhash_ALG_ARGON2ID13) == 0;
    return isDerived ? key : QByteArray();
}

QByteArray pbkdf2Block(const QByteArray &password, const KeyDerivationParams &params, quint32 counter)
{
    QByteArray counterBytes(sizeof counter, Qt::Uninitialized);
    qToBigEndian(counter, counterBytes.data());

    const auto hmac = [&password](const QByteArray &message) {
        return QMessageAuthenticationCode::hash(message, password, QCryptographicHash::Sha256);
    };
    QByteArray round = hmac(params.salt + counterBytes);
    const WipedAtScopeEnd wipeRound(round);
    QByteArray block(round.constData(), round.size());
    for (qint32 iteration = 2; iteration <= params.iterations; ++iteration) {
        QByteArray next = hmac(round);
        wipe(round);
        round.swap(next);
        std::transform(round.cbegin(), round.cend(), block.cbegin(), block.begin(), std::bit_xor());
    }
    return block;
}

QByteArray pbkdf2(const QByteArray &password, const KeyDerivationParams &params)
{
    if (params.iterations < 1)
        return {};

    QByteArray key(params.keyLength, Qt::Uninitialized);
    auto rest = key.begin();
    for (quint32 counter = 1; rest != key.end(); ++counter) {
        QByteArray block = pbkdf2Block(password, params, counter);
        rest = std::copy_n(block.cbegin(), std::min<qsizetype>(block.size(), key.end() - rest), rest);
        wipe(block);
    }
    return key;
}

} // namespace

CryptoManager::CryptoManager()
{
    // Repeated calls do nothing, and a library without its random source would stop the program by itself.
    [[maybe_unused]] const int initialized = sodium_init();
}

QByteArray CryptoManager::generateSalt(int length) const
{
    if (length < 1)
        return {};

    QByteArray bytes(length, Qt::Uninitialized);
    randombytes_buf(bytes.data(), static_cast<size_t>(length));
    return bytes;
}

QByteArray CryptoManager::generateNonce(int length) const
{
    return generateSalt(length);
}

QByteArray CryptoManager::encrypt(const QByteArray &plaintext, const QByteArray &key, const QByteArray &nonce,
                                  const QByteArray &associatedData) const
{
    QByteArray ciphertext(plaintext.size() + tagSizeBytes, Qt::Uninitialized);
    return encryptInto(ciphertext.data(), plaintext, key, nonce, associatedData) ? ciphertext : QByteArray();
}

QByteArray CryptoManager::decrypt(const QByteArray &ciphertextWithTag, const QByteArray &key,
                                  const QByteArray &nonce, const QByteArray &associatedData) const
{
    QByteArray plaintext(qMax(ciphertextWithTag.size() - tagSizeBytes, qsizetype(0)), Qt::Uninitialized);
    return decryptInto(plaintext.data(), ciphertextWithTag, key, nonce, associatedData) ? plaintext
                                                                                        : QByteArray();
}

bool CryptoManager::encryptInto(char *output, QByteArrayView plaintext, const QByteArray &key,
                                const QByteArray &nonce, const QByteArray &associatedData) const
{
    if (key.size() != keySizeBytes || nonce.size() != nonceSizeBytes)
        return false;

    return crypto_aead_xchacha20poly1305_ietf_encrypt(
               bytesOf(output), nullptr, bytesOf(plaintext), lengthOf(plaintext), bytesOf(associatedData),
               lengthOf(associatedData), nullptr, bytesOf(nonce), bytesOf(key)) == 0;
}

bool CryptoManager::decryptInto(char *output, QByteArrayView ciphertextWithTag, const QByteArray &key,
                                const QByteArray &nonce, const QByteArray &associatedData) const
{
    if (key.size() != keySizeBytes || nonce.size() != nonceSizeBytes ||
        ciphertextWithTag.size() < tagSizeBytes)
        return false;

    return crypto_aead_xchacha20poly1305_ietf_decrypt(
               bytesOf(output), nullptr, nullptr, bytesOf(ciphertextWithTag), lengthOf(ciphertextWithTag),
               bytesOf(associatedData), lengthOf(associatedData), bytesOf(nonce), bytesOf(key)) == 0;
}

QByteArray CryptoManager::hmacSha256(const QByteArray &data, const QByteArray &key) const
{
    if (key.size() < static_cast<qsizetype>(crypto_auth_hmacsha256_KEYBYTES))
        return {};

    QByteArray mac(crypto_auth_hmacsha256_BYTES, Qt::Uninitialized);
    crypto_auth_hmacsha256(bytesOf(mac.data()), bytesOf(data), lengthOf(data), bytesOf(key));
    return mac;
}

QByteArray CryptoManager::deriveKey(const QByteArray &password, const KeyDerivationParams &params) const
{
    if (password.isEmpty() || params.salt.isEmpty() || params.keyLength < 1 ||
        params.keyLength > mostKeyBytes)
        return {};

    return keyDerivationNamed(params.kdf) == KeyDerivation::Argon2id ? argon2id(password, params)
                                                                     : pbkdf2(password, params);
}

bool CryptoManager::constantTimeEquals(const QByteArray &a, const QByteArray &b) const
{
    if (a.size() != b.size())
        return false;

    // The differences of all bytes, put together.
    return std::inner_product(a.cbegin(), a.cend(), b.cbegin(), 0, std::bit_or(), std::bit_xor()) == 0;
}

} // namespace Tessarin::Core
