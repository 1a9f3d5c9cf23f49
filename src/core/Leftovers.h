// Judging what an operation that was killed has left (`LeftoverNames.h`): it opens with the password of that
// time for as long as it stays.
#pragma once

#include "core/ProgressCallback.h"
#include "core/VaultUnderLock.h"

#include <QString>
#include <QStringList>

namespace Tessarin::Core {

/// Bytes that may be read while nobody is shown any progress: a slow drive takes some two seconds.
inline constexpr qint64 mostBytesReadUnseen = 32 * 1024 * 1024;

/// Looks at all leftovers that may be this vault's and deletes those of which nothing can be lost, because
/// the vault provably holds all that is in them. Returns the containers that stay and may be this vault's.
/// Leftovers also stay when more than `mostBytesRead` would have to be read to know.
[[nodiscard]] QStringList clearLeftovers(const VaultUnderLock &vault, qint64 mostBytesRead,
                                         const ProgressCallback &progress);

} // namespace Tessarin::Core
