// Adds index entries for the missing folders above a path: importing, moving and creating folders need it.
#pragma once

#include "core/SecureFileIndex.h"

#include <QString>

namespace Tessarin::Core {

/// Adds an entry for every ancestor of `path` that has none, all with one time.
void ensureParentDirectories(SecureFileIndex &index, const QString &path);

} // namespace Tessarin::Core
