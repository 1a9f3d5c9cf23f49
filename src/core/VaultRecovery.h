// What opening a vault and keeping it in step with the drive share; used by the session's own files only.
#pragma once

#include "core/ContainerManager.h"
#include "core/Secret.h"
#include "core/VaultManager.h"

namespace Tessarin::Core {

/// A vault that its password has opened.
struct VaultManager::OpenedVault
{
    ContainerDocument document;
    SecretBytes masterKey;
    SecureFileIndex index;
};

/// A vault whose container is open and locked, so that no other program is at work on it.
struct VaultManager::LockedVault
{
    QFile &container;
    const SecretBytes &key;
    const SecureFileIndex &index;
    qint64 mostBytesRead = 512 * 1024 * 1024; ///< Nobody sees progress while a vault is unlocked.
};

/// A view of the bytes that serve as the key of the cipher; `key` must outlive it.
[[nodiscard]] inline QByteArray cipherKey(const SecretBytes &key)
{
    return key.view(CryptoManager::keySizeBytes);
}

/// Tells one sealed index from every other: its nonce, which is never used twice, and its tag.
[[nodiscard]] inline QByteArray sealOf(const ContainerDocument &document)
{
    return document.crypto.payloadNonce + document.encryptedIndex.right(CryptoManager::tagSizeBytes);
}

} // namespace Tessarin::Core
