// How sizes, dates, types, the state of the vault, folders of the host, file filters and tooltips are
// written.
#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>

namespace Tessarin::UI {

/// The suffix in upper case, or "Arquivo" where there is none.
[[nodiscard]] QString fileTypeLabel(const QString &vaultPath);

/// A name or path, for a place where other text is around it: marks that would change the direction of
/// reading, and other characters that cannot be seen, show as their codes, and a part with letters that run
/// from right to left is isolated from the text around it. The same as the name for nearly all names.
[[nodiscard]] QString shownName(const QString &name);

/// In the locale's way, one decimal, traditional units: powers of 1024, written as MB or GB.
[[nodiscard]] QString formatFileSize(qint64 bytes);

/// Local time as dd/MM/yyyy HH:mm; empty for an invalid time.
[[nodiscard]] QString formatFileDate(const QDateTime &when);

[[nodiscard]] QString vaultStateText(bool unlocked);

/// A folder of the host with "/" between its parts and exactly one at the end.
[[nodiscard]] QString normalizeDirectoryPath(QString path);

/// The same for every spelling of one folder of the host.
[[nodiscard]] QString comparablePath(const QString &directoryPath);

/// At most ten of them, and how many more there are.
[[nodiscard]] QStringList shortList(const QStringList &names);

/// For file dialogs that ask for a container.
[[nodiscard]] QString containerFileFilter();

/// What to hand to setToolTip() so that `text` is shown as it stands, tags and entities included.
[[nodiscard]] QString plainToolTip(const QString &text);

} // namespace Tessarin::UI
