// How painted icons (eye, padlock, pages) come about.
#pragma once

#include <QGuiApplication>
#include <QPainter>
#include <QPixmap>

namespace Tessarin::UI {

/// What `paint` paints on a transparent square, with smooth edges, in coordinates from 0 to `size`; as finely
/// as the finest screen shows them.
template <typename Paint>
[[nodiscard]] QPixmap paintedPixmap(int size, Paint paint)
{
    const qreal ratio = qApp->devicePixelRatio();
    QPixmap pixmap(QSize(size, size) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    paint(painter);
    painter.end();
    return pixmap;
}

} // namespace Tessarin::UI
