// What a row of the vault table stands for.
#pragma once

namespace Tessarin::UI {

/// Stored as an integer under VaultTable::KindRole.
enum class VaultTableItemKind : int { File = 0, Directory = 1, ParentDirectory = 2 };

} // namespace Tessarin::UI
