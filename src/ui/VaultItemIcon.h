// The icons of the vault table.
#pragma once

#include "ui/VaultTableItemKind.h"

#include <QIcon>
#include <QString>

namespace Tessarin::UI {

/// The style's up arrow, the desktop's folder icon, a painted page with a label for well-known file types, or
/// the desktop's icon for the file's suffix.
[[nodiscard]] QIcon vaultItemIcon(VaultTableItemKind kind, const QString &vaultPath);

} // namespace Tessarin::UI
