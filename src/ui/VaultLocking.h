// Locks the vault, and says what became of its decrypted copies when that fails.
#pragma once

#include <QString>

class QWidget;

namespace Tessarin::Core {
class VaultManager;
}

namespace Tessarin::UI {

/// Returns what VaultManager::lockVault() returns.
[[nodiscard]] bool lockShowingProgress(QWidget *parent, Core::VaultManager &vault);

/// After a lock that failed: why, and where decrypted copies lie now.
[[nodiscard]] QString lockFailureDetails(const Core::VaultManager &vault);

} // namespace Tessarin::UI
