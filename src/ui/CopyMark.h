// Draws on the icon of a row that its file is open for editing, or edited and not yet in the vault.
#pragma once

#include <QStyledItemDelegate>

namespace Tessarin::UI {

class CopyMark final : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
};

} // namespace Tessarin::UI
