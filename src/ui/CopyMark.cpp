// The two marks differ by shape as well, for those who see no difference of colour.
#include "ui/CopyMark.h"

#include "ui/OpenCopies.h"
#include "ui/VaultTable.h"

#include <QPainter>

namespace Tessarin::UI {

namespace {

constexpr double diameter = 11;
constexpr QColor openColor(0x0b, 0x4f, 0x8a);
constexpr QColor editedColor(0xc2, 0x41, 0x0c);

} // namespace

void CopyMark::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyledItemDelegate::paint(painter, option, index);
    const auto state = static_cast<CopyState>(index.data(VaultTable::CopyStateRole).toInt());
    if (state == CopyState::None)
        return;
    const QRectF cell(option.rect);
    const QRectF disc(cell.right() - diameter - 1, cell.bottom() - diameter - 2, diameter, diameter);
    const bool isEdited = state == CopyState::Edited;
    const QColor color = isEdited ? editedColor : openColor;
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(QPen(isEdited ? QColor(Qt::white) : color, isEdited ? 1 : 2));
    painter->setBrush(isEdited ? color : QColor(Qt::white));
    painter->drawEllipse(disc.adjusted(1, 1, -1, -1));
    if (isEdited) {
        // A stroke of a pencil.
        painter->setPen(QPen(Qt::white, 2, Qt::SolidLine, Qt::RoundCap));
        painter->drawLine(disc.center() + QPointF(-1.8, 1.8), disc.center() + QPointF(1.8, -1.8));
    }
    painter->restore();
}

} // namespace Tessarin::UI
