// The list of drives, and the container that is chosen or created on one of them.
#include "ui/MainWindow.h"

#include "core/ContainerManager.h"
#include "core/Secret.h"
#include "ui/DeviceList.h"
#include "ui/Formatting.h"
#include "ui/MessageBoxes.h"
#include "ui/PasswordPrompt.h"
#include "ui/WaitCursor.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QStorageInfo>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

QString containerFilter()
{
    return MainWindow::tr("Tessarin Container (*.trvx);;Todos os arquivos (*.*)");
}

} // namespace

void MainWindow::refreshDevices()
{
    deviceList->refresh();
}

void MainWindow::selectDeviceForContainer(const QString &path)
{
    deviceList->selectDeviceForContainer(path);
}

void MainWindow::selectDefaultUsbAfterRefresh()
{
    deviceList->selectDefaultUsbAfterRefresh();
}

QString MainWindow::selectedUsbRootPath() const
{
    return deviceList->selectedUsbRootPath();
}

QString MainWindow::selectedUsbDisplayName() const
{
    return deviceList->selectedUsbDisplayName();
}

int MainWindow::mountedUsbDeviceCount() const
{
    return deviceList->mountedUsbDeviceCount();
}

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
        showInformation(
            this, tr("Tessarin"),
            tr("Nenhum tessarin.trvx foi encontrado em %1. Use Criar cofre para criar um novo container.")
                .arg(driveRoot),
            compactionTwinNote(path));
        return;
    }
    // The container of an open vault stays the current one until the vault is locked.
    if (!isUnlocked())
        useContainer(path);
}

QString MainWindow::compactionTwinNote(const QString &path)
{
    const QStringList twins = Core::VaultManager::compactionTwins(path);
    if (twins.isEmpty())
        return {};
    return tr("Uma compactação deste cofre parece ter sido interrompida. Ele pode estar inteiro em:\n%1\n\n"
              "Escolha esse arquivo em USB > Container > Escolher container... e use a mesma senha.")
        .arg(QDir::toNativeSeparators(twins.join(u'\n')));
}

void MainWindow::chooseContainer()
{
    const QString path = QFileDialog::getOpenFileName(this, tr("Escolher container Tessarin"),
                                                      selectedUsbRootPath(), containerFilter());
    if (path.isEmpty())
        return;
    useContainer(path);
    setStatusMessage(tr("Container selecionado."), statusTimeoutMs);
}

void MainWindow::createVault()
{
    const QString root = selectedUsbRootPath();
    const QByteArray drive = QStorageInfo(root).device();
    const QString chosenPath =
        QFileDialog::getSaveFileName(this, tr("Criar container Tessarin"),
                                     Core::ContainerManager().containerPath(root), containerFilter());
    if (chosenPath.isEmpty())
        return;

    const QFileInfo file(QDir::cleanPath(chosenPath));
    const bool isInRoot = !root.isEmpty() && comparablePath(file.absolutePath()) == comparablePath(root);
    if (!isInRoot || file.suffix().compare(u"trvx"_s, Qt::CaseInsensitive) != 0) {
        showInformation(this, tr("Criar cofre"),
                        tr("O cofre deve ser criado como arquivo .trvx diretamente na raiz da unidade USB "
                           "selecionada."));
        return;
    }

    QByteArray password = requestNewVaultPassword();
    if (password.isEmpty())
        return;
    bool created = false;
    {
        const Core::WipedAtScopeEnd wiped(password);
        const WaitCursor waitCursor;
        // A directory that a pulled drive was mounted at may still be there, on the disk of the system.
        created = QStorageInfo(root).device() == drive && vaultManager.createVault(file.filePath(), password);
    }
    if (!created) {
        refreshVaultFiles();
        updateActions();
        showWarning(this, tr("Tessarin"), tr("Não foi possível criar o cofre."));
        return;
    }
    useContainer(file.filePath());
    refreshVaultFiles();
    updateActions();
    setStatusMessage(tr("Cofre criado com sucesso."), statusTimeoutMs);
}

QByteArray MainWindow::requestPassword(const QString &title)
{
    return UI::requestPassword(this, title);
}

QByteArray MainWindow::requestNewVaultPassword()
{
    return UI::requestNewVaultPassword(this);
}

} // namespace Tessarin::UI
