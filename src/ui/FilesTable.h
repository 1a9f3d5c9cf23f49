// The table's part in drag and drop: files from a file manager can be dropped on it, and it shows where they
// would go. What a drop leads to is the window's business.
#pragma once

#include <QList>
#include <QTableWidget>
#include <QUrl>

#include <functional>

namespace Tessarin::UI {

class FilesTable : public QTableWidget
{
    Q_OBJECT

public:
    FilesTable(int columns, QWidget *parent = nullptr);

    /// Asked when files are dragged onto the table; false shows them as not welcome.
    void setDropCheck(const std::function<bool()> &check) { takesDrops = check; }

Q_SIGNALS:
    /// Files, folders or addresses were dropped, to be copied; `row` is the folder under the pointer, -1 when
    /// they are meant for the folder on show.
    void dropped(const QList<QUrl> &urls, int row);

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    [[nodiscard]] int folderRowAt(const QPoint &position) const;

    std::function<bool()> takesDrops;
    bool isDropTarget = false; ///< While something welcome is dragged over the table.
    int targetRow = -1;        ///< The folder under it; -1: the folder on show.
};

} // namespace Tessarin::UI
