// Former wrappings of the master key that undo records have left in the block area: of a record that was
// never finished, or that a later import has buried between its blocks. With an old password they would open
// the vault.
#pragma once

#include "core/ProgressCallback.h"

class QFileDevice;

namespace Tessarin::Core {

class SecureFileIndex;

/// Overwrites former wrappings wherever no listed block lies; the caller syncs the file afterwards. Reads
/// what deleted files have left, and reports progress of that. What lies behind the last block's page
/// is then truncated, when the container is locked. `index` may be null when it is not known: then only what
/// is surely a header is overwritten, and nothing truncated.
[[nodiscard]] bool wipeKeyRemains(QFileDevice &container, const SecureFileIndex *index,
                                  const ProgressCallback &progress);

} // namespace Tessarin::Core
