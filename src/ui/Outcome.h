// How an operation ended, as people are to see it. The operations say it, MainWindow::conclude() shows it.
#pragma once

#include <QString>

namespace Tessarin::UI {

struct Outcome
{
    bool contentsChanged = false;  ///< The folder on show is read anew.
    bool freeSpaceChanged = false; ///< The list of drives, too.

    // Empty texts are not shown.
    QString title = {};   ///< Of the boxes; empty is the program's name.
    QString warning = {}; ///< Shown before the status, so that this is what stays.
    QString status = {};
    QString information = {}; ///< Shown after the status.
    QString details = {};     ///< A paragraph of its own in either box.
};

} // namespace Tessarin::UI
