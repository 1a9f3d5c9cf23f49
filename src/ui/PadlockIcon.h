// The padlock on the button that locks and unlocks the vault.
#pragma once

#include <QIcon>

namespace Tessarin::UI {

/// A padlock of 48 by 48 pixels, to be shown in the middle of a square with sides of `shownSide` pixels.
[[nodiscard]] QIcon padlockIcon(bool open, bool enabled, int shownSide);

} // namespace Tessarin::UI
