// What the browser shows follows from the index, the folder and the sort; what it does while an operation
// runs is nothing.
#include "ui/VaultBrowser.h"

#include "core/VaultManager.h"
#include "core/VaultPath.h"
#include "ui/CopyMark.h"
#include "ui/OpenCopies.h"
#include "ui/OperationGuard.h"

#include <QFileInfo>
#include <QHash>
#include <QHeaderView>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QTableWidgetItem>

#include <algorithm>

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

/// QHeaderView measures every label, and in bold, which this header does not paint: a font loaded for
/// nothing. Its labels are of one height, so one of them is measured.
class TableHeader final : public QHeaderView
{
public:
    using QHeaderView::QHeaderView;

protected:
    QSize sectionSizeFromContents(int section) const override
    {
        if (section != VaultTable::NameColumn)
            return {};
        QStyleOptionHeaderV2 option;
        initStyleOption(&option);
        initStyleOptionForIndex(&option, section);
        return style()->sizeFromContents(QStyle::CT_HeaderSection, &option, {}, this);
    }
};

} // namespace

VaultBrowser::VaultBrowser(const Core::VaultManager &session, const OpenCopies &openFiles,
                           const OperationGuard &operations, QWidget *parent)
    : DropTable(parent), vault(session), copies(openFiles), guard(operations)
{
    buildHeader(); // First: through the table's style sheet, it would be measured at every step.
    build();
    connect(this, &QTableWidget::itemSelectionChanged, this, &VaultBrowser::followSelection);
    connect(this, &QTableWidget::itemDoubleClicked, this, &VaultBrowser::activate);
    connect(horizontalHeader(), &QHeaderView::sectionClicked, this, &VaultBrowser::sortByColumn);
    connect(this, &DropTable::dropped, this, &VaultBrowser::takeDrop);
    connect(&copies, &OpenCopies::changed, this, &VaultBrowser::markOpenCopies);
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
    setItemDelegateForColumn(VaultTable::IconColumn, new CopyMark(this));
    setStyleSheet(
        u"QTableWidget::item { border-bottom: 1px solid #d8d8d8; }"
        "QTableWidget::item:focus { outline: none; }"
        "QTableWidget::item:selected { background-color: palette(highlight); color: palette(highlighted-text); }"_s);
}

void VaultBrowser::buildHeader()
{
    auto *header = new TableHeader(Qt::Horizontal, this);
    setHorizontalHeader(header);
    setColumnCount(VaultTable::ColumnCount);
    setHorizontalHeaderLabels(
        {QString(), tr("Nome do arquivo"), tr("Tamanho"), tr("Tipo"), tr("Modificado em")});
    horizontalHeaderItem(VaultTable::IconColumn)->setData(Qt::AccessibleTextRole, tr("Ícone"));
    verticalHeader()->hide();

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

    const int scrolledTo = verticalScrollBar()->value();
    {
        const QSignalBlocker blocker(this);
        setUpdatesEnabled(false);
        setRowCount(0);
        if (isUnlocked())
            VaultTable::fill(*this, vault.fileIndex(), directory, sortColumn, sortOrder);
        markOpenCopies();
        executeDelayedItemsLayout();
        updateGeometries(); // Else the scroll bar would not yet reach that far.
        verticalScrollBar()->setValue(scrolledTo);
        setUpdatesEnabled(true);
    }
    Q_EMIT changed();
}

void VaultBrowser::showDirectory(const QString &path)
{
    const bool isAnother = !Core::vaultPathsEqual(path, directory);
    directory = path;
    refresh();
    if (isAnother)
        scrollToTop();
}

void VaultBrowser::markOpenCopies()
{
    for (int row = 0; row < rowCount(); ++row) {
        const QTableWidgetItem *name = item(row, VaultTable::NameColumn);
        if (isKind(name, VaultTableItemKind::File))
            VaultTable::mark(*this, row, copies.stateOf(pathOf(name)));
    }
}

void VaultBrowser::select(const QString &path)
{
    for (int row = 0; row < rowCount(); ++row) {
        const QTableWidgetItem *name = item(row, VaultTable::NameColumn);
        if (!isKind(name, VaultTableItemKind::ParentDirectory) && Core::vaultPathsEqual(pathOf(name), path))
            chooseRow(row);
    }
}

void VaultBrowser::chooseRow(int row)
{
    selectRow(row);
    scrollToItem(item(row, VaultTable::NameColumn));
}

void VaultBrowser::enterSelectedDirectory()
{
    if (const QString path = selectedDirectoryPath(); !path.isEmpty())
        showDirectory(path);
}

void VaultBrowser::navigateToParentDirectory()
{
    const QString left = directory;
    showDirectory(Core::parentVaultPath(directory));
    select(left);
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

void VaultBrowser::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        DropTable::mouseDoubleClickEvent(event);
}

bool VaultBrowser::isFolderEmpty() const
{
    return rowCount() == (directory.isEmpty() ? 0 : 1);
}

void VaultBrowser::describe(const QString &description, const QString &nextStep)
{
    hint = nextStep;
    const QString heard = QString(hint).replace(u'\n', u' ');
    setAccessibleDescription(hint.isEmpty() ? description : u"%1 | %2"_s.arg(description, heard));
    viewport()->update();
}

void VaultBrowser::paintEvent(QPaintEvent *event)
{
    DropTable::paintEvent(event);
    if (hint.isEmpty())
        return;
    QRect room = viewport()->rect();
    room.setTop(verticalHeader()->length()); // Below the rows, which are one at the most.
    QColor grey = palette().color(QPalette::Text);
    grey.setAlphaF(0.65F);
    QPainter painter(viewport());
    painter.setPen(grey);
    painter.drawText(room.adjusted(24, 0, -24, 0), Qt::AlignCenter | Qt::TextWordWrap, hint);
}

void VaultBrowser::moveSelection(Qt::Key key)
{
    if (rowCount() == 0)
        return;
    const int last = rowCount() - 1;
    const int page = std::max(1, viewport()->height() / rowHeight(0) - 1);
    // Without a chosen row, the first step goes to the first one or, upwards, to the last.
    const int row = currentRow();
    const int from = row >= 0 ? row : (key == Qt::Key_Up || key == Qt::Key_PageUp ? last + 1 : -1);
    const QHash<Qt::Key, int> targets{
        {Qt::Key_Up, from - 1},          {Qt::Key_Down, from + 1}, {Qt::Key_PageUp, from - page},
        {Qt::Key_PageDown, from + page}, {Qt::Key_Home, 0},        {Qt::Key_End, last}};
    chooseRow(std::clamp(targets.value(key, from), 0, last));
}

void VaultBrowser::selectByName(const QString &typed)
{
    if (rowCount() == 0)
        return;
    // The search goes on below the current cell and in its column, round by the first row.
    const bool hasChoice = currentRow() >= 0;
    setCurrentCell(hasChoice ? currentRow() : rowCount() - 1, VaultTable::NameColumn,
                   QItemSelectionModel::NoUpdate);
    keyboardSearch(typed);
    if (selectedItems().isEmpty())
        setCurrentCell(-1, -1, QItemSelectionModel::NoUpdate);
}

void VaultBrowser::activateSelection()
{
    activate(chosenRow());
}

void VaultBrowser::requestMenu()
{
    const QTableWidgetItem *row = chosenRow();
    if (row)
        scrollToItem(row);
    Q_EMIT customContextMenuRequested(row ? visualItemRect(row).center() : viewport()->rect().center());
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
