// The one window: it owns the vault session and the drive detector, assembles the parts that show them, and
// has the operations that people start. Every operation enters by run() and ends in conclude().
#pragma once

#include "core/VaultManager.h"
#include "platform/DeviceManager.h"
#include "ui/FileOperations.h"
#include "ui/OpenCopies.h"
#include "ui/OperationGuard.h"
#include "ui/VaultOperations.h"
#include "ui/WindowCloser.h"

#include <QMainWindow>

#include <functional>
#include <memory>

class QSessionManager;

namespace Tessarin::UI {

class DeviceList;
class ProtectedFilesLabel;
class VaultBrowser;
class VaultStatusBar;
class VaultToggleButton;
class WindowActions;
enum class DropRefusal;

class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    /// Null for a system without a detector; the list of drives says so.
    explicit MainWindow(std::unique_ptr<Platform::DeviceManager> detector, QWidget *parent = nullptr);
    ~MainWindow() override;

    /// As WindowCloser does. A vault that cannot be locked keeps the window open.
    void closeSoon();

    /// The same at the end of the desktop session, which is asked to wait while the vault is open.
    void endSession(QSessionManager &session);

    /// Says that nothing has opened a file after all, as soon as no operation runs.
    void reportFailedOpening();

protected:
    bool event(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    bool nativeEvent(const QByteArray &eventType, void *message, qintptr *result) override;

private:
    using Operation = void (MainWindow::*)();
    static constexpr int statusTimeoutMs = 5000; ///< Of the messages on how an operation ended.

    /// Runs an operation under the guard, and shows the state that it left.
    void run(const std::function<void()> &operation);
    void run(Operation operation);
    /// Shows how an operation ended.
    void conclude(const Outcome &outcome);

    // Assembling, and keeping what is shown true (MainWindow.cpp) -------------------------------------------
    void buildUi();
    [[nodiscard]] QWidget *buildDeviceRow();
    void buildMenus();
    void connectSignals();
    void connectActions();
    void connectTableKeys();
    void updateActions();
    void updateVaultToggleButton();
    void updateStatusBar();
    void updateProtectedFilesLabel();
    void setStatusMessage(const QString &text, int timeoutMs);
    void showTableMenu(const QPoint &position);
    [[nodiscard]] bool isUnlocked() const;

    // Shorthands for the parts' functions (MainWindow.cpp) ------------------------------------------------
    void refreshDevices();
    [[nodiscard]] QString selectedUsbRootPath() const;
    [[nodiscard]] int mountedUsbDeviceCount() const;
    void selectDeviceForContainer(const QString &path);
    void refreshVaultFiles();
    [[nodiscard]] QString selectedVaultPath() const;
    [[nodiscard]] QString selectedDirectoryPath() const;
    [[nodiscard]] bool selectedItemIsDirectory() const;
    [[nodiscard]] bool selectedItemIsParentDirectory() const;

    // The container (MainWindowOperations.cpp) --------------------------------------------------------------
    void useContainer(const QString &path);
    void useContainerOf(const QString &driveRoot);
    /// Makes room for a new vault on a drive without one; returns what there is to say about it.
    [[nodiscard]] QString leaveContainerFor(const QString &driveRoot);
    void chooseContainer();
    void createVault();
    /// UTF-8; empty when cancelled or refused. The caller wipes it.
    [[nodiscard]] QByteArray requestPassword(const QString &title, bool *hadLineBreak);
    [[nodiscard]] QByteArray requestNewVaultPassword();

    // The vault as a whole (MainWindowOperations.cpp) -------------------------------------------------------
    void changeVaultPassword();
    void backupContainer();
    void unlockVault();
    void lockVault();
    void toggleVault();
    [[nodiscard]] bool confirmCompactVault() const;
    void compactVault();

    // Files, folders and the program (MainWindowOperations.cpp) ---------------------------------------------
    void importFiles();
    void importInto(const QString &directory, const QStringList &sources);
    [[nodiscard]] bool confirmImportFitsStorage(const QStringList &sources) const;
    void explainDropRefusal(DropRefusal reason);
    void exportSelectedFile();
    void openSelectedFile();
    void warnOfFailedOpening();
    void deleteSelectedFile();
    void moveSelectedFile();
    void renameSelectedFile();
    void createDirectory();
    void renameSelectedDirectory();
    void deleteSelectedDirectory();
    [[nodiscard]] bool confirmReplaceVaultFile(const QString &path) const;
    [[nodiscard]] bool confirmDeleteVaultFile(const QString &path) const;
    [[nodiscard]] bool confirmExportOutsideVault(const QString &path) const;
    void showHelp();
    void openWebPage();
    void showAbout();

    Core::VaultManager vaultManager;
    std::unique_ptr<Platform::DeviceManager> deviceManager;
    QString containerPath;      ///< Empty: none chosen.
    bool openingFailed = false; ///< While an operation ran.
    OperationGuard guard;
    WindowCloser closer{this, guard};
    VaultOperations vaultOperations{this, vaultManager};
    OpenCopies openCopies{vaultManager};
    FileOperations fileOperations{this, vaultManager, openCopies};

    DeviceList *deviceList = nullptr;
    VaultToggleButton *vaultToggleButton = nullptr;
    ProtectedFilesLabel *protectedFilesLabel = nullptr;
    VaultBrowser *browser = nullptr;
    VaultStatusBar *vaultStatusBar = nullptr;
    std::unique_ptr<WindowActions> windowActions;
};

} // namespace Tessarin::UI
