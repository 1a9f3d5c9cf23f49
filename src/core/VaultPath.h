// What a path inside a vault is: segments joined by "/", no "/" at either end, no segment that is empty, "."
// or "..", none with white space around it. The root of the vault is the empty path. Paths keep their letter
// case and are compared without regard to it. This is the only home of that rule.
#pragma once

#include <QString>

namespace Tessarin::Core {

/// The path in its stored form ("\" becomes "/", white space around segments goes); empty when it is invalid.
[[nodiscard]] QString normalizedVaultPath(QString path);

/// Equal without regard to letter case.
[[nodiscard]] bool vaultPathsEqual(const QString &a, const QString &b);

/// The path with its case folded: two paths are equal exactly when their keys are the same text.
[[nodiscard]] QString vaultPathKey(const QString &path);

/// True when `path` lies somewhere below `directory`; a directory is not inside itself.
[[nodiscard]] bool pathIsInsideDirectory(const QString &path, const QString &directory);

/// What stands before the last "/"; empty (the root) when there is none or it is the first character.
[[nodiscard]] QString parentVaultPath(const QString &path);

/// What stands after the last "/".
[[nodiscard]] QString vaultBaseName(const QString &path);

/// `name` inside `directory` (empty: the root), normalized; empty when the result is invalid.
[[nodiscard]] QString joinVaultPath(const QString &directory, const QString &name);

/// True for a single segment, white space around it aside: not empty, no "/" or "\", neither "." nor "..".
[[nodiscard]] bool isValidVaultName(const QString &name);

} // namespace Tessarin::Core
