// The icon of the program. Unpacking all its sizes takes a good part of the start, so it is done once.
#pragma once

#include <QApplication>
#include <QIcon>

namespace Tessarin::UI {

/// What the program has set as its icon; read anew where a window is shown without the program around it.
[[nodiscard]] inline QIcon applicationIcon()
{
    const QIcon icon = QApplication::windowIcon();
    return icon.isNull() ? QIcon(QStringLiteral(":/icons/Tessarin.ico")) : icon;
}

} // namespace Tessarin::UI
