// Puts the engine's reasons into words: why something failed, and what people can do. Where locking
// fails, VaultLocking.cpp words two of them for edited copies.
#pragma once

#include "core/Failure.h"

#include <QString>

namespace Tessarin::UI {

/// Reason and advice, for a paragraph of its own. Empty where the engine knows no more than that it failed.
/// `damagedFile` is the vault path of the only file that was read, if any.
[[nodiscard]] QString failureText(Core::Failure reason, const QString &damagedFile = {});

} // namespace Tessarin::UI
