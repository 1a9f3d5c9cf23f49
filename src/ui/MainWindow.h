// The one window: it owns the vault session and the drive detector, shows the vault's folders and files, and
// words everything that is said to people. It assembles itself in MainWindow.cpp; each group of operations
// below has a file of its own.
//
// Every user action enters by run(), so that a second one cannot start in the middle of the first.
#pragma once

#include "core/VaultManager.h"
#include "platform/DeviceManager.h"
#include "ui/OperationGuard.h"
#include "ui/WindowCloser.h"

#include <QMainWindow>
#include <QStringList>

#include <functional>
#include <memory>

class QFile;
class QSessionManager;

namespace Tessarin::UI {

class DeviceList;
class ProgressDialog;
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
    explicit MainWindow(std::unique_ptr<Platform::DeviceManager> detector, QWidget *parent = nullptr);
    ~MainWindow() override;

    /// Closes the window in the ordinary way as soon as no operation runs. What waits for an answer meanwhile
    /// is answered with what closing it means. A vault that cannot be locked keeps the window open.
    void closeSoon();

    /// The same at the end of the desktop session, which is asked to wait while the vault is open.
    void endSession(QSessionManager &session);

    /// Says that nothing has opened a file after all, as soon as no operation runs.
    void tellOfFailedOpening();

protected:
    bool event(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    bool nativeEvent(const QByteArray &eventType, void *message, qintptr *result) override;

private:
    using Operation = void (MainWindow::*)();

    static constexpr int statusTimeoutMs = 5000; ///< Of the messages that tell an outcome.

    /// Runs a user's operation under the guard. Afterwards the window shows the state that it left, whatever
    /// its outcome.
    void run(const std::function<void()> &operation);
    void run(Operation operation);

    // Assembling (MainWindow.cpp) ---------------------------------------------------------------------------
    void buildUi();
    void buildMenus();
    void connectSignals();
    [[nodiscard]] QWidget *buildDeviceRow();
    void updateActions();
    void updateVaultToggleButton();
    void updateStatusBar();
    void toggleVault();
    void showHelp();
    void openWebPage();
    void showAbout();
    void setStatusMessage(const QString &text, int timeoutMs);
    [[nodiscard]] bool isUnlocked() const;

    // Drives and containers (MainWindowDevices.cpp) ---------------------------------------------------------
    void refreshDevices();
    [[nodiscard]] QString selectedUsbRootPath() const;
    [[nodiscard]] QString selectedUsbDisplayName() const;
    [[nodiscard]] int mountedUsbDeviceCount() const;
    void selectDefaultUsbAfterRefresh();
    void selectDeviceForContainer(const QString &path);
    void useContainer(const QString &path);
    void useContainerOf(const QString &driveRoot);
    /// Where the vault may be after a compaction that broke off; empty when nothing points to one.
    [[nodiscard]] static QString compactionTwinNote(const QString &path);
    [[nodiscard]] QString compactionLeftoverNote() const;
    void chooseContainer();
    void createVault();
    /// UTF-8; empty when cancelled, the new one also when refused. The caller wipes it.
    [[nodiscard]] QByteArray requestPassword(const QString &title);
    [[nodiscard]] QByteArray requestNewVaultPassword();

    // Vault access (MainWindowAccess.cpp) -------------------------------------------------------------------
    void unlockVault();
    void lockVault();
    /// What the engine's lock answers.
    [[nodiscard]] bool lockShowingProgress();
    void changeVaultPassword();
    void backupContainer();
    [[nodiscard]] bool copyContainer(QFile &source, QFile &destination);
    /// Why a lock failed and where decrypted copies lie now.
    [[nodiscard]] QString lockFailureDetails() const;

    // The table (MainWindowBrowser.cpp) ---------------------------------------------------------------------
    void refreshVaultFiles();
    void updateProtectedFilesLabel();
    [[nodiscard]] QString selectedVaultPath() const;
    [[nodiscard]] QString selectedDirectoryPath() const;
    [[nodiscard]] bool selectedItemIsDirectory() const;
    [[nodiscard]] bool selectedItemIsParentDirectory() const;
    void enterSelectedDirectory();
    void navigateToParentDirectory();
    void showTableMenu(const QPoint &position);
    void explainDropRefusal(DropRefusal reason);

    // Files and folders (MainWindowFiles.cpp) ---------------------------------------------------------------
    void importFiles();
    void importInto(const QString &directory, const QStringList &sources);
    [[nodiscard]] bool confirmImportFitsStorage(const QStringList &sources) const;
    /// The vault path that the file is stored under; empty when it is not.
    [[nodiscard]] QString importOneFile(const QString &source, const QString &directory,
                                        ProgressDialog &progress);
    void exportSelectedFile();
    void openSelectedFile();
    void warnOfFailedOpening();
    void deleteSelectedFile();
    void moveSelectedFile();
    void renameSelectedFile();
    void createDirectory();
    void renameSelectedDirectory();
    void deleteSelectedDirectory();
    /// Shows the changed folder and says what happened.
    void showNamespaceChange(const QString &message);
    [[nodiscard]] bool confirmReplaceVaultFile(const QString &path) const;
    [[nodiscard]] bool confirmDeleteVaultFile(const QString &path) const;
    [[nodiscard]] bool confirmExportOutsideVault(const QString &path) const;
    [[nodiscard]] bool vaultHasItem(const QString &path) const;

    // Compaction (MainWindowCompaction.cpp) -----------------------------------------------------------------
    [[nodiscard]] bool confirmCompactVault() const;
    void compactVault();

    Core::VaultManager vaultManager;
    std::unique_ptr<Platform::DeviceManager> deviceManager;
    QString containerPath;      ///< Empty: none chosen.
    bool openingFailed = false; ///< While an operation ran.
    OperationGuard guard;
    WindowCloser closer{this, guard};

    DeviceList *deviceList = nullptr;
    VaultToggleButton *vaultToggleButton = nullptr;
    ProtectedFilesLabel *protectedFilesLabel = nullptr;
    VaultBrowser *browser = nullptr;
    VaultStatusBar *vaultStatusBar = nullptr;
    std::unique_ptr<WindowActions> windowActions;
};

} // namespace Tessarin::UI
