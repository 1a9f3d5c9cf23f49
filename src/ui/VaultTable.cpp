// The rows of the vault table: chosen, sorted and written from the index at every refresh.
#include "ui/VaultTable.h"

#include "core/VaultPath.h"
#include "ui/Formatting.h"
#include "ui/Translated.h"
#include "ui/VaultItemIcon.h"

#include <QHash>
#include <QIcon>
#include <QTableWidget>
#include <QTableWidgetItem>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI::VaultTable {
namespace {

template <typename Value>
int compareValues(const Value &a, const Value &b)
{
    if (a < b)
        return -1;
    return b < a ? 1 : 0;
}

int compareBaseNames(const QString &a, const QString &b)
{
    return QString::compare(Core::vaultBaseName(a), Core::vaultBaseName(b), Qt::CaseInsensitive);
}

template <typename Entry>
QList<Entry> entriesInside(const QList<Entry> &entries, QString Entry::*path, const QString &directory)
{
    QList<Entry> inside;
    std::ranges::copy_if(entries, std::back_inserter(inside), [&](const Entry &entry) {
        return Core::vaultPathsEqual(Core::parentVaultPath(entry.*path), directory);
    });
    return inside;
}

template <typename Entry>
void sortVaultRows(QList<Entry> &rows, int (*compare)(const Entry &, const Entry &, int), int column,
                   Qt::SortOrder order)
{
    std::ranges::stable_sort(rows, [=](const Entry &a, const Entry &b) {
        const int result = compare(a, b, column);
        return order == Qt::AscendingOrder ? result < 0 : result > 0;
    });
}

/// What one row shows and stands for.
struct Row
{
    VaultTableItemKind kind = VaultTableItemKind::File;
    QString path;
    QString name;
    QIcon icon;
    QString sizeText;
    QString typeText;
    QString dateText;
};

/// The icon's meaning in words, for screen readers.
QString kindText(VaultTableItemKind kind)
{
    switch (kind) {
    case VaultTableItemKind::ParentDirectory:
        return translated("Pasta superior");
    case VaultTableItemKind::Directory:
        return translated("Pasta");
    case VaultTableItemKind::File:
        break;
    }
    return translated("Arquivo");
}

void writeRow(QTableWidget &table, int rowNumber, const Row &row)
{
    auto *iconItem = new QTableWidgetItem(row.icon, QString());
    iconItem->setTextAlignment(Qt::AlignCenter);
    iconItem->setData(Qt::AccessibleTextRole, kindText(row.kind));

    auto *nameItem = new QTableWidgetItem(row.name);
    nameItem->setToolTip(plainToolTip(row.name));
    for (QTableWidgetItem *item : {iconItem, nameItem}) {
        item->setData(PathRole, row.path);
        item->setData(KindRole, static_cast<int>(row.kind));
    }

    auto *sizeItem = new QTableWidgetItem(row.sizeText);
    sizeItem->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    auto *typeItem = new QTableWidgetItem(row.typeText);
    typeItem->setTextAlignment(Qt::AlignCenter);
    auto *dateItem = new QTableWidgetItem(row.dateText);
    dateItem->setTextAlignment(Qt::AlignCenter);
    if (row.kind == VaultTableItemKind::File) {
        for (QTableWidgetItem *item : {sizeItem, typeItem, dateItem})
            item->setData(PathRole, row.path);
    }

    for (QTableWidgetItem *item : {sizeItem, typeItem, dateItem}) {
        // The columns keep their widths in every font, and may cut the text.
        item->setToolTip(plainToolTip(item->text()));
    }
    // Else a screen reader calls them blank.
    if (row.sizeText.isEmpty())
        sizeItem->setData(Qt::AccessibleTextRole, translated("sem tamanho"));
    if (row.dateText.isEmpty())
        dateItem->setData(Qt::AccessibleTextRole, translated("sem data"));

    table.setItem(rowNumber, IconColumn, iconItem);
    table.setItem(rowNumber, NameColumn, nameItem);
    table.setItem(rowNumber, SizeColumn, sizeItem);
    table.setItem(rowNumber, TypeColumn, typeItem);
    table.setItem(rowNumber, DateColumn, dateItem);
}

Row parentRow(const QString &directory)
{
    return {.kind = VaultTableItemKind::ParentDirectory,
            .path = Core::parentVaultPath(directory),
            .name = u".."_s,
            .icon = vaultItemIcon(VaultTableItemKind::ParentDirectory, directory),
            .sizeText = {},
            .typeText = translated("Pasta"),
            .dateText = {}};
}

Row directoryRow(const Core::VaultDirectoryEntry &entry, const QIcon &icon)
{
    return {.kind = VaultTableItemKind::Directory,
            .path = entry.path,
            .name = shownName(Core::vaultBaseName(entry.path)),
            .icon = icon,
            .sizeText = {},
            .typeText = translated("Pasta"),
            .dateText = formatFileDate(entry.modifiedUtc)};
}

Row fileRow(const Core::VaultFileEntry &entry, const QString &type, const QIcon &icon)
{
    return {.kind = VaultTableItemKind::File,
            .path = entry.vaultPath,
            .name = shownName(Core::vaultBaseName(entry.vaultPath)),
            .icon = icon,
            .sizeText = formatFileSize(entry.sizeBytes),
            .typeText = type,
            .dateText = formatFileDate(entry.lastModifiedUtc)};
}

} // namespace

