// What people do with the vault as a whole, but for locking it (VaultLocking.h): each operation works under a
// progress display or the wait cursor, calls the engine and says how it ended.
#pragma once

#include "ui/Outcome.h"

#include <QByteArray>
#include <QCoreApplication>

class QWidget;

namespace Tessarin::Core {
class VaultManager;
}

namespace Tessarin::UI {

class VaultOperations
{
    Q_DECLARE_TR_FUNCTIONS(Tessarin::UI::MainWindow)

public:
    /// The parent of the dialogs, and the vault; both outlive this.
    VaultOperations(QWidget *dialogParent, Core::VaultManager &session) : parent(dialogParent), vault(session)
    {
    }

    /// The password is wiped. One that had a line break behind it is tried with it as well.
    [[nodiscard]] Outcome unlock(const QString &containerPath, QByteArray &&password, bool hadLineBreak);
    /// Asks for both passwords.
    [[nodiscard]] Outcome changePassword(const QString &containerPath);
    [[nodiscard]] Outcome compact();

private:
    QWidget *parent;
    Core::VaultManager &vault;
};

/// Where the vault of a container may be after a compaction that broke off; empty when nothing points to one.
[[nodiscard]] QString compactionTwinNote(const QString &containerPath);

} // namespace Tessarin::UI
