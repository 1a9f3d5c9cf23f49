// The table of the window: when it is rebuilt, which row is chosen, and how people walk through the folders.
#include "ui/MainWindow.h"

#include "core/VaultPath.h"
#include "ui/FilesTable.h"
#include "ui/Formatting.h"

#include <QAction>
#include <QFontMetrics>
#include <QHeaderView>
#include <QLabel>
#include <QLayout>
#include <QMenu>
#include <QSignalBlocker>
#include <QTableWidgetItem>

namespace Tessarin::UI {
namespace {

/// The item of the current row that carries the row's path and kind; null when no row is current.
const QTableWidgetItem *currentRowItem(const QTableWidget &table)
{
    return table.currentRow() < 0 ? nullptr : table.item(table.currentRow(), VaultTable::NameColumn);
}

bool isKind(const QTableWidgetItem *item, VaultTableItemKind kind)
{
    return item && item->data(VaultTable::KindRole).toInt() == static_cast<int>(kind);
}

QString pathOf(const QTableWidgetItem *item)
{
    return item->data(VaultTable::PathRole).toString();
}

} // namespace

void MainWindow::refreshVaultFiles()
{
    // A locked vault has no folder on show, and the next one opened starts at its root.
    if (!isUnlocked())
        currentDirectory.clear();

    const QSignalBlocker blocker(filesTable);
    filesTable->setUpdatesEnabled(false);
    filesTable->setRowCount(0);
    filesTable->clearSelection();
    filesTable->setCurrentCell(-1, -1);
    updateProtectedFilesLabel();
    if (isUnlocked())
        VaultTable::fill(*filesTable, vaultManager.fileIndex(), currentDirectory, sortColumn, sortOrder);
    filesTable->setUpdatesEnabled(true);
}

void MainWindow::updateProtectedFilesLabel()
{
    if (!protectedFilesLabel)
        return;
    if (!isUnlocked()) {
        protectedFilesLabel->setText(tr("Nenhum cofre em uso (aberto)"));
        protectedFilesLabel->setToolTip({});
        describeTable(protectedFilesLabel->text());
        return;
    }
    const qsizetype fileCount = vaultManager.fileIndex().entries().size();
    QString countText = tr("%1 arquivos no cofre.").arg(fileCount);
    if (fileCount == 0)
        countText = tr("O cofre está vazio.");
    else if (fileCount == 1)
        countText = tr("1 arquivo no cofre.");
    const QString folder = currentDirectory.isEmpty() ? tr("Raiz") : currentDirectory;
    const QString text = tr("Arquivos protegidos | Pasta: %1 | %2");
    const QFontMetrics metrics = protectedFilesLabel->fontMetrics();
    const QMargins margins = centralWidget()->layout()->contentsMargins();
    const int room = centralWidget()->width() - margins.left() - margins.right() -
                     metrics.horizontalAdvance(text.arg(QString(), countText));
    const QString shownFolder = metrics.elidedText(folder, Qt::ElideMiddle, room);
    protectedFilesLabel->setText(text.arg(shownFolder, countText));
    protectedFilesLabel->setToolTip(shownFolder == folder ? QString() : plainToolTip(folder));
    describeTable(text.arg(folder, countText));
}

void MainWindow::describeTable(const QString &text)
{
    protectedFilesLabel->setAccessibleName(text); // Unlike the label's text, not cut.
    filesTable->setAccessibleDescription(text);
}

void MainWindow::followTableSelection()
{
    // A row can lose its highlight and stay the current one, and a screen reader highlights a row without
    // making it current: operations must work on what is seen.
    const QList<QTableWidgetItem *> selected = filesTable->selectedItems();
    const int row = selected.isEmpty() ? -1 : selected.constFirst()->row();
    if (row != filesTable->currentRow())
        filesTable->setCurrentCell(row, row < 0 ? -1 : VaultTable::NameColumn, QItemSelectionModel::NoUpdate);
    updateActions();
}

QString MainWindow::selectedVaultPath() const
{
    const QTableWidgetItem *item = currentRowItem(*filesTable);
    return isKind(item, VaultTableItemKind::File) ? pathOf(item) : QString();
}

QString MainWindow::selectedDirectoryPath() const
{
    return selectedItemIsDirectory() || selectedItemIsParentDirectory() ? pathOf(currentRowItem(*filesTable))
                                                                        : QString();
}

bool MainWindow::selectedItemIsDirectory() const
{
    return isKind(currentRowItem(*filesTable), VaultTableItemKind::Directory);
}

bool MainWindow::selectedItemIsParentDirectory() const
{
    return isKind(currentRowItem(*filesTable), VaultTableItemKind::ParentDirectory);
}

void MainWindow::enterSelectedDirectory()
{
    const QString directory = selectedDirectoryPath();
    if (directory.isEmpty())
        return;
    currentDirectory = directory;
    refreshVaultFiles();
    updateActions();
}

void MainWindow::navigateToParentDirectory()
{
    currentDirectory = Core::parentVaultPath(currentDirectory);
    refreshVaultFiles();
    updateActions();
}

void MainWindow::sortByColumn(int column)
{
    const bool isSortable = column != VaultTable::IconColumn;
    if (isSortable && column != sortColumn) {
        sortColumn = column;
        sortOrder = Qt::AscendingOrder;
    } else if (isSortable) {
        sortOrder = sortOrder == Qt::AscendingOrder ? Qt::DescendingOrder : Qt::AscendingOrder;
    }
    // The header has moved its indicator to the clicked column, the icons' one too.
    filesTable->horizontalHeader()->setSortIndicator(sortColumn, sortOrder);
    if (!isSortable)
        return;
    refreshVaultFiles();
    updateActions();
}

void MainWindow::openTableItem(QTableWidgetItem *item)
{
    if (!item)
        return;
    const QTableWidgetItem *rowItem = filesTable->item(item->row(), VaultTable::NameColumn);
    if (isKind(rowItem, VaultTableItemKind::ParentDirectory))
        run(&MainWindow::navigateToParentDirectory);
    else if (isKind(rowItem, VaultTableItemKind::Directory))
        run(&MainWindow::enterSelectedDirectory);
    else if (openAction->isEnabled())
        run(&MainWindow::openSelectedFile);
}

void MainWindow::showTableMenu(const QPoint &position)
{
    const QModelIndex index = filesTable->indexAt(position);
    if (index.isValid())
        filesTable->selectRow(index.row());
    updateActions();

    QMenu menu(this);
    menu.setAccessibleName(tr("Arquivos protegidos"));
    menu.addActions({createDirectoryAction, renameDirectoryAction, deleteDirectoryAction});
    menu.addSeparator();
    menu.addActions({importAction, exportAction, openAction});
    if (!selectedVaultPath().isEmpty())
        menu.addActions({moveFileAction, renameFileAction});
    menu.addSeparator();
    menu.addAction(deleteFileAction);
    menu.exec(filesTable->viewport()->mapToGlobal(position));
}

bool MainWindow::takesDrops()
{
    if (guard.isRunning())
        return false;
    if (!isUnlocked())
        setStatusMessage(tr("Desbloqueie o cofre para importar arquivos."), statusTimeoutMs);
    return isUnlocked();
}

void MainWindow::takeDrop(const QList<QUrl> &urls, int row)
{
    const QString directory =
        row < 0 ? currentDirectory : pathOf(filesTable->item(row, VaultTable::NameColumn));
    // Not at once: the program that the files come from waits until the drop is over.
    const auto import = [=, this] { run([&] { importDropped(urls, directory); }); };
    QMetaObject::invokeMethod(this, import, Qt::QueuedConnection);
}

} // namespace Tessarin::UI
