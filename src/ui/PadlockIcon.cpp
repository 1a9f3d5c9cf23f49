// Paints the padlock: open or closed, as a button that can be pressed or not.
#include "ui/PadlockIcon.h"

#include "ui/Painting.h"

#include <QColor>
#include <QPainter>
#include <QPen>
#include <QPixmap>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr int padlockSize = 48;

/// A padlock of 48 by 48, in the middle of a square of the given side.
QPixmap padlockPixmap(bool open, bool enabled, int side)
{
    const QColor stroke(enabled ? u"#464646"_s : u"#a5a5a5"_s);
    const QColor fill(enabled ? u"#eeeeee"_s : u"#e2e2e2"_s);

    return paintedPixmap(side, [&](QPainter &painter) {
        painter.translate((side - padlockSize) / 2.0, (side - padlockSize) / 2.0);
        painter.setPen(QPen(stroke, 3.0, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));

        // Angles are in sixteenths of a degree.
        if (open) {
            painter.drawArc(QRectF(14, 7, 20, 26), 25 * 16, 245 * 16);
            painter.drawLine(QPointF(35, 19), QPointF(40, 15));
        } else {
            painter.drawArc(QRectF(13, 7, 22, 26), 0, 180 * 16);
        }

        painter.setBrush(fill);
        painter.drawRoundedRect(QRectF(10, 22, 28, 20), 4, 4);

        painter.setBrush(stroke);
        painter.drawEllipse(QRectF(22, 30, 4, 4));
        painter.drawLine(QPointF(24, 34), QPointF(24, 37));
    });
}

} // namespace

QIcon padlockIcon(bool open, bool enabled, int shownSide)
{
    // Two sizes, or a fine screen would blow up the picture that the padlock fills.
    QIcon icon;
    for (const int side : {padlockSize, shownSide}) {
        const QPixmap pixmap = padlockPixmap(open, enabled, side);
        icon.addPixmap(pixmap);
        // Left to itself, the style would grey the disabled padlock a second time.
        icon.addPixmap(pixmap, QIcon::Disabled);
    }
    return icon;
}

} // namespace Tessarin::UI
