// Finds USB drives in three phases: the toolkit's mounted volumes, the kernel's mount table for those the
// toolkit hides (below /run, for one), and labelled drives that nobody has mounted.
#include "platform/linux/LinuxDeviceManager.h"

#include "platform/linux/BlockDevices.h"
#include "platform/linux/MountWatcher.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <QStorageInfo>

namespace Tessarin::Platform::Linux {

using namespace Qt::Literals::StringLiterals;

namespace {

bool isDrive(const QString &blockName)
{
    return (isUsbBlockDevice(blockName) || isRemovableBlockDevice(blockName)) &&
           !isOpticalBlockDevice(blockName);
}

QString displayName(const QStorageInfo &volume, const QString &devicePath, const QString &rootPath)
{
    if (!volume.name().isEmpty())
        return volume.name();
    // Since version 6.8 the toolkit gives no label for some drives that have one.
    const QString label = decodeUdevEscapes(blockLabelMap().value(QFileInfo(devicePath).fileName()));
    if (!label.isEmpty())
        return label;
    // Without a label the toolkit answers with the root path, and "/" is no name for a drive.
    const QString toolkitName = volume.displayName();
    if (!toolkitName.isEmpty() && toolkitName != "/"_L1)
        return toolkitName;
    return fallbackDisplayName(devicePath, rootPath);
}

UsbDevice mountedDevice(const QStorageInfo &volume, const QString &devicePath, const QString &rootPath,
                        const QString &fileSystemType)
{
    UsbDevice device;
    device.identifier = rootPath + u':' + devicePath;
    device.devicePath = devicePath;
    device.displayName = displayName(volume, devicePath, rootPath);
    device.rootPath = rootPath;
    device.fileSystemType = fileSystemType;
    device.removable = isRemovableBlockDevice(QFileInfo(devicePath).fileName());
    device.mounted = true;
    return device;
}

/// The drives found so far, each device and each root path at most once, and which devices are drives.
class FoundDevices
{
public:
    /// Asked in every phase and answered once: each answer takes many looks at the tree.
    bool qualifies(const QString &blockName)
    {
        const auto known = qualifying.constFind(blockName);
        return known != qualifying.cend() ? *known : *qualifying.insert(blockName, isDrive(blockName));
    }

    void add(const UsbDevice &device)
    {
        const QString blockName = QFileInfo(device.devicePath).fileName();
        if (blockNames.contains(blockName) || rootPaths.contains(device.rootPath))
            return;
        blockNames.insert(blockName);
        // Any number of drives may be mounted nowhere.
        if (!device.rootPath.isEmpty())
            rootPaths.insert(device.rootPath);
        devices.append(device);
    }

    QList<UsbDevice> devices;

private:
    QHash<QString, bool> qualifying;
    QSet<QString> blockNames;
    QSet<QString> rootPaths;
};

void addMountedVolumes(FoundDevices &found)
{
    const QList<QStorageInfo> volumes = QStorageInfo::mountedVolumes();
    for (const QStorageInfo &volume : volumes) {
        const QString devicePath = QString::fromLocal8Bit(volume.device());
        if (!devicePath.startsWith("/dev/"_L1) || !volume.isReady())
            continue;
        if (!found.qualifies(QFileInfo(devicePath).fileName()))
            continue;
        found.add(
            mountedDevice(volume, devicePath, volume.rootPath(), QString::fromUtf8(volume.fileSystemType())));
    }
}

void addMountTable(FoundDevices &found)
{
    QFile mountTable(QStringLiteral("/proc/self/mountinfo"));
    if (!mountTable.open(QIODevice::ReadOnly))
        return;

    const QList<QByteArray> lines = mountTable.readAll().split('\n');
    for (const QByteArray &line : lines) {
        // Most file systems are on no device; their lines need no taking apart.
        if (!line.contains(" /dev/"))
            continue;
        const std::optional<MountInfoLine> mount = parseMountInfoLine(QFile::decodeName(line));
        if (!mount || !mount->source.startsWith("/dev/"_L1))
            continue;
        const QString blockName = QFileInfo(mount->source).fileName();
        if (!found.qualifies(blockName))
            continue;

        const QStorageInfo volume(mount->mountPoint);
        const QString rootPath = volume.isValid() ? volume.rootPath() : mount->mountPoint;
        const QString fileSystemType = mount->fileSystemType.isEmpty()
                                           ? QString::fromUtf8(volume.fileSystemType())
                                           : mount->fileSystemType;
        found.add(mountedDevice(volume, mount->source, rootPath, fileSystemType));
    }
}

void addUnmountedDrives(FoundDevices &found)
{
    const QHash<QString, QString> labels = blockLabelMap();
    if (labels.isEmpty())
        return;
    const QStringList blockNames =
        QDir(QStringLiteral("/sys/class/block")).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QString &blockName : blockNames) {
        // Most devices have no label, and the other questions take many looks at the tree each.
        if (!labels.contains(blockName) || !found.qualifies(blockName) || isPartitionedDisk(blockName))
            continue;

        const QString label = decodeUdevEscapes(labels.value(blockName));
        UsbDevice device;
        device.identifier = blockName;
        device.devicePath = "/dev/"_L1 + blockName;
        device.displayName = label;
        device.rootPath = mountedRootForLabel(label);
        device.removable = isRemovableBlockDevice(blockName);
        found.add(device);
    }
}

} // namespace

LinuxDeviceManager::LinuxDeviceManager() = default;

LinuxDeviceManager::~LinuxDeviceManager() = default;

QList<UsbDevice> LinuxDeviceManager::detectUsbDevices() const
{
    FoundDevices found;
    addMountedVolumes(found);
    addMountTable(found);
    addUnmountedDrives(found);
    return found.devices;
}

void LinuxDeviceManager::setChangeCallback(const std::function<void()> &changed)
{
    mountWatcher = std::make_unique<MountWatcher>();
    QObject::connect(mountWatcher.get(), &MountWatcher::changed, changed);
}

} // namespace Tessarin::Platform::Linux

std::unique_ptr<Tessarin::Platform::DeviceManager> Tessarin::Platform::makeSystemDeviceManager()
{
    return std::make_unique<Linux::LinuxDeviceManager>();
}
