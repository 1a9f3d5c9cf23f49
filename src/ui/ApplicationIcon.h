// The icon of the program: all its sizes to draw from, and those that a window hands to its window manager.
#pragma once

#include <QIcon>

namespace Tessarin::UI {

/// Unpacking all its sizes takes a good part of the start, so it is done once.
[[nodiscard]] inline const QIcon &applicationIcon()
{
    static const QIcon icon(QStringLiteral(":/icons/Tessarin.ico"));
    return icon;
}

/// Without the largest, which Qt would send to an X server twice for every window. Desktops that show large
/// icons take them from their icon theme.
[[nodiscard]] inline QIcon windowIcon()
{
    constexpr int largestSide = 64; // pixels
    QIcon icon;
    for (const QSize &size : applicationIcon().availableSizes()) {
        if (size.width() <= largestSide)
            icon.addPixmap(applicationIcon().pixmap(size, 1.0));
    }
    return icon;
}

} // namespace Tessarin::UI
