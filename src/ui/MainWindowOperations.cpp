// What people can start. Each operation asks what it needs to know, calls the engine once, and says how it
// ended; run() has seen to it that no other one runs meanwhile.
#include "ui/MainWindow.h"

#include "core/ContainerManager.h"
#include "core/HostFile.h"
#include "core/Secret.h"
#include "core/VaultPath.h"
#include "ui/AboutDialog.h"
#include "ui/ContainerBackup.h"
#include "ui/DeviceList.h"
#include "ui/FailureText.h"
#include "ui/FileDialogs.h"
#include "ui/FileImport.h"
#include "ui/Formatting.h"
#include "ui/HelpDialog.h"
#include "ui/ImportSpace.h"
#include "ui/MessageBoxes.h"
#include "ui/PasswordPrompt.h"
#include "ui/ReplaceConfirmation.h"
#include "ui/VaultBrowser.h"
#include "ui/VaultLocking.h"
#include "ui/WaitCursor.h"
#include "ui/WebAddresses.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>
#include <QUrl>

#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

void MainWindow::conclude(const Outcome &outcome)
{
    if (outcome.contentsChanged)
        refreshVaultFiles();
    if (!outcome.itemToShow.isEmpty())
        browser->select(outcome.itemToShow);
    if (outcome.freeSpaceChanged)
        refreshDevices();
    const QString title = outcome.title.isEmpty() ? tr("Tessarin") : outcome.title;
    if (!outcome.warnings.isEmpty())
        closer.takeBack();
    for (const Notice &warning : outcome.warnings)
        showWarning(this, title, warning.text, warning.details);
    if (!outcome.status.isEmpty())
        setStatusMessage(outcome.status, statusTimeoutMs);
    if (!outcome.information.text.isEmpty())
        showInformation(this, title, outcome.information.text, outcome.information.details);
}

// The container ---------------------------------------------------------------------------------------------

void MainWindow::useContainer(const QString &path)
{
    containerPath = path;
    selectDeviceForContainer(path);
    updateActions();
}

void MainWindow::useContainerOf(const QString &driveRoot)
{
    const QString path = Core::ContainerManager().containerPath(driveRoot);
    if (!QFileInfo(path).isFile()) {
        conclude(
            {.information = {tr("Nenhum tessarin.trvx foi encontrado em %1. Use Criar cofre para criar um "
                                "novo container.")
                                 .arg(shownName(driveRoot)),
                             leaveContainerFor(driveRoot)}});
        return;
    }
    // The container of an open vault stays the current one until the vault is locked.
    if (!isUnlocked())
        useContainer(path);
    else if (!Core::isSameFile(path, containerPath))
        setStatusMessage(tr("Bloqueie o cofre aberto antes de escolher outro."), statusTimeoutMs);
}

QString MainWindow::leaveContainerFor(const QString &driveRoot)
{
    QStringList notes;
    if (isUnlocked()) {
        notes << tr("Antes é preciso bloquear o cofre que está aberto.");
    } else if (!containerPath.isEmpty()) {
        // While one is chosen, the choice of a drive goes back to its drive, and a new vault would go there.
        notes
            << tr("O container %1 deixou de ser o escolhido; a unidade em que você clicou está selecionada.")
                   .arg(shownName(QDir::toNativeSeparators(containerPath)));
        useContainer({});
    }
    if (containerPath.isEmpty())
        deviceList->chooseDrive(driveRoot);
    notes << compactionTwinNote(Core::ContainerManager().containerPath(driveRoot));
    notes.removeAll(QString());
    return notes.join(u"\n\n"_s);
}

void MainWindow::chooseContainer()
{
    const QString path =
        askForFile(this, tr("Escolher container Tessarin"), selectedUsbRootPath(), containerFileFilter());
    if (path.isEmpty())
        return;
    useContainer(path);
    conclude({.status = tr("Container selecionado.")});
}

