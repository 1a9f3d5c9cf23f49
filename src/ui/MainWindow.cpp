// Assembles the window and keeps what it shows true: enabled actions, padlock, status bar. Closes it, too.
#include "ui/MainWindow.h"

#include "platform/CloseRequest.h"
#include "ui/ApplicationIcon.h"
#include "ui/DeviceList.h"
#include "ui/ProtectedFilesLabel.h"
#include "ui/TableHint.h"
#include "ui/TableKeys.h"
#include "ui/VaultBrowser.h"
#include "ui/VaultLocking.h"
#include "ui/VaultStatusBar.h"
#include "ui/VaultToggleButton.h"
#include "ui/WindowActions.h"
#include "ui/WindowGeometry.h"

#include <QAction>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QSessionManager>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

QSize availableScreenSize()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry().size() : QSize();
}

} // namespace

MainWindow::MainWindow(QWidget *parent) : MainWindow(Platform::makeSystemDeviceManager(), parent) {}

MainWindow::MainWindow(std::unique_ptr<Platform::DeviceManager> detector, QWidget *parent)
    : QMainWindow(parent), deviceManager(std::move(detector))
{
    buildUi();
    buildMenus();
    connectSignals();
    refreshDevices();
    updateActions();
    setStatusMessage(tr("Pronto"), 0);
}

MainWindow::~MainWindow() = default;

void MainWindow::run(Operation operation)
{
    run([this, operation] { (this->*operation)(); });
}

void MainWindow::run(const std::function<void()> &operation)
{
    guard.run(operation);
}

bool MainWindow::event(QEvent *event)
{
    // Menu entries have no status tips; their empty ones would wipe the message in the status bar.
    return event->type() == QEvent::StatusTip || QMainWindow::event(event);
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    if (guard.isRunning()) {
        event->ignore();
        closer.requestFromUser();
        return;
    }
    if (!isUnlocked()) {
        event->accept();
        return;
    }

    run([&] {
        closer.hold();
        const bool locked = lockShowingProgress(this, vaultManager);
        event->setAccepted(locked);
        Outcome outcome{.contentsChanged = true};
        if (!locked) {
            closer.cancel();
            outcome.warnings = {{tr("Não foi possível bloquear o cofre."), lockFailureDetails(vaultManager)}};
        }
        conclude(outcome);
        closer.release();
    });
}

bool MainWindow::nativeEvent(const QByteArray &eventType, void *message, qintptr *result)
{
    if (!Platform::isCloseRequest(eventType, message))
        return QMainWindow::nativeEvent(eventType, message, result);
    // Not by way of Qt: it drops the request where a dialog blocks the window, even one that has come since.
    closer.requestFromUser();
    return true;
}

void MainWindow::closeSoon()
{
    closer.closeSoon();
}

void MainWindow::endSession(QSessionManager &session)
{
    closeSoon();
    if (isUnlocked() && session.allowsInteraction()) {
        session.cancel();
        session.release();
    }
}

void MainWindow::buildUi()
{
    setObjectName(u"mainWindow"_s);
    setWindowTitle(tr("Tessarin"));

    auto *content = new QWidget;
    content->setObjectName(u"centralWidget"_s);
    content->setFixedSize(centralWidgetSize(availableScreenSize()));
    setCentralWidget(content);

    auto *devicesLabel = new QLabel(tr("Dispositivos USB"));
    devicesLabel->setObjectName(u"devicesLabel"_s);

    auto *layout = new QVBoxLayout(content);
    layout->addWidget(devicesLabel);
    layout->addWidget(buildDeviceRow());
    protectedFilesLabel = new ProtectedFilesLabel(content);
    layout->addWidget(protectedFilesLabel);
    browser = new VaultBrowser(vaultManager, openCopies, guard, content);
    layout->addWidget(browser, 1);

    vaultStatusBar = new VaultStatusBar(this);
    setStatusBar(vaultStatusBar);
    setFixedSize(sizeHint());
}

