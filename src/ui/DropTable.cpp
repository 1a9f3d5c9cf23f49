// Only copying is ever agreed to: after a move, the file manager would delete what was dragged.
#include "ui/DropTable.h"

#include "ui/VaultTable.h"

#include <QDragEnterEvent>
#include <QDragLeaveEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QPainter>

namespace Tessarin::UI {

namespace {

constexpr int edgeWidth = 2;
constexpr int tintAlpha = 60;

} // namespace

DropTable::DropTable(QWidget *parent) : QTableWidget(parent)
{
    setAcceptDrops(true);
    setDropIndicatorShown(false);
}

void DropTable::dragEnterEvent(QDragEnterEvent *event)
{
    const std::optional<DropRefusal> refusal = refusalOf(*event);
    isDropTarget = !refusal.has_value();
    dragMoveEvent(event);
    if (refusal)
        Q_EMIT dropRefused(*refusal);
}

std::optional<DropRefusal> DropTable::refusalOf(const QDropEvent &event) const
{
    if (!event.mimeData()->hasUrls() || !event.possibleActions().testFlag(Qt::CopyAction))
        return DropRefusal::NothingToCopy;
    return currentDropRefusal();
}

void DropTable::dragMoveEvent(QDragMoveEvent *event)
{
    if (!isDropTarget) {
        event->ignore();
        return;
    }
    QTableWidget::dragMoveEvent(event); // It scrolls at the edges.
    targetRow = folderRowAt(event->position().toPoint());
    viewport()->update();
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void DropTable::dragLeaveEvent(QDragLeaveEvent *event)
{
    QTableWidget::dragLeaveEvent(event);
    isDropTarget = false;
}

void DropTable::dropEvent(QDropEvent *event)
{
    if (!isDropTarget) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
    const int row = folderRowAt(event->position().toPoint());
    // To the base class the drag has left: it would want to put what was dropped into its model.
    QDragLeaveEvent leave;
    dragLeaveEvent(&leave);
    Q_EMIT dropped(event->mimeData()->urls(), row);
}

void DropTable::paintEvent(QPaintEvent *event)
{
    QTableWidget::paintEvent(event);
    if (!isDropTarget)
        return;
    QRect target = viewport()->rect();
    if (targetRow >= 0) {
        target.setTop(rowViewportPosition(targetRow));
        target.setHeight(rowHeight(targetRow));
    }
    QColor tint = palette().color(QPalette::Highlight);
    QPainter painter(viewport());
    painter.setPen(QPen(tint, edgeWidth, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
    if (targetRow >= 0) {
        tint.setAlpha(tintAlpha);
        painter.setBrush(tint);
    }
    // The pen is drawn around the outline's middle.
    painter.drawRect(target.adjusted(edgeWidth / 2, edgeWidth / 2, -edgeWidth / 2, -edgeWidth / 2));
}

int DropTable::folderRowAt(const QPoint &position) const
{
    const QModelIndex place = indexAt(position);
    const QModelIndex name = place.siblingAtColumn(VaultTable::NameColumn);
    const bool isFolder = name.isValid() && name.data(VaultTable::KindRole).toInt() !=
                                                static_cast<int>(VaultTableItemKind::File);
    return isFolder ? name.row() : -1;
}

} // namespace Tessarin::UI
