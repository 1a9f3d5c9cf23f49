// What people can start from the window: the actions, where they stand in the menus, and when each of them
// can be used.
#pragma once

#include <QCoreApplication>

class QAction;
class QMenu;
class QMenuBar;

namespace Tessarin::UI {

/// The actions are children of the menus, and live as long as the menu bar.
class WindowActions
{
    Q_DECLARE_TR_FUNCTIONS(Tessarin::UI::MainWindow)

public:
    explicit WindowActions(QMenuBar *bar);

    /// What the usable actions depend on.
    struct Situation
    {
        bool hasContainer = false;
        bool isUnlocked = false;
        bool hasChosenFile = false;
        bool hasChosenDirectory = false;
        bool hasAnyDirectory = false; ///< In the whole vault.
    };
    void update(const Situation &now);

    /// Those for the rows of the table.
    void addTo(QMenu &tableMenu, bool hasChosenFile) const;

    QAction *exit = nullptr;
    QAction *refreshDevices = nullptr;
    QAction *chooseContainer = nullptr;
    QAction *createVault = nullptr;
    QAction *backup = nullptr;
    QAction *changePassword = nullptr;
    QAction *unlock = nullptr;
    QAction *lock = nullptr;
    QAction *createDirectory = nullptr;
    QAction *importFiles = nullptr;
    QAction *exportFile = nullptr;
    QAction *openFile = nullptr;
    QAction *moveFile = nullptr;
    QAction *renameFile = nullptr;
    QAction *renameDirectory = nullptr;
    QAction *deleteDirectory = nullptr;
    QAction *deleteFile = nullptr;
    QAction *compact = nullptr;
    QAction *help = nullptr;
    QAction *webPage = nullptr;
    QAction *about = nullptr;

private:
    void buildFileMenu(QMenuBar *bar);
    void buildUsbMenu(QMenuBar *bar);
    void buildAccessMenu(QMenu *usbMenu);
    void buildProtectedFilesMenu(QMenu *accessMenu);
    void buildAboutMenu(QMenuBar *bar);
};

} // namespace Tessarin::UI
