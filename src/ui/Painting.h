// The empty image that painted icons (padlock, pages) start from.
#pragma once

#include <QGuiApplication>
#include <QPixmap>

namespace Tessarin::UI {

/// A transparent square to paint on in coordinates from 0 to `size`, as finely as the finest screen shows
/// them.
[[nodiscard]] inline QPixmap blankPixmap(int size)
{
    const qreal ratio = qApp->devicePixelRatio();
    QPixmap pixmap(QSize(size, size) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    return pixmap;
}

} // namespace Tessarin::UI
