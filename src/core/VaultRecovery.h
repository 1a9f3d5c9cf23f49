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

} // namespace Tessarin::Core
