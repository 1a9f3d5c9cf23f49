// Copies an open file and syncs the copy: for backups, and for exports of edited copies.
#pragma once

#include <QtGlobal>

#include <functional>

class QFile;

namespace Tessarin::UI {

/// Both files are open. `report` is told of the bytes done and those in all. False when the copy is not
/// complete, or may not be on its drive.
[[nodiscard]] bool copyFile(QFile &source, QFile &target,
                            const std::function<void(qint64 doneBytes, qint64 totalBytes)> &report);

} // namespace Tessarin::UI
