// What people do with single files and folders of the vault: each operation asks what it needs to know,
// checks names against the index and calls the engine once. Which item is meant, and showing how it ended, is
// the window's part.
#pragma once

#include "ui/Outcome.h"

#include <QCoreApplication>

class QWidget;

namespace Tessarin::Core {
class VaultManager;
}

namespace Tessarin::UI {

class FileOperations
{
    Q_DECLARE_TR_FUNCTIONS(Tessarin::UI::MainWindow)

public:
    /// The parent of the dialogs, and the vault; both outlive this.
    FileOperations(QWidget *dialogParent, Core::VaultManager &session) : parent(dialogParent), vault(session)
    {
    }

    // Paths are vault paths. An outcome without any text means that the user changed their mind.

    [[nodiscard]] Outcome exportFile(const QString &path) const;
    [[nodiscard]] Outcome deleteFile(const QString &path);
    [[nodiscard]] Outcome moveFile(const QString &path);
    [[nodiscard]] Outcome renameFile(const QString &path);
    [[nodiscard]] Outcome createDirectory(const QString &parentDirectory);
    /// `newPath` receives the folder's new path when it was renamed.
    [[nodiscard]] Outcome renameDirectory(const QString &path, QString *newPath);
    [[nodiscard]] Outcome deleteDirectory(const QString &path);

    /// Where the decrypted copy lies; empty when there is none.
    [[nodiscard]] QString prepareForEditing(const QString &path);

private:
    /// A typed name, without white space around it, or why it cannot be.
    struct NewName
    {
        QString path = {}; ///< Of the item under that name; empty when there is none.
        Outcome refusal = {};
    };
    /// Asks for the name of an item in a folder; `formerName` is proposed.
    [[nodiscard]] NewName askForName(const QString &title, const QString &prompt, const QString &formerName,
                                     const QString &directory, const QString &nameRule) const;
    [[nodiscard]] static QString directoryNameRule();
    [[nodiscard]] bool hasItem(const QString &path) const;

    QWidget *parent;
    Core::VaultManager &vault;
};

} // namespace Tessarin::UI