QWidget *MainWindow::buildDeviceRow()
{
    deviceList = new DeviceList(deviceManager.get(), guard);
    const QSize square(deviceList->minimumHeight(), deviceList->minimumHeight());
    auto *iconLabel = new QLabel;
    iconLabel->setObjectName(u"iconLabel"_s);
    iconLabel->setAccessibleName(tr("Ícone do Tessarin"));
    iconLabel->setFixedSize(square);
    iconLabel->setAlignment(Qt::AlignCenter);
    iconLabel->setPixmap(applicationIcon().pixmap(square, devicePixelRatio()));

    auto *row = new QWidget(centralWidget());
    row->setObjectName(u"deviceRow"_s);
    vaultToggleButton = new VaultToggleButton(square.height(), row);

    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    layout->addWidget(iconLabel);
    layout->addWidget(deviceList, 1);
    layout->addWidget(vaultToggleButton);
    return row;
}

void MainWindow::buildMenus()
{
    windowActions = std::make_unique<WindowActions>(menuBar());
    // Only now does the menu bar take its height.
    setFixedSize(sizeHint());
}

void MainWindow::connectSignals()
{
    connect(&guard, &OperationGuard::finishing, &openCopies, &OpenCopies::follow);
    connect(&guard, &OperationGuard::finishing, this, &MainWindow::updateActions);
    connect(&guard, &OperationGuard::over, this, [this] {
        if (openingFailed)
            reportFailedOpening();
    });
    connectActions();
    connect(vaultToggleButton, &VaultToggleButton::toggleRequested, this,
            [this] { run(&MainWindow::toggleVault); });
    connectTableKeys();

    connect(deviceList, &DeviceList::changed, this, &MainWindow::updateActions);
    connect(deviceList, &DeviceList::driveOpened, this,
            [this](const QString &root) { run([this, root] { useContainerOf(root); }); });
    connect(deviceList, &DeviceList::containerDriveLeft, this, [this] {
        if (isUnlocked())
            setStatusMessage(
                tr("A unidade do cofre aberto foi desconectada. Conecte-a de novo para continuar."), 0);
    });
    connect(deviceList, &DeviceList::containerDriveReturned, this, [this] {
        if (isUnlocked())
            setStatusMessage(tr("A unidade do cofre aberto foi conectada de novo."), statusTimeoutMs);
    });

    connect(browser, &VaultBrowser::changed, this, &MainWindow::updateActions);
    connect(browser, &VaultBrowser::fileActivated, this, [this] {
        if (windowActions->openFile->isEnabled())
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

void MainWindow::connectActions()
{
    // Not an operation: closeEvent() itself refuses while one runs.
    connect(windowActions->exit, &QAction::triggered, this, &MainWindow::close);

    const auto runOn = [this](const QAction *action, Operation operation) {
        connect(action, &QAction::triggered, this, [this, operation] { run(operation); });
    };
    runOn(windowActions->refreshDevices, &MainWindow::refreshDevices);
    runOn(windowActions->chooseContainer, &MainWindow::chooseContainer);
    runOn(windowActions->createVault, &MainWindow::createVault);
    runOn(windowActions->backup, &MainWindow::backupContainer);
    runOn(windowActions->changePassword, &MainWindow::changeVaultPassword);
    runOn(windowActions->unlock, &MainWindow::unlockVault);
    runOn(windowActions->lock, &MainWindow::lockVault);
    runOn(windowActions->createDirectory, &MainWindow::createDirectory);
    runOn(windowActions->renameDirectory, &MainWindow::renameSelectedDirectory);
    runOn(windowActions->deleteDirectory, &MainWindow::deleteSelectedDirectory);
    runOn(windowActions->importFiles, &MainWindow::importFiles);
    runOn(windowActions->exportFile, &MainWindow::exportSelectedFile);
    runOn(windowActions->openFile, &MainWindow::openSelectedFile);
    runOn(windowActions->moveFile, &MainWindow::moveSelectedFile);
    runOn(windowActions->renameFile, &MainWindow::renameSelectedFile);
    runOn(windowActions->deleteFile, &MainWindow::deleteSelectedFile);
    runOn(windowActions->compact, &MainWindow::compactVault);
    runOn(windowActions->help, &MainWindow::showHelp);
    runOn(windowActions->webPage, &MainWindow::openWebPage);
    runOn(windowActions->about, &MainWindow::showAbout);
}

void MainWindow::connectTableKeys()
{
    auto *keys = new TableKeys(browser, guard);
    keys->listenTo(deviceList);
    keys->listenTo(this); // They come to the window where nothing in it has the focus.
    connect(keys, &TableKeys::renameRequested, this, [this] {
        for (QAction *action : {windowActions->renameFile, windowActions->renameDirectory}) {
            if (action->isEnabled())
                return action->trigger();
        }
    });
}

void MainWindow::reportFailedOpening()
{
    openingFailed = guard.isRunning();
    if (!openingFailed)
        run(&MainWindow::warnOfFailedOpening);
}

void MainWindow::showTableMenu(const QPoint &position)
{
    const QModelIndex index = browser->indexAt(position);
    if (index.isValid())
        browser->selectRow(index.row());
    updateActions();

    QMenu menu(this);
    menu.setAccessibleName(tr("Arquivos protegidos"));
    windowActions->addTo(menu, !selectedVaultPath().isEmpty());
    menu.exec(browser->viewport()->mapToGlobal(position));
}

void MainWindow::updateActions()
{
    windowActions->update({.hasContainer = !containerPath.isEmpty(),
                           .isUnlocked = isUnlocked(),
                           .hasChosenFile = !selectedVaultPath().isEmpty(),
                           .hasChosenDirectory = selectedItemIsDirectory(),
                           .hasAnyDirectory = !vaultManager.fileIndex().directories().isEmpty()});
    updateVaultToggleButton();
    updateStatusBar();
    updateProtectedFilesLabel();
}

void MainWindow::updateVaultToggleButton()
{
    const QAction *action = isUnlocked() ? windowActions->lock : windowActions->unlock;
    vaultToggleButton->showState(isUnlocked(), action->isEnabled());
}

void MainWindow::updateStatusBar()
{
    vaultStatusBar->showContainer(containerPath);
    vaultStatusBar->showVaultState(isUnlocked());
}

void MainWindow::updateProtectedFilesLabel()
{
    if (isUnlocked())
        protectedFilesLabel->showFolder(browser->currentDirectory(),
                                        vaultManager.fileIndex().entries().size());
    else
        protectedFilesLabel->showNoVault();

    const QString hint = tableHint({.isUnlocked = isUnlocked(),
                                    .isFolderEmpty = browser->isFolderEmpty(),
                                    .containerPath = containerPath,
                                    .driveRoot = selectedUsbRootPath(),
                                    .mountedDrives = mountedUsbDeviceCount(),
                                    .unmountedDrives = deviceList->unmountedUsbDeviceCount()});
    browser->describe(protectedFilesLabel->accessibleName(), hint);
}

void MainWindow::setStatusMessage(const QString &text, int timeoutMs)
{
    statusBar()->showMessage(text, timeoutMs);
}

bool MainWindow::isUnlocked() const
{
    return vaultManager.state() == Core::VaultManager::Unlocked;
}

void MainWindow::refreshDevices()
{
    deviceList->refresh();
}

void MainWindow::selectDeviceForContainer(const QString &path)
{
    deviceList->selectDeviceForContainer(path);
}

QString MainWindow::selectedUsbRootPath() const
{
    return deviceList->selectedUsbRootPath();
}

int MainWindow::mountedUsbDeviceCount() const
{
    return deviceList->mountedUsbDeviceCount();
}

void MainWindow::refreshVaultFiles()
{
    browser->refresh();
}

QString MainWindow::selectedVaultPath() const
{
    return browser->selectedVaultPath();
}

QString MainWindow::selectedDirectoryPath() const
{
    return browser->selectedDirectoryPath();
}

bool MainWindow::selectedItemIsDirectory() const
{
    return browser->selectedItemIsDirectory();
}

bool MainWindow::selectedItemIsParentDirectory() const
{
    return browser->selectedItemIsParentDirectory();
}

} // namespace Tessarin::UI
