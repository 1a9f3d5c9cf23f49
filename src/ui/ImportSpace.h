// How much room an import asks of the drive.
#pragma once

#include <QStringList>
#include <QtGlobal>

class QWidget;

namespace Tessarin::UI {

/// An import that would leave less than this free is questioned; 128 MiB.
inline constexpr qint64 lowSpaceBytes = 134'217'728;

/// The files' bytes with 5 % for tags and file-system overhead, and 16 MiB for the index. In double
/// precision, truncated.
[[nodiscard]] constexpr qint64 requiredImportBytes(qint64 totalBytes)
{
    return static_cast<qint64>(static_cast<double>(totalBytes) * 1.05) + 16'777'216;
}

/// False when the files are too large for the container's drive or not there, which it says, and when the
/// user declines to leave little room. The window is the parent of that question.
[[nodiscard]] bool confirmImportFitsStorage(QWidget *window, const QString &containerPath,
                                            const QStringList &sources);

} // namespace Tessarin::UI
