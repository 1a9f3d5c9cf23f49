// Former wrappings of the master key that undo records have left in the block area: of a record that was
// never finished, or that a later import has buried between its blocks. With an old password they would open
// the vault.
#pragma once

class QFileDevice;

namespace Tessarin::Core {

class SecureFileIndex;

/// Overwrites them wherever no listed block lies; what it has written still has to be synced. Reads all that
/// deleted files have left. `index` may be null when it is not known: then only what is surely a header is
/// overwritten.
[[nodiscard]] bool wipeKeyRemains(QFileDevice &container, const SecureFileIndex *index);

} // namespace Tessarin::Core
