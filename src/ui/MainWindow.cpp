// Assembles the window and keeps what it shows true: enabled actions, padlock, status bar. Closes it, too.
#include "ui/MainWindow.h"

#include "core/ContainerFormat.h"
#include "platform/CloseRequest.h"
#include "ui/ApplicationIcon.h"
#include "ui/DeviceList.h"
#include "ui/Formatting.h"
#include "ui/MessageBoxes.h"
#include "ui/PadlockIcon.h"
#include "ui/ProtectedFilesLabel.h"
#include "ui/VaultBrowser.h"
#include "ui/WindowGeometry.h"

#include <QAction>
#include <QCloseEvent>
#include <QDate>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QScreen>
#include <QSessionManager>
#include <QSignalBlocker>
#include <QStatusBar>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr int statusBoxWidth = 180;
constexpr int separatorWidth = 1;

QSize availableScreenSize()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry().size() : QSize();
}

QLabel *makeStatusLabel(QWidget *parent, const QString &name, int width, const QString &styleSheet)
{
    auto *label = new QLabel(parent);
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setAlignment(Qt::AlignCenter);
    label->setStyleSheet(styleSheet);
    label->setFixedWidth(width);
    return label;
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
        closer.wait();
        return;
    }
    if (!isUnlocked()) {
        event->accept();
        return;
    }

    run([&] {
        closer.hold();
        const bool locked = lockShowingProgress();
        refreshVaultFiles();
        updateActions();
        event->setAccepted(locked);
        if (!locked) {
            closer.cancel();
            showWarning(this, tr("Tessarin"), tr("Não foi possível bloquear o cofre."), lockFailureDetails());
        }
        closer.release();
    });
}

bool MainWindow::nativeEvent(const QByteArray &eventType, void *message, qintptr *result)
{
    if (!Platform::isCloseRequest(eventType, message))
        return QMainWindow::nativeEvent(eventType, message, result);
    // Not by way of Qt: it drops the request where a dialog blocks the window, even one that has come since.
    closer.requestFromFrame();
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
    browser = new VaultBrowser(vaultManager, guard, content);
    layout->addWidget(browser, 1);

    buildStatusBar();
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
    vaultToggleButton = new QToolButton(row);
    vaultToggleButton->setObjectName(u"vaultToggleButton"_s);
    vaultToggleButton->setCheckable(true);
    vaultToggleButton->setAutoRaise(false);
    vaultToggleButton->setFocusPolicy(Qt::NoFocus);
    vaultToggleButton->setFixedSize(square);
    vaultToggleButton->setIconSize(square);
    vaultToggleButton->setStyleSheet(
        u"QToolButton { border: 1px solid #d0d0d0; border-radius: 4px; background: #f7f7f7; }"
        "QToolButton:hover:enabled { background: #eeeeee; border-color: #b8b8b8; }"
        "QToolButton:pressed:enabled { background: #e2e2e2; }"
        "QToolButton:disabled { background: #f1f1f1; border-color: #dedede; }"_s);

    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    layout->addWidget(iconLabel);
    layout->addWidget(deviceList, 1);
    layout->addWidget(vaultToggleButton);
    return row;
}

void MainWindow::buildStatusBar()
{
    const QString boxStyle = u"QLabel { font-size: 11px; padding-left: 4px; padding-right: 4px; }"_s;

    auto *containerBox = new QWidget(statusBar());
    containerBox->setObjectName(u"containerBox"_s);
    containerBox->setFixedWidth(statusBoxWidth);
    auto *separator = new QFrame(containerBox);
    separator->setObjectName(u"statusSeparator"_s);
    separator->setFixedWidth(separatorWidth);
    separator->setStyleSheet(u"QFrame { background-color: #c8c8c8; }"_s);
    containerLabel =
        makeStatusLabel(containerBox, u"containerLabel"_s, statusBoxWidth - separatorWidth, boxStyle);
    containerLabel->setText(tr("Container: nenhum"));
    auto *boxLayout = new QHBoxLayout(containerBox);
    boxLayout->setContentsMargins(0, 0, 0, 0);
    boxLayout->setSpacing(0);
    boxLayout->addWidget(separator);
    boxLayout->addWidget(containerLabel, 1);

    versionLabel = makeStatusLabel(statusBar(), u"versionLabel"_s, statusBoxWidth, boxStyle);
    versionLabel->setText(tr("Versão %1").arg(QStringLiteral(TESSARIN_VERSION)));
    dateLabel = makeStatusLabel(statusBar(), u"dateLabel"_s, 78, u"QLabel { font-size: 11px; }"_s);
    dateLabel->setText(QDate::currentDate().toString(u"dd/MM/yyyy"));
    vaultIndicatorLabel = makeStatusLabel(statusBar(), u"vaultIndicatorLabel"_s, 50, {});

    statusBar()->setObjectName(u"statusBar"_s);
    statusBar()->setSizeGripEnabled(false);
    statusBar()->addPermanentWidget(containerBox);
    statusBar()->addPermanentWidget(versionLabel);
    statusBar()->addPermanentWidget(dateLabel);
    statusBar()->addPermanentWidget(vaultIndicatorLabel);
}

