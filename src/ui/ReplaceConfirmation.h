// What is asked before a file gives way to a new vault.
#pragma once

#include <QString>

class QFileInfo;
class QWidget;

namespace Tessarin::UI {

/// True where there is no such file yet, or the user agrees to lose what is in it. The drive goes by the name
/// that people know it by.
[[nodiscard]] bool confirmReplacement(QWidget *parent, const QString &driveName, const QFileInfo &file);

} // namespace Tessarin::UI
