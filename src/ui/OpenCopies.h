// Knows which files of the vault are open as decrypted copies, and hears when one of the copies is edited.
#pragma once

#include <QFileSystemWatcher>
#include <QHash>
#include <QObject>
#include <QString>

namespace Tessarin::Core {
class VaultManager;
}

namespace Tessarin::UI {

enum class CopyState {
    None,
    Open,   ///< The copy is as the vault has the file.
    Edited, ///< It goes back into the vault when that is locked.
};

class OpenCopies : public QObject
{
    Q_OBJECT

public:
    /// The vault outlives this.
    explicit OpenCopies(const Core::VaultManager &session);

    /// Looks at the copies that there are now; those are watched until the next time.
    void follow();

    [[nodiscard]] CopyState stateOf(const QString &vaultPath) const;

    /// Whether a copy of that file, or of one in that folder, is open.
    [[nodiscard]] bool hasAnyAt(const QString &path) const;

    /// Where an edited copy lies; empty when there is none. Asks the file system, which may know of an edit
    /// before this has heard of it.
    [[nodiscard]] QString editedCopyOf(const QString &vaultPath) const;

Q_SIGNALS:
    /// The state of a file may be another than before.
    void changed();

private:
    const Core::VaultManager &vault;
    QFileSystemWatcher watcher;
    QHash<QString, CopyState> states; ///< By the keys of the vault paths; those that are open.
};

} // namespace Tessarin::UI
