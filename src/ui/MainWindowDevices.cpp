// The list of drives, and the container that is chosen or created on one of them.
#include "ui/MainWindow.h"

#include "core/ContainerManager.h"
#include "core/Secret.h"
#include "ui/Contrast.h"
#include "ui/Formatting.h"
#include "ui/MessageBoxes.h"
#include "ui/WaitCursor.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QSignalBlocker>
#include <QStorageInfo>

#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr int rootPathRole = Qt::UserRole;
constexpr int identityRole = Qt::UserRole + 1;
constexpr QColor unmountedColor(0x6e, 0x6e, 0x6e);

QString containerFilter()
{
    return MainWindow::tr("Tessarin Container (*.trvx);;Todos os arquivos (*.*)");
}

QString rootPathOf(const QListWidgetItem *item)
{
    return item ? item->data(rootPathRole).toString() : QString();
}

QString comparablePath(const QString &directoryPath)
{
    return normalizeDirectoryPath(QDir::cleanPath(directoryPath));
}

/// A row that tells why there are no drives; it is none itself.
void addNote(QListWidget *list, const QString &text)
{
    auto *item = new QListWidgetItem(text, list);
    item->setFlags(item->flags() & ~Qt::ItemIsSelectable);
}

/// For people who point at the row as for people who hear it.
void setHint(QListWidgetItem *item, const QString &hint)
{
    item->setToolTip(hint);
    item->setData(Qt::AccessibleDescriptionRole, hint);
}

QString rowText(const Platform::UsbDevice &device)
{
    const QString name =
        device.displayName.isEmpty() ? QFileInfo(device.devicePath).fileName() : device.displayName;
    QString place = device.devicePath;
    if (device.mounted)
        place = device.rootPath;
    else if (place.isEmpty())
        place = MainWindow::tr("não montado");
    return MainWindow::tr("%1 (%2)").arg(name, place);
}

QString freeSpaceText(const QString &rootPath)
{
    const QStorageInfo storage(rootPath);
    if (!storage.isValid() || !storage.isReady())
        return {};
    return MainWindow::tr(" | %1").arg(
        MainWindow::tr("%1 livres").arg(formatFileSize(storage.bytesAvailable())));
}

} // namespace

void MainWindow::refreshDevices()
{
    {
        const QSignalBlocker blocker(deviceList);
        deviceList->clear();
        if (!deviceManager) {
            addNote(deviceList, tr("Detecção de USB ainda não disponível neste sistema."));
        } else {
            const QList<Platform::UsbDevice> devices = deviceManager->detectUsbDevices();
            for (const Platform::UsbDevice &device : devices)
                addDeviceRow(device);
            if (devices.isEmpty())
                addNote(deviceList, tr("Nenhum dispositivo USB detectado."));
        }
        if (containerPath.isEmpty())
            selectDefaultUsbAfterRefresh();
        else
            selectDeviceForContainer(containerPath);
    }
    updateActions();
}

void MainWindow::followMounts()
{
    mountsChanged = operationRunning;
    if (operationRunning)
        return;
    const QString chosenRoot = selectedUsbRootPath();
    refreshDevices();
    if (containerPath.isEmpty()) {
        for (int row = 0; row < deviceList->count(); ++row) {
            if (!chosenRoot.isEmpty() && rootPathOf(deviceList->item(row)) == chosenRoot)
                setCurrentDeviceRow(row);
        }
    }
    if (isUnlocked())
        tellOfContainerDrive();
}

void MainWindow::tellOfContainerDrive()
{
    const bool isThere = !selectedUsbRootPath().isEmpty();
    const bool wasThere = std::exchange(containerDriveWasThere, isThere);
    if (wasThere && !isThere)
        setStatusMessage(tr("A unidade do cofre aberto foi desconectada."), 0);
    else if (!wasThere && isThere)
        setStatusMessage(tr("A unidade do cofre aberto foi conectada de novo."), statusTimeoutMs);
}

void MainWindow::addDeviceRow(const Platform::UsbDevice &device)
{
    auto *item = new QListWidgetItem(rowText(device), deviceList);
    item->setData(identityRole, device.identifier);
    if (device.mounted) {
        item->setData(rootPathRole, device.rootPath);
        item->setText(item->text() + freeSpaceText(device.rootPath));
        return;
    }
    item->setText(item->text() + tr(" | não montado"));
    item->setFlags(item->flags() & ~Qt::ItemIsSelectable);
    item->setForeground(unmountedColor);
    if (!isReadable(unmountedColor, deviceList->palette().color(QPalette::Base)))
        item->setBackground(lightGround);
    setHint(item, tr("Monte a unidade USB no gerenciador de arquivos e atualize a lista."));
}

