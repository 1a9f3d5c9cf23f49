// The desktop's dialogs for files, which leave no trace: Qt would write the places that were visited into a
// file of the user's.
#pragma once

#include <QString>
#include <QStringList>

class QWidget;

namespace Tessarin::UI {

// Each is empty when the user has changed their mind. An empty filter shows all files.

[[nodiscard]] QString askForFile(QWidget *parent, const QString &title, const QString &directory,
                                 const QString &filter);
[[nodiscard]] QStringList askForFiles(QWidget *parent, const QString &title);

enum class Overwriting {
    Questioned, ///< By the dialog.
    Allowed,    ///< The caller asks.
};

/// `proposal` is a path, or a name for the folder that was visited last.
[[nodiscard]] QString askForTarget(QWidget *parent, const QString &title, const QString &proposal,
                                   const QString &filter, Overwriting overwriting = Overwriting::Questioned);

} // namespace Tessarin::UI
