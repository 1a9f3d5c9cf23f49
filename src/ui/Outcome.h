// How an operation ended, as people are to see it. The operations say it, MainWindow::conclude() shows it.
#pragma once

#include <QList>
#include <QString>

namespace Tessarin::UI {

/// What a box says.
struct Notice
{
    QString text;         ///< Empty: there is no box.
    QString details = {}; ///< A paragraph of its own; may be empty.
};

struct Outcome
{
    bool contentsChanged = false;  ///< The folder on show is read anew.
    bool freeSpaceChanged = false; ///< The list of drives, too.

    QString itemToShow = {}; ///< Vault path of what is new; chosen where the folder on show has it.

    // Empty texts are not shown.
    QString title = {};          ///< Of the boxes; empty is the program's name.
    QList<Notice> warnings = {}; ///< What failed. Shown before the status, so that this is what stays.
    QString status = {};
    Notice information = {}; ///< Shown after the status.
};

} // namespace Tessarin::UI