QString MainWindow::selectedUsbRootPath() const
{
    // A Ctrl+click leaves a row current that no longer shows as chosen.
    const QListWidgetItem *item = deviceList->currentItem();
    return item && item->isSelected() ? rootPathOf(item) : QString();
}

QString MainWindow::selectedUsbDisplayName() const
{
    return selectedUsbRootPath().isEmpty() ? QString() : deviceList->currentItem()->text();
}

int MainWindow::mountedUsbDeviceCount() const
{
    int count = 0;
    for (int row = 0; row < deviceList->count(); ++row) {
        if (!rootPathOf(deviceList->item(row)).isEmpty())
            ++count;
    }
    return count;
}

void MainWindow::selectDefaultUsbAfterRefresh()
{
    // With several drives people must choose, lest a vault is created on the wrong one.
    setCurrentDeviceRow(-1);
    if (mountedUsbDeviceCount() != 1)
        return;
    for (int row = 0; row < deviceList->count(); ++row) {
        if (!rootPathOf(deviceList->item(row)).isEmpty())
            setCurrentDeviceRow(row);
    }
}

void MainWindow::selectDeviceForContainer(const QString &path)
{
    const QSignalBlocker blocker(deviceList);
    const QString containerRoot = path.isEmpty() ? QString() : comparablePath(QFileInfo(path).absolutePath());
    int containerRow = -1;
    for (int row = 0; row < deviceList->count(); ++row) {
        QListWidgetItem *item = deviceList->item(row);
        const QString root = rootPathOf(item);
        if (root.isEmpty())
            continue;
        setHint(item, {});
        if (containerRow < 0 && comparablePath(root) == containerRoot) {
            containerRow = row;
            setHint(item, tr("Dispositivo associado ao container selecionado."));
        }
    }
    setCurrentDeviceRow(containerRow);
}

void MainWindow::setCurrentDeviceRow(int row)
{
    deviceList->clearSelection();
    // Told of no row by setCurrentRow(), the list would make its first row current once it has the focus.
    deviceList->setCurrentIndex(deviceList->model()->index(row, 0));
}

void MainWindow::keepContainerDevice()
{
    if (!containerPath.isEmpty())
        selectDeviceForContainer(containerPath);
    updateActions();
}

void MainWindow::useContainer(const QString &path)
{
    containerPath = path;
    selectDeviceForContainer(path);
    updateActions();
}

void MainWindow::openDeviceItem(QListWidgetItem *item)
{
    const QString root = rootPathOf(item);
    if (!root.isEmpty())
        run([this, root] { useContainerOf(root); });
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
    QInputDialog dialog(this);
    dialog.setObjectName(u"passwordDialog"_s);
    dialog.setWindowTitle(title);
    dialog.setInputMode(QInputDialog::TextInput);
    dialog.setLabelText(tr("Senha:"));
    dialog.setTextEchoMode(QLineEdit::Password);
    dialog.resize(360, dialog.sizeHint().height());
    const bool accepted = dialog.exec() == QDialog::Accepted;
    QByteArray password = accepted ? dialog.textValue().toUtf8() : QByteArray();
    dialog.setTextValue({});
    return password;
}

QByteArray MainWindow::requestNewVaultPassword()
{
    QByteArray password = requestPassword(tr("Definir senha do cofre"));
    if (password.isEmpty())
        return {};
    QByteArray confirmation = requestPassword(tr("Confirmar senha do cofre"));
    const Core::WipedAtScopeEnd wipedConfirmation(confirmation);

    if (confirmation != password) {
        Core::wipe(password);
        showWarning(nullptr, tr("Tessarin"), tr("As senhas informadas não coincidem."));
        return {};
    }
    if (!Core::VaultManager::isLongEnough(password)) {
        Core::wipe(password);
        showWarning(nullptr, tr("Tessarin"),
                    tr("Use uma senha com pelo menos 12 caracteres para criar o cofre."));
        return {};
    }
    return password;
}

} // namespace Tessarin::UI
