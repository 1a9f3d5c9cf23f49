// What the kernel's public views say about block devices: the mount table, sysfs and the disk labels. Every
// question is a pure function of the files below a root directory, so that a made-up tree answers it as well
// as the running system ("/") does.
#pragma once

#include <QHash>
#include <QString>

#include <optional>

namespace Tessarin::Platform::Linux {

// The mount table

/// What a line of /proc/self/mountinfo says of one mount, escapes decoded.
struct MountInfoLine
{
    QString mountPoint;
    QString fileSystemType;
    QString source; ///< The device node for drives; any text for other file systems.
};

/// Undoes the octal escapes that the kernel writes for a space, a tab, a line feed and a backslash.
[[nodiscard]] QString decodeMountInfoToken(QString text);

/// Empty when the line is not of the form "36 35 8:17 / /mount/point options [tags] - type source options".
[[nodiscard]] std::optional<MountInfoLine> parseMountInfoLine(const QString &line);

// Block devices, by their kernel name (sdb, sdb1). Paths are as seen from inside `root`.

/// Where /sys/class/block/NAME leads when every link is followed; empty if it leads nowhere inside the root.
[[nodiscard]] QString blockDeviceSysfsPath(const QString &name, const QString &root = QStringLiteral("/"));

/// The whole disk that the device is or belongs to, such as sdb for sdb1; empty when it has none.
[[nodiscard]] QString parentDiskName(const QString &name, const QString &root = QStringLiteral("/"));

/// Whether the device, or the disk it belongs to, hangs from a USB bus.
[[nodiscard]] bool isUsbBlockDevice(const QString &name, const QString &root = QStringLiteral("/"));

/// The kernel's removable flag of the device or of the disk it belongs to.
[[nodiscard]] bool isRemovableBlockDevice(const QString &name, const QString &root = QStringLiteral("/"));

/// Whether the device is a CD or DVD drive.
[[nodiscard]] bool isOpticalBlockDevice(const QString &name, const QString &root = QStringLiteral("/"));

/// Whether the device is a whole disk that shows partitions of its own.
[[nodiscard]] bool isPartitionedDisk(const QString &name, const QString &root = QStringLiteral("/"));

// Names and labels

/// Trimmed; empty if the file cannot be opened. Only the first 4096 bytes are looked at.
[[nodiscard]] QString readFirstLine(const QString &path);

/// A name for a drive that carries none: the last part of its root path, or of its device path when it is
/// mounted nowhere or at "/".
[[nodiscard]] QString fallbackDisplayName(const QString &devicePath, const QString &rootPath);

/// Undoes the escapes of the form \x20 that udev writes into the names of links.
[[nodiscard]] QString decodeUdevEscapes(QString text);

/// The label of each labelled block device, by kernel name, in which udev's escapes are left.
[[nodiscard]] QHash<QString, QString> blockLabelMap(const QString &root = QStringLiteral("/"));

/// The existing directory where a desktop would have mounted a drive of this label; empty when there is none,
/// or when the label has a slash. Looks below the users named by the environment variables USER and LOGNAME,
/// then below /mnt.
[[nodiscard]] QString mountedRootForLabel(const QString &label, const QString &root = QStringLiteral("/"));

} // namespace Tessarin::Platform::Linux
