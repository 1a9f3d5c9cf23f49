// The window's actions and menus, and which signal leads to which operation.
#include "ui/MainWindow.h"

#include "ui/AboutDialog.h"
#include "ui/DeviceList.h"
#include "ui/HelpDialog.h"
#include "ui/VaultBrowser.h"
#include "ui/WebAddresses.h"

#include <QAction>
#include <QDesktopServices>
#include <QKeySequence>
#include <QMenu>
#include <QMenuBar>
#include <QToolButton>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

QAction *makeAction(QMenu *menu, const QString &name, const QString &text, const QKeySequence &shortcut = {})
{
    QAction *action = menu->addAction(text);
    action->setObjectName(name);
    action->setShortcut(shortcut);
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

void MainWindow::buildMenus()
{
    menuBar()->setObjectName(u"menuBar"_s);
    menuBar()->setAccessibleName(tr("Menus"));
    buildFileMenu();
    buildUsbMenu();
    buildAboutMenu();
    // Only now does the menu bar take its height.
    setFixedSize(sizeHint());
}

void MainWindow::buildFileMenu()
{
    QMenu *menu = makeMenu(menuBar(), u"fileMenu"_s, tr("Arquivo"));
    exitAction = makeAction(menu, u"exitAction"_s, tr("Sair"), Qt::CTRL | Qt::Key_Q);
}

void MainWindow::buildUsbMenu()
{
    QMenu *usbMenu = makeMenu(menuBar(), u"usbMenu"_s, tr("USB"));

    QMenu *devicesMenu = makeMenu(usbMenu, u"devicesMenu"_s, tr("Dispositivos"));
    refreshDevicesAction =
        makeAction(devicesMenu, u"refreshDevicesAction"_s, tr("Atualizar lista"), Qt::CTRL | Qt::Key_F5);

    QMenu *containerMenu = makeMenu(usbMenu, u"containerMenu"_s, tr("Container"));
    chooseContainerAction = makeAction(containerMenu, u"chooseContainerAction"_s, tr("Escolher container..."),
                                       Qt::CTRL | Qt::Key_O);
    createVaultAction =
        makeAction(containerMenu, u"createVaultAction"_s, tr("Criar novo cofre..."), Qt::CTRL | Qt::Key_N);
    containerMenu->addSeparator();
    backupAction = makeAction(containerMenu, u"backupAction"_s, tr("Fazer backup..."), Qt::CTRL | Qt::Key_B);
    containerMenu->addSeparator();
    changePasswordAction =
        makeAction(containerMenu, u"changePasswordAction"_s, tr("Alterar senha..."), Qt::CTRL | Qt::Key_P);

    QMenu *accessMenu = makeMenu(usbMenu, u"accessMenu"_s, tr("Acesso ao cofre"));
    unlockAction = makeAction(accessMenu, u"unlockAction"_s, tr("Desbloquear"), Qt::CTRL | Qt::Key_L);
    lockAction = makeAction(accessMenu, u"lockAction"_s, tr("Bloquear"), Qt::CTRL | Qt::SHIFT | Qt::Key_L);
    accessMenu->addSeparator();
    buildProtectedFilesMenu(accessMenu);
    accessMenu->addSeparator();
    compactAction = makeAction(accessMenu, u"compactAction"_s, tr("Compactar cofre..."), Qt::Key_F6);
}

void MainWindow::buildProtectedFilesMenu(QMenu *accessMenu)
{
    QMenu *menu = makeMenu(accessMenu, u"protectedFilesMenu"_s, tr("Arquivos protegidos"));
    createDirectoryAction =
        makeAction(menu, u"createDirectoryAction"_s, tr("Nova pasta..."), Qt::CTRL | Qt::SHIFT | Qt::Key_N);
    menu->addSeparator();
    importAction = makeAction(menu, u"importAction"_s, tr("Importar..."), Qt::CTRL | Qt::Key_I);
    exportAction = makeAction(menu, u"exportAction"_s, tr("Exportar..."), Qt::CTRL | Qt::Key_E);
    openAction = makeAction(menu, u"openAction"_s, tr("Abrir"), Qt::Key_Return);
    moveFileAction = makeAction(menu, u"moveFileAction"_s, tr("Mover para pasta..."));
    renameFileAction = makeAction(menu, u"renameFileAction"_s, tr("Renomear arquivo..."));
    menu->addSeparator();
    renameDirectoryAction = makeAction(menu, u"renameDirectoryAction"_s, tr("Renomear pasta..."));
    deleteDirectoryAction = makeAction(menu, u"deleteDirectoryAction"_s, tr("Excluir pasta vazia"));
    menu->addSeparator();
    deleteFileAction = makeAction(menu, u"deleteFileAction"_s, tr("Excluir..."), Qt::Key_Delete);
}

void MainWindow::buildAboutMenu()
{
    QMenu *menu = makeMenu(menuBar(), u"aboutMenu"_s, tr("Sobre"));
    helpAction = makeAction(menu, u"helpAction"_s, tr("Ajuda"));
    webPageAction = makeAction(menu, u"webPageAction"_s, tr("Visitar a página oficial do Tessarin"));
    menu->addSeparator();
    aboutAction = makeAction(menu, u"aboutAction"_s, tr("Sobre o Tessarin"));
}

void MainWindow::connectSignals()
{
    connect(&guard, &OperationGuard::finishing, this, &MainWindow::updateActions);
    connect(&guard, &OperationGuard::over, this, [this] {
        if (openingFailed)
            tellOfFailedOpening();
    });
    // Not an operation: closeEvent() itself refuses while one runs.
    connect(exitAction, &QAction::triggered, this, &MainWindow::close);

    const auto runOn = [this](const QAction *action, Operation operation) {
        connect(action, &QAction::triggered, this, [this, operation] { run(operation); });
    };
    runOn(refreshDevicesAction, &MainWindow::refreshDevices);
    runOn(chooseContainerAction, &MainWindow::chooseContainer);
    runOn(createVaultAction, &MainWindow::createVault);
    runOn(backupAction, &MainWindow::backupContainer);
    runOn(changePasswordAction, &MainWindow::changeVaultPassword);
    runOn(unlockAction, &MainWindow::unlockVault);
    runOn(lockAction, &MainWindow::lockVault);
    runOn(createDirectoryAction, &MainWindow::createDirectory);
    runOn(renameDirectoryAction, &MainWindow::renameSelectedDirectory);
    runOn(deleteDirectoryAction, &MainWindow::deleteSelectedDirectory);
    runOn(importAction, &MainWindow::importFiles);
    runOn(exportAction, &MainWindow::exportSelectedFile);
    runOn(openAction, &MainWindow::openSelectedFile);
    runOn(moveFileAction, &MainWindow::moveSelectedFile);
    runOn(renameFileAction, &MainWindow::renameSelectedFile);
    runOn(deleteFileAction, &MainWindow::deleteSelectedFile);
    runOn(compactAction, &MainWindow::compactVault);
    runOn(helpAction, &MainWindow::showHelp);
    runOn(webPageAction, &MainWindow::openWebPage);
    runOn(aboutAction, &MainWindow::showAbout);

    const auto takeToggle = [this] {
        run(&MainWindow::toggleVault);
        // The click itself has toggled the button, whatever became of the operation.
        updateVaultToggleButton();
    };
    connect(vaultToggleButton, &QToolButton::clicked, this, takeToggle);
    // A screen reader toggles the button without a click. After one, there is nothing left to do here.
    const auto takeSilentToggle = [=, this] {
        if (!guard.isRunning() && vaultToggleButton->isChecked() != isUnlocked())
            takeToggle();
    };
    connect(vaultToggleButton, &QToolButton::toggled, this, takeSilentToggle, Qt::QueuedConnection);

    connect(deviceList, &DeviceList::changed, this, &MainWindow::updateActions);
    connect(deviceList, &DeviceList::driveOpened, this,
            [this](const QString &root) { run([this, root] { useContainerOf(root); }); });
    connect(deviceList, &DeviceList::containerDriveLeft, this, [this] {
        if (isUnlocked())
            setStatusMessage(tr("A unidade do cofre aberto foi desconectada."), 0);
    });
    connect(deviceList, &DeviceList::containerDriveReturned, this, [this] {
        if (isUnlocked())
            setStatusMessage(tr("A unidade do cofre aberto foi conectada de novo."), statusTimeoutMs);
    });

    connect(browser, &VaultBrowser::changed, this, &MainWindow::updateActions);
    connect(browser, &VaultBrowser::fileActivated, this, [this] {
        if (openAction->isEnabled())
            run(&MainWindow::openSelectedFile);
    });
    connect(browser, &VaultBrowser::dropRefused, this, &MainWindow::explainDropRefusal);
    connect(browser, &VaultBrowser::importRequested, this,
            [this](const QStringList &sources, const QString &directory) {
                run([&] {
                    if (isUnlocked())
                        importInto(directory, sources);
                });
            });
    // Not an operation by itself, but its entries start some.
    connect(browser, &QWidget::customContextMenuRequested, this, [this](const QPoint &position) {
        if (!guard.isRunning())
            showTableMenu(position);
    });
}

void MainWindow::toggleVault()
{
    if (isUnlocked())
        lockVault();
    else
        unlockVault();
}

void MainWindow::showHelp()
{
    HelpDialog(this).exec();
}

void MainWindow::openWebPage()
{
    QDesktopServices::openUrl(QUrl(productWebPage()));
}

void MainWindow::showAbout()
{
    AboutDialog(this).exec();
}

} // namespace Tessarin::UI
