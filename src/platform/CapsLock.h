// Asks the desktop whether Caps Lock is on, which Qt does not tell.
#pragma once

#include <optional>

class QKeyEvent;

namespace Tessarin::Platform {

/// An X server answers at any time; elsewhere it takes a key that was pressed or released. Empty where
/// nothing tells. `event` may be null.
[[nodiscard]] std::optional<bool> isCapsLockOn(const QKeyEvent *event);

} // namespace Tessarin::Platform
