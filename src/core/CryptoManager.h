// The one place where the vault touches cryptography. Everything comes from libsodium, except the PBKDF2
// fallback, which is built on Qt's HMAC. Failure is an empty byte array, never an exception.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QtGlobal>

namespace Tessarin::Core {

/// How a password becomes a key.
struct KeyDerivationParams
{
    QString kdf;           ///< Exactly "Argon2id" selects Argon2id; any other text PBKDF2-HMAC-SHA256.
    QByteArray salt;       ///< 16 random bytes in new vaults.
    qint32 iterations = 0; ///< Only PBKDF2 reads it.
    qint32 keyLength = 0;  ///< Bytes of key material to produce.
};

class CryptoManager
{
public:
    static constexpr qsizetype keySizeBytes = 32;
    static constexpr qsizetype nonceSizeBytes = 24;
    static constexpr qsizetype tagSizeBytes = 16;
    static constexpr qsizetype saltSizeBytes = 16;

    CryptoManager();

    /// `length` bytes from the system's random generator; empty when `length` is not positive.
    [[nodiscard]] QByteArray generateSalt(int length) const;
    /// The same bytes by a name that says what they are for.
    [[nodiscard]] QByteArray generateNonce(int length) const;

    /// XChaCha20-Poly1305 (draft-irtf-cfrg-xchacha) in combined form: the ciphertext, then its 16-byte tag.
    /// Empty unless the key has 32 and the nonce 24 bytes.
    [[nodiscard]] QByteArray encrypt(const QByteArray &plaintext, const QByteArray &key,
                                     const QByteArray &nonce, const QByteArray &associatedData) const;

    /// The plaintext, or empty when sizes or the tag are wrong. An empty plaintext is empty too: callers
    /// take "empty" for failure wherever a plaintext cannot be.
    [[nodiscard]] QByteArray decrypt(const QByteArray &ciphertextWithTag, const QByteArray &key,
                                     const QByteArray &nonce, const QByteArray &associatedData) const;

    /// The same two without an allocation, for blocks: `output` has room for the plaintext and its tag, or
    /// for the plaintext. False on wrong sizes, and when the tag does not fit; then `output` holds nothing of
    /// use.
    [[nodiscard]] bool encryptInto(char *output, QByteArrayView plaintext, const QByteArray &key,
                                   const QByteArray &nonce, const QByteArray &associatedData) const;
    [[nodiscard]] bool decryptInto(char *output, QByteArrayView ciphertextWithTag, const QByteArray &key,
                                   const QByteArray &nonce, const QByteArray &associatedData) const;

    // The next and constantTimeEquals() are offered to other programs; the vault has no use for them.

    /// HMAC-SHA256 (RFC 2104, RFC 6234) under the first 32 bytes of `key`; empty when the key is shorter.
    [[nodiscard]] QByteArray hmacSha256(const QByteArray &data, const QByteArray &key) const;

    /// Argon2id (RFC 9106: 3 passes, 256 MiB, 1 lane) or PBKDF2-HMAC-SHA256 (RFC 8018), as `params.kdf` says.
    /// Empty on an empty password, a salt that is empty (for Argon2id: under 16 bytes), a length under 1 (for
    /// Argon2id: under 16) or above 1 MiB, a PBKDF2 count under 1, or when the memory cannot be had.
    [[nodiscard]] QByteArray deriveKey(const QByteArray &password, const KeyDerivationParams &params) const;

    /// Compares in a time that depends on the lengths only.
    [[nodiscard]] bool constantTimeEquals(const QByteArray &a, const QByteArray &b) const;
};

} // namespace Tessarin::Core