void MainWindow::createVault()
{
    const QString root = selectedUsbRootPath();
    const QByteArray drive = QStorageInfo(root).device();
    const QString chosenPath =
        askForTarget(this, tr("Criar container Tessarin"), Core::ContainerManager().containerPath(root),
                     containerFileFilter(), Overwriting::Allowed);
    if (chosenPath.isEmpty())
        return;

    const QFileInfo file(QDir::cleanPath(chosenPath));
    const bool isInRoot = !root.isEmpty() && comparablePath(file.absolutePath()) == comparablePath(root);
    if (!isInRoot || file.suffix().compare(u"trvx"_s, Qt::CaseInsensitive) != 0) {
        conclude({.title = tr("Criar cofre"),
                  .information = {
                      tr("O cofre deve ser criado como arquivo .trvx diretamente na raiz da unidade USB "
                         "selecionada."),
                      root.isEmpty()
                          ? tr("Nenhuma unidade está selecionada. Dê dois cliques, na lista, na unidade "
                               "em que o cofre deve ficar.")
                          : tr("A raiz da unidade selecionada é %1.").arg(shownName(root))}});
        return;
    }
    if (!confirmReplacement(this, deviceList->selectedUsbName(), file))
        return;

    QByteArray password = requestNewVaultPassword();
    if (password.isEmpty())
        return;
    bool created = false;
    Core::Failure reason = Core::Failure::DriveGone;
    {
        const Core::WipedAtScopeEnd wiped(password);
        const WaitCursor waitCursor;
        // A directory that a pulled drive was mounted at may still be there, on the disk of the system.
        if (QStorageInfo(root).device() == drive) {
            created = vaultManager.createVault(file.filePath(), password);
            reason = vaultManager.lastFailure();
        }
    }
    if (!created) {
        conclude({.contentsChanged = true,
                  .warnings = {{tr("Não foi possível criar o cofre."), failureText(reason)}}});
        return;
    }
    useContainer(file.filePath());
    conclude({.contentsChanged = true, .freeSpaceChanged = true, .status = tr("Cofre criado com sucesso.")});
}

QByteArray MainWindow::requestPassword(const QString &title, bool *hadLineBreak)
{
    return UI::requestPassword(this, title, PasswordField::Purpose::Existing, hadLineBreak);
}

QByteArray MainWindow::requestNewVaultPassword()
{
    return UI::requestNewVaultPassword(this);
}

// The vault as a whole --------------------------------------------------------------------------------------

void MainWindow::changeVaultPassword()
{
    if (containerPath.isEmpty())
        conclude({.information = {tr("Selecione um container primeiro.")}});
    else if (isUnlocked())
        conclude({.information = {tr("Bloqueie o cofre antes de alterar a senha.")}});
    else
        conclude(vaultOperations.changePassword(containerPath));
}

void MainWindow::backupContainer()
{
    if (containerPath.isEmpty())
        conclude({.information = {tr("Selecione um container primeiro.")}});
    else if (isUnlocked())
        conclude({.information = {tr("Bloqueie o cofre antes de fazer o backup.")}});
    else
        conclude(backUpContainer(this, containerPath));
}

void MainWindow::unlockVault()
{
    bool hadLineBreak = false;
    QByteArray password = requestPassword(tr("Senha do cofre"), &hadLineBreak);
    if (password.isEmpty())
        return;
    const Outcome outcome = vaultOperations.unlock(containerPath, std::move(password), hadLineBreak);
    deviceList->watchContainerDrive();
    conclude(outcome);
}

void MainWindow::lockVault()
{
    Outcome outcome{.contentsChanged = true, .status = tr("Cofre bloqueado.")};
    if (!lockShowingProgress(this, vaultManager)) {
        outcome.warnings = {
            {tr("Não foi possível limpar a área temporária."), lockFailureDetails(vaultManager)}};
    }
    conclude(outcome);
}

void MainWindow::toggleVault()
{
    if (isUnlocked())
        lockVault();
    else
        unlockVault();
}

bool MainWindow::confirmCompactVault() const
{
    return questionYesNo(
        window(), tr("Compactar cofre"),
        tr("A compactação reconstruirá o container removendo fisicamente dados de arquivos já "
           "excluídos.\n\nDurante a operação, será criado temporariamente um container "
           "criptografado no disco local. Nenhum arquivo descriptografado será gravado fora "
           "do cofre.\n\nDeseja continuar?"));
}

void MainWindow::compactVault()
{
    if (confirmCompactVault())
        conclude(vaultOperations.compact());
}

// Files and folders -----------------------------------------------------------------------------------------

void MainWindow::importFiles()
{
    const QStringList sources = askForFiles(this, tr("Importar arquivos para o cofre"));
    if (!sources.isEmpty())
        importInto(browser->currentDirectory(), sources);
}

void MainWindow::importInto(const QString &directory, const QStringList &sources)
{
    if (!confirmImportFitsStorage(sources))
        return;
    FileImport import(this, vaultManager,
                      [this](const QString &path) { return confirmReplaceVaultFile(path); });
    conclude(import.run(sources, directory));
}

