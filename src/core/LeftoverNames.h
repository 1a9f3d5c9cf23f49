// Where this program puts files of its own for the time of an operation, and so what one that was killed
// leaves: a second container beside the first ("twin") and a working folder among the temporary files, of a
// compaction; a container under a name of its own, of a creation.
#pragma once

#include <QFileInfoList>
#include <QString>
#include <QStringList>

namespace Tessarin::Core {

/// For QTemporaryDir.
[[nodiscard]] QString workingFolderTemplate();
/// The directories that have such a name, whoever made them.
[[nodiscard]] QFileInfoList presentWorkingFolders();

/// A name for a new twin of a container.
[[nodiscard]] QString newTwinPath(const QString &containerPath);

/// A name for a container that is written beside the place where it shall be.
[[nodiscard]] QString newCreationPath(const QString &containerPath);
/// True when a file has a name that such a container gets.
[[nodiscard]] bool isCreationName(const QString &containerPath, const QString &path);

/// The files beside a container, or where it was, that only a compaction or a creation leaves which was
/// killed. One of them may be the only whole container.
[[nodiscard]] QStringList leftoversBeside(const QString &containerPath);

} // namespace Tessarin::Core
