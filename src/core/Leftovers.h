// Where compaction puts its files, and so what one that was killed leaves: a second container beside the
// first
// ("twin"), and a working folder among the temporary files.
#pragma once

#include "core/HostFile.h"

#include <QFile>
#include <QString>
#include <QStringList>

namespace Tessarin::Core {

/// For QTemporaryDir.
[[nodiscard]] QString workingFolderTemplate();

/// Opens a working folder and takes its lock, which tells other programs that it is in use. Held also when it
/// is another user's or no folder.
[[nodiscard]] FileLock lockWorkingFolder(const QString &path, QFile &folder);

/// The name for a new twin of a container.
[[nodiscard]] QString newTwinPath(const QString &containerPath);

} // namespace Tessarin::Core
