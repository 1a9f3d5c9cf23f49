// Copies an open file and syncs the copy: for backups, and for exports of edited copies.
#pragma once

#include "core/Failure.h"

#include <QtGlobal>

#include <functional>

class QFile;

namespace Tessarin::UI {

/// Both files are open. `report` is told of the bytes done and those in all. None when the copy is complete
/// and on its drive.
[[nodiscard]] Core::Failure copyFile(QFile &source, QFile &target,
                                     const std::function<void(qint64 doneBytes, qint64 totalBytes)> &report);

} // namespace Tessarin::UI
