// What the browser shows follows from the index, the folder and the sort; what it does while an operation
// runs is nothing.
#include "ui/VaultBrowser.h"

#include "core/VaultManager.h"
#include "core/VaultPath.h"
#include "ui/OperationGuard.h"

#include <QFileInfo>
#include <QHeaderView>
#include <QSignalBlocker>
#include <QTableWidgetItem>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

bool isKind(const QTableWidgetItem *row, VaultTableItemKind kind)
{
    return row && row->data(VaultTable::KindRole).toInt() == static_cast<int>(kind);
}

QString pathOf(const QTableWidgetItem *row)
{
    return row->data(VaultTable::PathRole).toString();
}

/// Their paths; nothing when a folder or an address of the network is among them.
std::optional<QStringList> localFiles(const QList<QUrl> &urls)
{
    QStringList paths;
    for (const QUrl &url : urls) {
        const QString path = url.toLocalFile();
        if (path.isEmpty() || QFileInfo(path).isDir())
            return std::nullopt;
        paths.append(path);
    }
    return paths;
}

} // namespace

VaultBrowser::VaultBrowser(const Core::VaultManager &session, const OperationGuard &operations,
                           QWidget *parent)
    : FilesTable(VaultTable::ColumnCount, parent), vault(session), guard(operations)
{
    build();
    buildHeader();
    connect(this, &QTableWidget::itemSelectionChanged, this, &VaultBrowser::followSelection);
    connect(this, &QTableWidget::itemDoubleClicked, this, &VaultBrowser::activate);
    connect(horizontalHeader(), &QHeaderView::sectionClicked, this, &VaultBrowser::sortByColumn);
    connect(this, &FilesTable::dropped, this, &VaultBrowser::takeDrop);
}

void VaultBrowser::build()
{
    setObjectName(u"filesTable"_s);
    setAccessibleName(tr("Arquivos protegidos"));
    setMinimumHeight(220);
    setContextMenuPolicy(Qt::CustomContextMenu);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setFocusPolicy(Qt::NoFocus);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setAlternatingRowColors(true);
    setShowGrid(false);
    setWordWrap(false);
    // The size the pages are painted in: scaled down, their labels cannot be read.
    setIconSize({22, 22});
    setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setStyleSheet(
        u"QTableWidget::item { border-bottom: 1px solid #d8d8d8; }"
        "QTableWidget::item:focus { outline: none; }"
        "QTableWidget::item:selected { background-color: palette(highlight); color: palette(highlighted-text); }"_s);
}

void VaultBrowser::buildHeader()
{
    setHorizontalHeaderLabels(
        {QString(), tr("Nome do arquivo"), tr("Tamanho"), tr("Tipo"), tr("Modificado em")});
    horizontalHeaderItem(VaultTable::IconColumn)->setData(Qt::AccessibleTextRole, tr("Ícone"));
    verticalHeader()->hide();

    QHeaderView *header = horizontalHeader();
    header->setStretchLastSection(false);
    header->setSectionsClickable(true);
    header->setHighlightSections(false);
    header->setSortIndicatorShown(true);
    header->setSortIndicator(sortColumn, sortOrder);
    header->setSectionResizeMode(QHeaderView::Fixed);
    header->setSectionResizeMode(VaultTable::NameColumn, QHeaderView::Stretch);
    setColumnWidth(VaultTable::IconColumn, 28);
    setColumnWidth(VaultTable::SizeColumn, 110);
    setColumnWidth(VaultTable::TypeColumn, 70);
    setColumnWidth(VaultTable::DateColumn, 140);
}

bool VaultBrowser::isUnlocked() const
{
    return vault.state() == Core::VaultManager::Unlocked;
}

void VaultBrowser::refresh()
{
    if (!isUnlocked())
        directory.clear();

    {
        const QSignalBlocker blocker(this);
        setUpdatesEnabled(false);
        setRowCount(0);
        clearSelection();
        setCurrentCell(-1, -1);
        if (isUnlocked())
            VaultTable::fill(*this, vault.fileIndex(), directory, sortColumn, sortOrder);
        setUpdatesEnabled(true);
    }
    Q_EMIT changed();
}

