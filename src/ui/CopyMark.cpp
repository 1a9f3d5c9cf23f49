// Paints the mark of an open or edited file: a ring and a disc, for those who see no difference of colour.
#include "ui/CopyMark.h"

#include "ui/OpenCopies.h"
#include "ui/VaultTable.h"

#include <QPainter>

namespace Tessarin::UI {

namespace {

constexpr double diameter = 12;
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
    // A white rim sets either off from the icon and from the colour of a chosen row.
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    painter->setBrush(Qt::white);
    painter->drawEllipse(disc);
    if (state == CopyState::Open)
        painter->setPen(QPen(openColor, 2));
    else
        painter->setBrush(editedColor);
    painter->drawEllipse(disc.adjusted(2, 2, -2, -2));
    painter->restore();
}

} // namespace Tessarin::UI
