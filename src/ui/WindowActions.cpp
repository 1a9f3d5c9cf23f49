// Object names and accessible names are how tests and screen readers find menus and actions.
#include "ui/WindowActions.h"

#include <QAction>
#include <QKeySequence>
#include <QMenu>
#include <QMenuBar>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

QAction *makeAction(QMenu *menu, const QString &name, const QString &text, const QKeySequence &shortcut = {})
{
    QAction *action = menu->addAction(text);
    action->setObjectName(name);
    action->setShortcut(shortcut);
    action->setAutoRepeat(false); // A key that is held down starts one thing, once.
    // Else Qt reads some words as a reason to move the entry to another menu, on desktops that have one.
    action->setMenuRole(QAction::NoRole);
    return action;
}

template <typename Parent>
QMenu *makeMenu(Parent *parent, const QString &name, const QString &text)
{
    QMenu *menu = parent->addMenu(text);
    menu->setObjectName(name);
    menu->setAccessibleName(text);
    return menu;
}

} // namespace

WindowActions::WindowActions(QMenuBar *bar)
{
    bar->setObjectName(u"menuBar"_s);
    bar->setAccessibleName(tr("Menus"));
    buildFileMenu(bar);
    buildUsbMenu(bar);
    buildAboutMenu(bar);
}

void WindowActions::buildFileMenu(QMenuBar *bar)
{
    QMenu *menu = makeMenu(bar, u"fileMenu"_s, tr("Arquivo"));
    exit = makeAction(menu, u"exitAction"_s, tr("Sair"), Qt::CTRL | Qt::Key_Q);
}

void WindowActions::buildUsbMenu(QMenuBar *bar)
{
    QMenu *usbMenu = makeMenu(bar, u"usbMenu"_s, tr("USB"));

    QMenu *devicesMenu = makeMenu(usbMenu, u"devicesMenu"_s, tr("Dispositivos"));
    refreshDevices =
        makeAction(devicesMenu, u"refreshDevicesAction"_s, tr("Atualizar lista"), Qt::CTRL | Qt::Key_F5);

    QMenu *containerMenu = makeMenu(usbMenu, u"containerMenu"_s, tr("Container"));
    chooseContainer = makeAction(containerMenu, u"chooseContainerAction"_s, tr("Escolher container..."),
                                 Qt::CTRL | Qt::Key_O);
    createVault =
        makeAction(containerMenu, u"createVaultAction"_s, tr("Criar novo cofre..."), Qt::CTRL | Qt::Key_N);
    containerMenu->addSeparator();
    backup = makeAction(containerMenu, u"backupAction"_s, tr("Fazer backup..."), Qt::CTRL | Qt::Key_B);
    containerMenu->addSeparator();
    changePassword =
        makeAction(containerMenu, u"changePasswordAction"_s, tr("Alterar senha..."), Qt::CTRL | Qt::Key_P);

    buildAccessMenu(usbMenu);
}

void WindowActions::buildAccessMenu(QMenu *usbMenu)
{
    QMenu *menu = makeMenu(usbMenu, u"accessMenu"_s, tr("Acesso ao cofre"));
    unlock = makeAction(menu, u"unlockAction"_s, tr("Desbloquear"), Qt::CTRL | Qt::Key_L);
    lock = makeAction(menu, u"lockAction"_s, tr("Bloquear"), Qt::CTRL | Qt::SHIFT | Qt::Key_L);
    menu->addSeparator();
    buildProtectedFilesMenu(menu);
    menu->addSeparator();
    compact = makeAction(menu, u"compactAction"_s, tr("Compactar cofre..."), Qt::Key_F6);
}

void WindowActions::buildProtectedFilesMenu(QMenu *accessMenu)
{
    QMenu *menu = makeMenu(accessMenu, u"protectedFilesMenu"_s, tr("Arquivos protegidos"));
    createDirectory =
        makeAction(menu, u"createDirectoryAction"_s, tr("Nova pasta..."), Qt::CTRL | Qt::SHIFT | Qt::Key_N);
    menu->addSeparator();
    importFiles = makeAction(menu, u"importAction"_s, tr("Importar..."), Qt::CTRL | Qt::Key_I);
    exportFile = makeAction(menu, u"exportAction"_s, tr("Exportar..."), Qt::CTRL | Qt::Key_E);
    openFile = makeAction(menu, u"openAction"_s, tr("Abrir"), Qt::Key_Return);
    moveFile = makeAction(menu, u"moveFileAction"_s, tr("Mover para pasta..."));
    renameFile = makeAction(menu, u"renameFileAction"_s, tr("Renomear arquivo..."));
    menu->addSeparator();
    renameDirectory = makeAction(menu, u"renameDirectoryAction"_s, tr("Renomear pasta..."));
    deleteDirectory = makeAction(menu, u"deleteDirectoryAction"_s, tr("Excluir pasta vazia"));
    menu->addSeparator();
    deleteFile = makeAction(menu, u"deleteFileAction"_s, tr("Excluir..."), Qt::Key_Delete);
}

void WindowActions::buildAboutMenu(QMenuBar *bar)
{
    QMenu *menu = makeMenu(bar, u"aboutMenu"_s, tr("Sobre"));
    help = makeAction(menu, u"helpAction"_s, tr("Ajuda"));
    webPage = makeAction(menu, u"webPageAction"_s, tr("Visitar a página oficial do Tessarin"));
    menu->addSeparator();
    about = makeAction(menu, u"aboutAction"_s, tr("Sobre o Tessarin"));
}

void WindowActions::update(const Situation &now)
{
    const bool hasFile = now.isUnlocked && now.hasChosenFile;
    for (QAction *action : {refreshDevices, chooseContainer, createVault})
        action->setEnabled(!now.isUnlocked);
    for (QAction *action : {backup, changePassword, unlock})
        action->setEnabled(now.hasContainer && !now.isUnlocked);
    for (QAction *action : {lock, createDirectory, importFiles, compact})
        action->setEnabled(now.isUnlocked);
    for (QAction *action : {renameDirectory, deleteDirectory})
        action->setEnabled(now.isUnlocked && now.hasChosenDirectory);
    for (QAction *action : {exportFile, openFile, renameFile, deleteFile})
        action->setEnabled(hasFile);
    moveFile->setEnabled(hasFile && now.hasAnyDirectory);
}

void WindowActions::addTo(QMenu &tableMenu, bool hasChosenFile) const
{
    tableMenu.addActions({createDirectory, renameDirectory, deleteDirectory});
    tableMenu.addSeparator();
    tableMenu.addActions({importFiles, exportFile, openFile});
    if (hasChosenFile)
        tableMenu.addActions({moveFile, renameFile});
    tableMenu.addSeparator();
    tableMenu.addAction(deleteFile);
}

} // namespace Tessarin::UI
