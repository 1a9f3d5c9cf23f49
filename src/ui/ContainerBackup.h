// The encrypted backup: a copy of the whole container, elsewhere.
#pragma once

#include "ui/Outcome.h"

class QWidget;

namespace Tessarin::UI {

/// Asks where to, and copies. The container must not change meanwhile: it is the one of a locked vault. A
/// copy that is not complete is deleted.
[[nodiscard]] Outcome backUpContainer(QWidget *parent, const QString &containerPath);

} // namespace Tessarin::UI
