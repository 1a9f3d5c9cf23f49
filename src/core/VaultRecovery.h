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

} // namespace Tessarin::Core