void VaultBrowser::showDirectory(const QString &path)
{
    directory = path;
    refresh();
}

void VaultBrowser::enterSelectedDirectory()
{
    if (const QString path = selectedDirectoryPath(); !path.isEmpty())
        showDirectory(path);
}

void VaultBrowser::navigateToParentDirectory()
{
    showDirectory(Core::parentVaultPath(directory));
}

void VaultBrowser::sortByColumn(int column)
{
    if (guard.isRunning())
        return;
    const bool isSortable = column != VaultTable::IconColumn;
    if (isSortable && column != sortColumn) {
        sortColumn = column;
        sortOrder = Qt::AscendingOrder;
    } else if (isSortable) {
        sortOrder = sortOrder == Qt::AscendingOrder ? Qt::DescendingOrder : Qt::AscendingOrder;
    }
    // The header has moved its indicator to the clicked column, the icons' one too.
    horizontalHeader()->setSortIndicator(sortColumn, sortOrder);
    if (isSortable)
        refresh();
}

void VaultBrowser::followSelection()
{
    // A row can lose its highlight and stay the current one, and a screen reader highlights a row without
    // making it current: operations must work on what is seen.
    const QList<QTableWidgetItem *> selected = selectedItems();
    const int row = selected.isEmpty() ? -1 : selected.constFirst()->row();
    if (row != currentRow())
        setCurrentCell(row, row < 0 ? -1 : VaultTable::NameColumn, QItemSelectionModel::NoUpdate);
    Q_EMIT changed();
}

const QTableWidgetItem *VaultBrowser::chosenRow() const
{
    return currentRow() < 0 ? nullptr : item(currentRow(), VaultTable::NameColumn);
}

QString VaultBrowser::selectedVaultPath() const
{
    const QTableWidgetItem *row = chosenRow();
    return isKind(row, VaultTableItemKind::File) ? pathOf(row) : QString();
}

QString VaultBrowser::selectedDirectoryPath() const
{
    return selectedItemIsDirectory() || selectedItemIsParentDirectory() ? pathOf(chosenRow()) : QString();
}

bool VaultBrowser::selectedItemIsDirectory() const
{
    return isKind(chosenRow(), VaultTableItemKind::Directory);
}

bool VaultBrowser::selectedItemIsParentDirectory() const
{
    return isKind(chosenRow(), VaultTableItemKind::ParentDirectory);
}

void VaultBrowser::activate(const QTableWidgetItem *cell)
{
    if (!cell || guard.isRunning())
        return;
    const QTableWidgetItem *row = item(cell->row(), VaultTable::NameColumn);
    if (isKind(row, VaultTableItemKind::ParentDirectory))
        navigateToParentDirectory();
    else if (isKind(row, VaultTableItemKind::Directory))
        enterSelectedDirectory();
    else
        Q_EMIT fileActivated();
}

std::optional<DropRefusal> VaultBrowser::currentDropRefusal() const
{
    if (guard.isRunning())
        return DropRefusal::OperationRunning;
    if (!isUnlocked())
        return DropRefusal::VaultLocked;
    return std::nullopt;
}

void VaultBrowser::takeDrop(const QList<QUrl> &urls, int row)
{
    const QString target = row < 0 ? directory : pathOf(item(row, VaultTable::NameColumn));
    const auto examine = [=, this] {
        const std::optional<QStringList> sources = localFiles(urls);
        if (!sources)
            Q_EMIT dropRefused(DropRefusal::NotOnlyLocalFiles);
        else if (!sources->isEmpty())
            Q_EMIT importRequested(*sources, target);
    };
    // Not at once: the program that the files come from waits until the drop is over.
    QMetaObject::invokeMethod(this, examine, Qt::QueuedConnection);
}

} // namespace Tessarin::UI