void MainWindow::updateActions()
{
    const bool unlocked = isUnlocked();
    const bool hasContainer = !containerPath.isEmpty();
    const bool hasFile = unlocked && !selectedVaultPath().isEmpty();
    const bool hasDirectory = unlocked && selectedItemIsDirectory();
    const bool hasAnyDirectory = unlocked && !vaultManager.fileIndex().directories().isEmpty();

    for (QAction *action : {refreshDevicesAction, chooseContainerAction, createVaultAction})
        action->setEnabled(!unlocked);
    for (QAction *action : {backupAction, changePasswordAction, unlockAction})
        action->setEnabled(hasContainer && !unlocked);
    for (QAction *action : {lockAction, createDirectoryAction, importAction, compactAction})
        action->setEnabled(unlocked);
    for (QAction *action : {renameDirectoryAction, deleteDirectoryAction})
        action->setEnabled(hasDirectory);
    for (QAction *action : {exportAction, openAction, renameFileAction, deleteFileAction})
        action->setEnabled(hasFile);
    moveFileAction->setEnabled(hasFile && hasAnyDirectory);

    updateVaultToggleButton();
    updateStatusBar();
    updateProtectedFilesLabel();
}

void MainWindow::updateVaultToggleButton()
{
    const QSignalBlocker blocker(vaultToggleButton);
    const bool unlocked = isUnlocked();
    const bool enabled = (unlocked ? lockAction : unlockAction)->isEnabled();
    vaultToggleButton->setEnabled(enabled);
    vaultToggleButton->setChecked(unlocked);
    vaultToggleButton->setIcon(padlockIcon(unlocked, enabled, vaultToggleButton->iconSize().width()));

    QString purpose = tr("Selecione um container para desbloquear o cofre.");
    if (unlocked)
        purpose = tr("Bloquear cofre");
    else if (enabled)
        purpose = tr("Desbloquear cofre");
    vaultToggleButton->setToolTip(purpose);
    vaultToggleButton->setAccessibleName(purpose);
    vaultToggleButton->setAccessibleDescription(vaultStateText());
}

void MainWindow::updateStatusBar()
{
    QString containerName = tr("nenhum");
    if (!containerPath.isEmpty()) {
        const QString fileName = QFileInfo(containerPath).fileName();
        const bool isDefault = fileName == QLatin1String(Core::ContainerFormat::defaultFileName);
        containerName = isDefault ? tr("Tessarin") : fileName;
    }
    const QString fullText = tr("Container: %1").arg(containerName);
    // Before the window is first shown the label's style sheet, and so its font, is not yet in force.
    containerLabel->ensurePolished();
    containerLabel->setText(
        containerLabel->fontMetrics().elidedText(fullText, Qt::ElideMiddle, containerLabel->width() - 8));
    containerLabel->setToolTip(plainToolTip(fullText));
    containerLabel->setAccessibleName(fullText); // Unlike the text, not cut.

    const bool unlocked = isUnlocked();
    vaultIndicatorLabel->setText(tr("COFRE"));
    vaultIndicatorLabel->setAccessibleName(vaultStateText());
    vaultIndicatorLabel->setStyleSheet(
        unlocked ? u"QLabel { background-color: #7bd88f; color: #000000; font-size: 11px; font-weight: 600; "
                   "padding-left: 4px; padding-right: 4px; }"_s
                 : u"QLabel { background-color: #f06a6a; color: #000000; font-size: 11px; font-weight: 600; "
                   "padding-left: 4px; padding-right: 4px; }"_s);
}

void MainWindow::setStatusMessage(const QString &text, int timeoutMs)
{
    statusBar()->showMessage(text, timeoutMs);
}

QString MainWindow::vaultStateText() const
{
    return isUnlocked() ? tr("Cofre desbloqueado") : tr("Cofre bloqueado");
}

bool MainWindow::isUnlocked() const
{
    return vaultManager.state() == Core::VaultManager::Unlocked;
}

} // namespace Tessarin::UI
