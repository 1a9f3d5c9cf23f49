// Copies of a whole container on a drive that may report success falsely, fail midway or be full: durable,
// read again from the drive and compared, or gone.
#pragma once

#include "core/ProgressCallback.h"

#include <QString>

class QFile;

namespace Tessarin::Core {

enum class CopyResult {
    Done,
    NoRoom, ///< The drive has no room, and no other fault; nothing of the copy is left.
    Failed, ///< Any other error, or the drive holds other bytes than it was given.
};

/// Copies a container to a new file, waits until bytes and name have reached the drive, and compares it with
/// what the drives hold. The first sector, in which every container of this program has its magic and its
/// wrapped key, is written by itself when the rest is durable: a copy that breaks off is no container to
/// anybody. `target` stays open and locked when it is done.
[[nodiscard]] CopyResult copyAndVerify(const QString &sourcePath, QFile &target,
                                       const ProgressCallback &progress);

/// True for what such a copy leaves when it breaks off, and for a new container whose header was not written
/// yet: the first sector is zeros or not there, or it tells a header of no length.
[[nodiscard]] bool isUnfinishedCopy(QFile &file);

/// Overwrites the wrapped key of a container, as well as the drive lets a program do that, and deletes the
/// file. True when it is gone.
[[nodiscard]] bool removeWithKey(const QString &path);

} // namespace Tessarin::Core