bool MainWindow::confirmImportFitsStorage(const QStringList &sources) const
{
    return UI::confirmImportFitsStorage(window(), containerPath, sources);
}

void MainWindow::explainDropRefusal(DropRefusal reason)
{
    switch (reason) {
    case DropRefusal::NothingToCopy:
    case DropRefusal::OperationRunning:
        return; // The pointer says enough.
    case DropRefusal::VaultLocked:
        setStatusMessage(tr("Desbloqueie o cofre para importar arquivos."), statusTimeoutMs);
        return;
    case DropRefusal::NotOnlyLocalFiles:
        run([this] {
            conclude({.title = tr("Importar arquivos"),
                      .information = {
                          tr("Nada foi importado. Só arquivos deste computador podem ser arrastados para o "
                             "cofre, e não pastas nem endereços de rede.\n\nPara importar o conteúdo de uma "
                             "pasta, abra-a e arraste os arquivos.")}});
        });
    }
}

void MainWindow::exportSelectedFile()
{
    const QString path = selectedVaultPath();
    if (!path.isEmpty() && confirmExportOutsideVault(path))
        conclude(fileOperations.exportFile(path, containerPath));
}

void MainWindow::openSelectedFile()
{
    const QString path = selectedVaultPath();
    if (path.isEmpty())
        return;
    const QString copyPath = fileOperations.prepareForEditing(path);
    if (copyPath.isEmpty())
        conclude({.warnings = {{tr("Não foi possível preparar o arquivo para edição."),
                                failureText(vaultManager.lastFailure(), path)}}});
    else if (closer.isWaiting())
        return; // The copy would be gone before a program has opened it.
    else if (QDesktopServices::openUrl(QUrl::fromLocalFile(copyPath)))
        conclude({.status = tr("Arquivo aberto para edição.")});
    else
        warnOfFailedOpening();
}

void MainWindow::warnOfFailedOpening()
{
    conclude(FileOperations::failedOpening());
}

void MainWindow::deleteSelectedFile()
{
    const QString path = selectedVaultPath();
    if (!path.isEmpty() && confirmDeleteVaultFile(path))
        conclude(fileOperations.deleteFile(path));
}

void MainWindow::moveSelectedFile()
{
    if (const QString path = selectedVaultPath(); !path.isEmpty())
        conclude(fileOperations.moveFile(path));
}

void MainWindow::renameSelectedFile()
{
    if (const QString path = selectedVaultPath(); !path.isEmpty())
        conclude(fileOperations.renameFile(path));
}

void MainWindow::createDirectory()
{
    conclude(fileOperations.createDirectory(browser->currentDirectory()));
}

void MainWindow::renameSelectedDirectory()
{
    const QString directory = selectedDirectoryPath();
    if (directory.isEmpty() || selectedItemIsParentDirectory())
        return;
    QString newPath = directory;
    const Outcome outcome = fileOperations.renameDirectory(directory, &newPath);
    if (Core::vaultPathsEqual(browser->currentDirectory(), directory))
        browser->showDirectory(newPath);
    conclude(outcome);
}

void MainWindow::deleteSelectedDirectory()
{
    const QString directory = selectedDirectoryPath();
    if (!directory.isEmpty() && !selectedItemIsParentDirectory())
        conclude(fileOperations.deleteDirectory(directory));
}

bool MainWindow::confirmReplaceVaultFile(const QString &path) const
{
    return questionYesNo(
        window(), tr("Substituir arquivo"),
        tr("%1 já existe no cofre. Deseja substituir o arquivo protegido?").arg(shownName(path)),
        fileOperations.editNote(path, tr("Elas serão perdidas.")));
}

bool MainWindow::confirmDeleteVaultFile(const QString &path) const
{
    return questionYesNo(window(), tr("Excluir arquivo"),
                         tr("Excluir %1 removerá o arquivo da lista do cofre.\n\nOs dados físicos só serão "
                            "liberados do container após executar Compactar cofre.")
                             .arg(shownName(path)),
                         fileOperations.editNote(path, tr("Elas serão perdidas com ele.")));
}

bool MainWindow::confirmExportOutsideVault(const QString &path) const
{
    return questionContinueCancel(
        window(), tr("Exportar arquivo"),
        tr("Exportar %1 criará uma cópia descriptografada fora do cofre. Alterações "
           "feitas nessa cópia não voltam automaticamente para o Tessarin.")
            .arg(shownName(path)),
        fileOperations.editNote(path, tr("Em seguida, você escolhe qual versão exportar.")));
}

// The program -----------------------------------------------------------------------------------------------

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