int compareFileRows(const Core::VaultFileEntry &a, const Core::VaultFileEntry &b, int column)
{
    int result = 0;
    if (column == SizeColumn)
        result = compareValues(a.sizeBytes, b.sizeBytes);
    else if (column == TypeColumn)
        result =
            QString::compare(fileTypeLabel(a.vaultPath), fileTypeLabel(b.vaultPath), Qt::CaseInsensitive);
    else if (column == DateColumn)
        result = compareValues(a.lastModifiedUtc, b.lastModifiedUtc);
    return result != 0 ? result : compareBaseNames(a.vaultPath, b.vaultPath);
}

int compareDirectoryRows(const Core::VaultDirectoryEntry &a, const Core::VaultDirectoryEntry &b, int column)
{
    const int result = column == DateColumn ? compareValues(a.modifiedUtc, b.modifiedUtc) : 0;
    return result != 0 ? result : compareBaseNames(a.path, b.path);
}

QList<Core::VaultDirectoryEntry> directoriesToShow(const Core::SecureFileIndex &index,
                                                   const QString &directory, int column, Qt::SortOrder order)
{
    auto rows = entriesInside(index.directories(), &Core::VaultDirectoryEntry::path, directory);
    sortVaultRows(rows, compareDirectoryRows, column, order);
    return rows;
}

QList<Core::VaultFileEntry> filesToShow(const Core::SecureFileIndex &index, const QString &directory,
                                        int column, Qt::SortOrder order)
{
    auto rows = entriesInside(index.entries(), &Core::VaultFileEntry::vaultPath, directory);
    sortVaultRows(rows, compareFileRows, column, order);
    return rows;
}

void fill(QTableWidget &table, const Core::SecureFileIndex &index, const QString &directory, int column,
          Qt::SortOrder order)
{
    const QList<Core::VaultDirectoryEntry> directories = directoriesToShow(index, directory, column, order);
    const QList<Core::VaultFileEntry> files = filesToShow(index, directory, column, order);

    const bool isRoot = directory.isEmpty();
    table.setRowCount(static_cast<int>(directories.size() + files.size() + (isRoot ? 0 : 1)));
    int rowNumber = 0;
    if (!isRoot)
        writeRow(table, rowNumber++, parentRow(directory));

    const QIcon folderIcon = vaultItemIcon(VaultTableItemKind::Directory, {});
    for (const Core::VaultDirectoryEntry &entry : directories)
        writeRow(table, rowNumber++, directoryRow(entry, folderIcon));

    // One look-up in the desktop's icon theme a type, not one a file.
    QHash<QString, QIcon> iconByType;
    for (const Core::VaultFileEntry &entry : files) {
        const QString type = fileTypeLabel(entry.vaultPath);
        auto icon = iconByType.constFind(type);
        if (icon == iconByType.constEnd())
            icon = iconByType.insert(type, vaultItemIcon(VaultTableItemKind::File, entry.vaultPath));
        writeRow(table, rowNumber++, fileRow(entry, type, *icon));
    }
}

void mark(QTableWidget &table, int rowNumber, CopyState state)
{
    QString words;
    QString note;
    if (state == CopyState::Open) {
        words = translated("Arquivo, aberto para edição");
        note = translated("Aberto para edição. O que você salvar nele volta para o cofre quando o cofre for "
                          "bloqueado.");
    } else if (state == CopyState::Edited) {
        words = translated("Arquivo, editado e ainda não gravado no cofre");
        note =
            translated("Editado. As alterações ainda não estão no cofre: elas são gravadas nele quando ele "
                       "for bloqueado.");
    } else {
        words = kindText(VaultTableItemKind::File);
    }
    QTableWidgetItem *iconItem = table.item(rowNumber, IconColumn);
    QTableWidgetItem *nameItem = table.item(rowNumber, NameColumn);
    iconItem->setData(CopyStateRole, static_cast<int>(state));
    iconItem->setData(Qt::AccessibleTextRole, words);
    iconItem->setToolTip(note);
    nameItem->setData(Qt::AccessibleDescriptionRole, note);
    const QString name = nameItem->text();
    nameItem->setToolTip(plainToolTip(note.isEmpty() ? name : name + u'\n' + note));
}

} // namespace Tessarin::UI::VaultTable
