// The rows of the vault table: which entries a folder shows, in what order, and how a row is written. Free
// functions over the index and the table widget; the window decides when.
#pragma once

#include "core/SecureFileIndex.h"
#include "ui/OpenCopies.h"
#include "ui/VaultTableItemKind.h"

#include <QList>
#include <QString>
#include <Qt>

class QTableWidget;

namespace Tessarin::UI {

namespace VaultTable {

enum Column : int {
    IconColumn = 0,
    NameColumn = 1,
    SizeColumn = 2,
    TypeColumn = 3,
    DateColumn = 4,
    ColumnCount = 5
};

inline constexpr int PathRole = Qt::UserRole;
inline constexpr int KindRole = Qt::UserRole + 1;
inline constexpr int CopyStateRole = Qt::UserRole + 2; ///< Of the icon's cell.

/// Negative, zero or positive, as the first sorts before, with or after the second in that column.
[[nodiscard]] int compareFileRows(const Core::VaultFileEntry &a, const Core::VaultFileEntry &b, int column);
[[nodiscard]] int compareDirectoryRows(const Core::VaultDirectoryEntry &a, const Core::VaultDirectoryEntry &b,
                                       int column);

/// The entries right inside `directory` (letter case ignored), stably sorted.
[[nodiscard]] QList<Core::VaultDirectoryEntry> directoriesToShow(const Core::SecureFileIndex &index,
                                                                 const QString &directory, int column,
                                                                 Qt::SortOrder order);
[[nodiscard]] QList<Core::VaultFileEntry>
filesToShow(const Core::SecureFileIndex &index, const QString &directory, int column, Qt::SortOrder order);

/// Fills an emptied table with the folder's rows: the way up, the folders, the files.
void fill(QTableWidget &table, const Core::SecureFileIndex &index, const QString &directory, int column,
          Qt::SortOrder order);

/// Shows on a row whether its file is open for editing or edited, and says it to people who point at the row
/// or hear it.
void mark(QTableWidget &table, int rowNumber, CopyState state);

} // namespace VaultTable
} // namespace Tessarin::UI
