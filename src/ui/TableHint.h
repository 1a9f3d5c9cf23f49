// What an empty table tells people to do next.
#pragma once

#include <QString>

namespace Tessarin::UI {

/// What the hint depends on.
struct TableSituation
{
    bool isUnlocked = false;
    bool isFolderEmpty = false;
    QString containerPath = {}; ///< Empty: none chosen.
    QString driveRoot = {};     ///< Empty: none chosen.
    int mountedDrives = 0;
    int unmountedDrives = 0;
};

/// Empty where the table has something to show.
[[nodiscard]] QString tableHint(const TableSituation &now);

} // namespace Tessarin::UI
