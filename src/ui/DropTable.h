// The table's part in drag and drop: files from a file manager can be dropped on it, and it shows where they
// would go. What a drop leads to is decided by others.
#pragma once

#include <QList>
#include <QTableWidget>
#include <QUrl>

#include <optional>

namespace Tessarin::UI {

/// Why nothing is taken from what is dragged onto the table.
enum class DropRefusal {
    NothingToCopy,     ///< No files, or files that may only be moved.
    OperationRunning,  ///< The vault is busy.
    VaultLocked,       ///< There is no folder to drop into.
    NotOnlyLocalFiles, ///< Folders or network addresses are among it; known only after the drop.
};

class DropTable : public QTableWidget
{
    Q_OBJECT

public:
    explicit DropTable(QWidget *parent);

Q_SIGNALS:
    void dropRefused(Tessarin::UI::DropRefusal reason);

    /// Files, folders or addresses were dropped, to be copied; `row` is the folder under the pointer, -1 when
    /// they are meant for the folder on show.
    void dropped(const QList<QUrl> &urls, int row);

protected:
    /// Why nothing can be dropped just now; empty when it can. Asked when a drag enters.
    [[nodiscard]] virtual std::optional<DropRefusal> currentDropRefusal() const = 0;

    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    [[nodiscard]] std::optional<DropRefusal> refusalOf(const QDropEvent &event) const;
    [[nodiscard]] int folderRowAt(const QPoint &position) const;

    bool isDropTarget = false; ///< While something that can be dropped is dragged over the table.
    int targetRow = -1;        ///< The folder under it; -1: the folder on show.
};

} // namespace Tessarin::UI
