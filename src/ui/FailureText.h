// Puts the engine's reasons into words: the one place where people are told why something failed, and what
// they can do.
#pragma once

#include "core/Failure.h"

#include <QString>

namespace Tessarin::UI {

/// Reason and advice, for a paragraph of its own. Empty where the engine knows no more than that it failed.
/// `damagedFile` is the vault path of the only file that was read, if any.
[[nodiscard]] QString failureText(Core::Failure reason, const QString &damagedFile = {});

} // namespace Tessarin::UI
