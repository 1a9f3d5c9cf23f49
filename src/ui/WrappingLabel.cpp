// Lays out the text by itself, since QLabel breaks lines between words only.
#include "ui/WrappingLabel.h"

#include <QPainter>
#include <QTextLayout>

#include <algorithm>
#include <cmath>

namespace Tessarin::UI {

WrappingLabel::WrappingLabel(QWidget *parent) : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
}

QSize WrappingLabel::sizeHint() const
{
    return {textWidth, heightForWidth(textWidth)};
}

QSize WrappingLabel::minimumSizeHint() const
{
    return sizeHint();
}

int WrappingLabel::heightForWidth(int width) const
{
    QTextLayout layout;
    return static_cast<int>(std::ceil(lay(layout, width)));
}

void WrappingLabel::paintEvent(QPaintEvent *)
{
    QTextLayout layout;
    const qreal height = lay(layout, width());
    QPainter painter(this);
    painter.setPen(palette().color(foregroundRole()));
    layout.draw(&painter, QPointF(0, std::max<qreal>(0, (this->height() - height) / 2)));
}

qreal WrappingLabel::lay(QTextLayout &layout, int width) const
{
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setFont(font());
    layout.setText(text().replace(u'\n', QChar::LineSeparator));
    layout.setTextOption(option);
    layout.beginLayout();
    qreal height = 0;
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        line.setPosition(QPointF(0, height));
        height += line.height();
    }
    layout.endLayout();
    return height;
}

} // namespace Tessarin::UI
