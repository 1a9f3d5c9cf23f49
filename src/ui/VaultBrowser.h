// Walks through the folders of the vault: which folder is on show, in what order, and which row is chosen. It
// holds nothing of the vault; every refresh builds the rows anew from the index.
#pragma once

#include "ui/FilesTable.h"
#include "ui/VaultTable.h"

#include <QStringList>

namespace Tessarin::Core {
class VaultManager;
}

namespace Tessarin::UI {

class OperationGuard;

class VaultBrowser final : public FilesTable
{
    Q_OBJECT

public:
    /// Vault and guard are members of the window that the browser is in.
    VaultBrowser(const Core::VaultManager &session, const OperationGuard &operations, QWidget *parent);

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

Q_SIGNALS:
    /// The folder on show or the chosen row is another than before.
    void changed();

    /// A file was double-clicked; it is the chosen one.
    void fileActivated();

    /// These local files were dropped, to be imported into that folder.
    void importRequested(const QStringList &sources, const QString &toDirectory);

protected:
    [[nodiscard]] std::optional<DropRefusal> currentDropRefusal() const override;

private:
    void build();
    void buildHeader();
    void followSelection();
    void sortByColumn(int column);
    void activate(const QTableWidgetItem *cell);
    void takeDrop(const QList<QUrl> &urls, int row);
    [[nodiscard]] bool isUnlocked() const;
    /// The cell of the chosen row that carries the row's path and kind; null when no row is chosen.
    [[nodiscard]] const QTableWidgetItem *chosenRow() const;

    const Core::VaultManager &vault;
    const OperationGuard &guard;
    QString directory;
    int sortColumn = VaultTable::NameColumn;
    Qt::SortOrder sortOrder = Qt::AscendingOrder;
};

} // namespace Tessarin::UI
