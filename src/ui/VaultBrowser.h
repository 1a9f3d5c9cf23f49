// Walks through the folders of the vault: which folder is on show, in what order, and which row is chosen. It
// holds nothing of the vault; every refresh builds the rows anew from the index.
#pragma once

#include "ui/DropTable.h"
#include "ui/VaultTable.h"

#include <QStringList>

namespace Tessarin::Core {
class VaultManager;
}

namespace Tessarin::UI {

class OperationGuard;

class VaultBrowser final : public DropTable
{
    Q_OBJECT

public:
    /// Vault and guard are members of the window that the browser is in.
    VaultBrowser(const Core::VaultManager &session, const OpenCopies &openFiles,
                 const OperationGuard &operations, QWidget *parent);

    /// Shows the folder as it is now. Without an open vault it shows nothing, and the next one opened starts
    /// at its root.
    void refresh();

    /// The vault path of the folder on show; empty is the root.
    [[nodiscard]] QString currentDirectory() const { return directory; }
    void showDirectory(const QString &path);
    void enterSelectedDirectory();
    void navigateToParentDirectory();

    /// Empty when no file is chosen.
    [[nodiscard]] QString selectedVaultPath() const;
    /// Of the chosen folder or of the way up, whose path is empty at the first level; else empty.
    [[nodiscard]] QString selectedDirectoryPath() const;
    [[nodiscard]] bool selectedItemIsDirectory() const;
    [[nodiscard]] bool selectedItemIsParentDirectory() const;

    [[nodiscard]] bool isUnlocked() const;
    /// Nothing is in it but the way up.
    [[nodiscard]] bool isFolderEmpty() const;

    /// What a screen reader says of the table, and what to do next: that is also painted where there are no
    /// rows.
    void describe(const QString &description, const QString &nextStep);

    /// Chooses the row of that file or folder, and scrolls to it; nothing when it is not on show.
    void select(const QString &path);

    // As the keys do -------------------------------------------------------------------------------------

    /// One of the arrow and page keys, Home and End.
    void moveSelection(Qt::Key key);
    /// By the letters that are typed one after the other.
    void selectByName(const QString &typed);
    void activateSelection();
    /// At the chosen row.
    void requestMenu();

Q_SIGNALS:
    /// The folder on show or the chosen row is another than before.
    void changed();

    /// A file was double-clicked; it is the chosen one.
    void fileActivated();

    /// These local files were dropped, to be imported into that folder.
    void importRequested(const QStringList &sources, const QString &toDirectory);

protected:
    [[nodiscard]] std::optional<DropRefusal> currentDropRefusal() const override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void build();
    void buildHeader();
    void followSelection();
    void sortByColumn(int column);
    void activate(const QTableWidgetItem *cell);
    void takeDrop(const QList<QUrl> &urls, int row);
    void markOpenCopies();
    void chooseRow(int row);
    /// The cell of the chosen row that carries the row's path and kind; null when no row is chosen.
    [[nodiscard]] const QTableWidgetItem *chosenRow() const;

    const Core::VaultManager &vault;
    const OpenCopies &copies;
    const OperationGuard &guard;
    QString hint;
    QString directory;
    int sortColumn = VaultTable::NameColumn;
    Qt::SortOrder sortOrder = Qt::AscendingOrder;
};

} // namespace Tessarin::UI
