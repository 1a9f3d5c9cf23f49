// Where this program puts files of its own for the time of an operation, and so what one that was killed
// leaves: a second container beside the first ("twin") and a working folder among the temporary files, of a
// compaction; a container under a name of its own, of a creation. They open with the password of that time
// for as long as they stay.
#pragma once

#include "core/HostFile.h"
#include "core/LockedVault.h"
#include "core/ProgressCallback.h"

#include <QFile>
#include <QString>
#include <QStringList>

namespace Tessarin::Core {

/// For QTemporaryDir.
[[nodiscard]] QString workingFolderTemplate();

/// Opens a working folder and takes its lock, which tells other programs that it is in use. Held also when it
/// is another user's or no folder.
[[nodiscard]] FileLock lockWorkingFolder(const QString &path, QFile &folder);

/// A name for a new twin of a container.
[[nodiscard]] QString newTwinPath(const QString &containerPath);

/// A name for a container that is written beside the place where it shall be.
[[nodiscard]] QString newCreationPath(const QString &containerPath);

/// The files beside a container, or where it was, that only a compaction or a creation leaves which was
/// killed. One of them may be the only whole container.
[[nodiscard]] QStringList leftoversBeside(const QString &containerPath);

/// Bytes that may be read while nobody is shown any progress: a slow drive takes some two seconds.
inline constexpr qint64 mostBytesReadUnseen = 32 * 1024 * 1024;

/// Looks at all leftovers that may be this vault's and deletes those of which nothing can be lost, because
/// the vault provably holds all that is in them. Returns the containers that stay and may be this vault's.
/// Leftovers also stay when more than `mostBytesRead` would have to be read to know.
[[nodiscard]] QStringList clearLeftovers(const LockedVault &vault, qint64 mostBytesRead,
                                         const ProgressCallback &progress);

} // namespace Tessarin::Core
