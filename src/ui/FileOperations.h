// What people do with single files and folders of the vault: each operation asks what it needs to know,
// checks names against the index and calls the engine once. Which item is meant, and showing how it ended, is
// the window's part.
#pragma once

#include "core/Failure.h"
#include "ui/Outcome.h"

#include <QCoreApplication>

#include <functional>

class QWidget;

namespace Tessarin::Core {
class VaultManager;
}

namespace Tessarin::UI {

class OpenCopies;

class FileOperations
{
    Q_DECLARE_TR_FUNCTIONS(Tessarin::UI::MainWindow)

public:
    /// The parent of the dialogs, the vault, and what is open of it; all outlive this.
    FileOperations(QWidget *dialogParent, Core::VaultManager &session, const OpenCopies &openFiles)
        : parent(dialogParent), vault(session), copies(openFiles)
    {
    }

    // Paths are vault paths. An outcome without any text means that the user changed their mind.

    /// Of an edited file the user may choose the copy. The container is no target.
    [[nodiscard]] Outcome exportFile(const QString &path, const QString &containerPath) const;
    [[nodiscard]] Outcome deleteFile(const QString &path);
    [[nodiscard]] Outcome moveFile(const QString &path);
    [[nodiscard]] Outcome renameFile(const QString &path);
    [[nodiscard]] Outcome createDirectory(const QString &parentDirectory);
    /// `newPath` receives the folder's new path when it was renamed.
    [[nodiscard]] Outcome renameDirectory(const QString &path, QString *newPath);
    [[nodiscard]] Outcome deleteDirectory(const QString &path);

    /// Where the decrypted copy lies; empty when there is none. Asks before it gives an edit up.
    [[nodiscard]] QString prepareForEditing(const QString &path);

    /// Nothing has opened the copy.
    [[nodiscard]] static Outcome failedOpening();

    /// For a question about a file: that it was edited, and what becomes of the edit. Empty when it was not.
    [[nodiscard]] QString editNote(const QString &path, const QString &consequence) const;

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
    [[nodiscard]] Core::Failure exportCopy(const QString &copyPath, const QString &target,
                                           const QString &containerPath,
                                           const std::function<void(qint64, qint64)> &report) const;
    [[nodiscard]] QString whyNotRelocated(const QString &path) const;

    QWidget *parent;
    Core::VaultManager &vault;
    const OpenCopies &copies;
};

} // namespace Tessarin::UI
