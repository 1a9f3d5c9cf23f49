// A rule of the vault's namespace that importing, moving and creating folders share.
#pragma once

#include "core/SecureFileIndex.h"

#include <QString>

namespace Tessarin::Core {

/// Adds an entry for every ancestor of `path` that has none, all with one time.
void ensureParentDirectories(SecureFileIndex &index, const QString &path);

} // namespace Tessarin::Core
