// The rows are rebuilt at every refresh. Signals are blocked meanwhile, since every single row that comes or
// goes would look like a choice of its user.
#include "ui/DeviceList.h"

#include "ui/Formatting.h"
#include "ui/OperationGuard.h"

#include <QDir>
#include <QFileInfo>
#include <QMouseEvent>
#include <QSignalBlocker>
#include <QStorageInfo>

#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr int rootPathRole = Qt::UserRole;
constexpr int identityRole = Qt::UserRole + 1;
constexpr int nameRole = Qt::UserRole + 2;
constexpr QColor unmountedColor(0x6e, 0x6e, 0x6e);

QString rootPathOf(const QListWidgetItem *item)
{
    return item ? item->data(rootPathRole).toString() : QString();
}

/// A row that says why there are no drives; it is none itself.
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
        place = DeviceList::tr("não montado");
    return DeviceList::tr("%1 (%2)").arg(shownName(name), shownName(place));
}

QString freeSpaceText(const QString &rootPath)
{
    const QStorageInfo storage(rootPath);
    if (!storage.isReady())
        return {};
    return DeviceList::tr(" | %1").arg(
        DeviceList::tr("%1 livres").arg(formatFileSize(storage.bytesAvailable())));
}

} // namespace

DeviceList::DeviceList(Platform::DeviceManager *driveDetector, const OperationGuard &operations,
                       QWidget *parent)
    : QListWidget(parent), detector(driveDetector), guard(operations)
{
    setObjectName(u"deviceList"_s);
    setAccessibleName(tr("Dispositivos USB"));
    setFixedHeight(3 * fontMetrics().height() + 24 + 2 * frameWidth());

    connect(this, &QListWidget::currentItemChanged, this, &DeviceList::keepContainerDevice);
    // A mouse click selects its row only after the current row has changed.
    connect(this, &QListWidget::itemSelectionChanged, this, &DeviceList::keepContainerDevice);
    connect(this, &QListWidget::itemDoubleClicked, this, [this](const QListWidgetItem *item) {
        if (const QString root = rootPathOf(item); !root.isEmpty())
            Q_EMIT driveOpened(root);
    });
    connect(&guard, &OperationGuard::over, this, [this] {
        if (mountsChanged)
            followMounts();
    });
    // Before the first look at the drives, so that no change after it is missed.
    if (detector)
        detector->setChangeCallback([this] { followMounts(); });
}

void DeviceList::refresh()
{
    {
        const QSignalBlocker blocker(this);
        clear();
        if (!detector) {
            addNote(this, tr("Detecção de USB ainda não disponível neste sistema."));
        } else {
            const QList<Platform::UsbDevice> devices = detector->detectUsbDevices();
            for (const Platform::UsbDevice &device : devices)
                addRow(device);
            if (devices.isEmpty())
                addNote(this, tr("Nenhum dispositivo USB detectado."));
        }
        if (containerPath.isEmpty())
            selectDefaultUsbAfterRefresh();
        else
            selectContainerRow();
    }
    Q_EMIT changed();
}

void DeviceList::addRow(const Platform::UsbDevice &device)
{
    auto *row = new QListWidgetItem(rowText(device), this);
    row->setData(identityRole, device.identifier);
    row->setData(nameRole, row->text());
    if (device.mounted) {
        row->setData(rootPathRole, device.rootPath);
        row->setText(row->text() + freeSpaceText(device.rootPath));
        return;
    }
    row->setText(row->text() + tr(" | não montado"));
    row->setFlags(row->flags() & ~Qt::ItemIsSelectable);
    row->setForeground(unmountedColor);
    setHint(row, tr("Monte a unidade USB no gerenciador de arquivos e atualize a lista."));
}

void DeviceList::followMounts()
{
    mountsChanged = guard.isRunning();
    if (mountsChanged)
        return;
    const QString chosenRoot = selectedUsbRootPath();
    refresh();
    if (containerPath.isEmpty() && !chosenRoot.isEmpty())
        chooseDrive(chosenRoot);
    const bool wasThere = containerDriveThere;
    watchContainerDrive();
    if (wasThere && !containerDriveThere)
        Q_EMIT containerDriveLeft();
    else if (!wasThere && containerDriveThere)
        Q_EMIT containerDriveReturned();
}

void DeviceList::watchContainerDrive()
{
    containerDriveThere = !selectedUsbRootPath().isEmpty();
}

QString DeviceList::selectedUsbRootPath() const
{
    // A Ctrl+click leaves a row current that no longer shows as chosen.
    const QListWidgetItem *row = currentItem();
    return row && row->isSelected() ? rootPathOf(row) : QString();
}

QString DeviceList::selectedUsbDisplayName() const
{
    return selectedUsbRootPath().isEmpty() ? QString() : currentItem()->text();
}

QString DeviceList::selectedUsbName() const
{
    return selectedUsbRootPath().isEmpty() ? QString() : currentItem()->data(nameRole).toString();
}

QList<QListWidgetItem *> DeviceList::mountedRows() const
{
    QList<QListWidgetItem *> mounted;
    for (int row = 0; row < count(); ++row) {
        if (!rootPathOf(item(row)).isEmpty())
            mounted.append(item(row));
    }
    return mounted;
}

int DeviceList::mountedUsbDeviceCount() const
{
    return static_cast<int>(mountedRows().size());
}

int DeviceList::unmountedUsbDeviceCount() const
{
    int unmounted = 0;
    for (int row = 0; row < count(); ++row) {
        // A note has no identity.
        if (item(row)->data(identityRole).isValid() && rootPathOf(item(row)).isEmpty())
            ++unmounted;
    }
    return unmounted;
}

void DeviceList::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        QListWidget::mouseDoubleClickEvent(event);
}

void DeviceList::selectDefaultUsbAfterRefresh()
{
    // With several drives people must choose, lest a vault is created on the wrong one.
    const QList<QListWidgetItem *> drives = mountedRows();
    selectRow(drives.size() == 1 ? row(drives.first()) : -1);
}

void DeviceList::chooseDrive(const QString &rootPath)
{
    for (const QListWidgetItem *drive : mountedRows()) {
        if (rootPathOf(drive) == rootPath)
            selectRow(row(drive));
    }
}

void DeviceList::selectDeviceForContainer(const QString &path)
{
    containerPath = path;
    selectContainerRow();
}

void DeviceList::selectContainerRow()
{
    const QSignalBlocker blocker(this);
    const QString containerRoot =
        containerPath.isEmpty() ? QString() : comparablePath(QFileInfo(containerPath).absolutePath());
    int containerRow = -1;
    for (QListWidgetItem *drive : mountedRows()) {
        setHint(drive, {});
        if (containerRow < 0 && comparablePath(rootPathOf(drive)) == containerRoot) {
            containerRow = row(drive);
            setHint(drive, tr("Dispositivo associado ao container selecionado."));
        }
    }
    selectRow(containerRow);
}

void DeviceList::selectRow(int row)
{
    clearSelection();
    // After setCurrentRow(-1) the list would make its first row current once it has the focus.
    setCurrentIndex(model()->index(row, 0));
}

void DeviceList::keepContainerDevice()
{
    if (!containerPath.isEmpty())
        selectContainerRow();
    Q_EMIT changed();
}

} // namespace Tessarin::UI
