// The icon of the program: all its sizes to draw from, and those that a window hands to its window manager.
#pragma once

#include <QGuiApplication>
#include <QIcon>

namespace Tessarin::UI {

/// Unpacking all its sizes takes a good part of the start, so it is done once.
[[nodiscard]] inline const QIcon &applicationIcon()
{
    static const QIcon icon(QStringLiteral(":/icons/Tessarin.ico"));
    return icon;
}

/// Without the largest where that is for finer screens: Qt would send it to an X server twice for every
/// window. Who shows a larger one and has no icon theme scales the others up.
[[nodiscard]] inline QIcon windowIcon()
{
    const qreal largestSide = 80 * qGuiApp->devicePixelRatio(); // In the icon's pixels.
    QIcon icon;
    for (const QSize &size : applicationIcon().availableSizes()) {
        if (size.width() <= largestSide)
            icon.addPixmap(applicationIcon().pixmap(size, 1.0));
    }
    return icon;
}

} // namespace Tessarin::UI
