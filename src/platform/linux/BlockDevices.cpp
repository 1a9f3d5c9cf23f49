// Answers questions about block devices from the files that the kernel and udev publish. Names and labels
// come from whatever was plugged in: paths are made by joining, never by filling "%1" patterns twice.
#include "platform/linux/BlockDevices.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>

namespace Tessarin::Platform::Linux {

using namespace Qt::Literals::StringLiterals;

namespace {

// Longer than any line the kernel writes into the files read here.
constexpr qint64 firstLineLimitBytes = 4096;

/// An absolute path of the tree below `root` as this process reaches it.
QString inRoot(const QString &root, const QString &path)
{
    return QDir::cleanPath(root) == "/"_L1 ? path : QDir::cleanPath(root) + path;
}

/// The path with every link followed, as seen from inside `root`, so that the names of the directories above
/// the root have no say. Empty when it does not resolve or leads out of the root.
QString canonicalInRoot(const QString &root, const QString &path)
{
    const QString resolved = QFileInfo(inRoot(root, path)).canonicalFilePath();
    const QString resolvedRoot = QFileInfo(root).canonicalFilePath();
    if (resolvedRoot == "/"_L1)
        return resolved;
    return resolved.startsWith(resolvedRoot + u'/') ? resolved.sliced(resolvedRoot.size()) : QString();
}

QString classEntry(const QString &name)
{
    return "/sys/class/block/"_L1 + name;
}

bool hasRemovableFlag(const QString &name, const QString &root)
{
    return readFirstLine(inRoot(root, classEntry(name) + "/removable"_L1)) == "1"_L1;
}

bool hangsFromUsb(const QString &name, const QString &root)
{
    return blockDeviceSysfsPath(name, root).contains("/usb"_L1);
}

/// True when something holds of a device, or of the disk that it is a partition of.
bool holdsOfDeviceOrDisk(const QString &name, const QString &root,
                         bool (*holds)(const QString &name, const QString &root))
{
    if (holds(name, root))
        return true;
    const QString disk = parentDiskName(name, root);
    return disk != name && holds(disk, root);
}

QStringList userNames()
{
    QStringList users;
    for (const char *variable : {"USER", "LOGNAME"}) {
        const QString user = qEnvironmentVariable(variable);
        if (!user.isEmpty())
            users.append(user);
    }
    return users;
}

} // namespace

QString decodeMountInfoToken(QString text)
{
    // The backslash comes last: decoded earlier, it could complete an escape that was never written.
    return text.replace("\\040"_L1, " "_L1)
        .replace("\\011"_L1, "\t"_L1)
        .replace("\\012"_L1, "\n"_L1)
        .replace("\\134"_L1, "\\"_L1);
}

std::optional<MountInfoLine> parseMountInfoLine(const QString &line)
{
    const QString separator = u" - "_s;
    const QStringList mount = line.section(separator, 0, 0).split(u' ', Qt::SkipEmptyParts);
    const QStringList fileSystem = line.section(separator, 1).split(u' ', Qt::SkipEmptyParts);
    if (mount.size() < 5 || fileSystem.size() < 3)
        return std::nullopt;

    return MountInfoLine{decodeMountInfoToken(mount.at(4)), decodeMountInfoToken(fileSystem.at(0)),
                         decodeMountInfoToken(fileSystem.at(1))};
}

QString blockDeviceSysfsPath(const QString &name, const QString &root)
{
    return canonicalInRoot(root, classEntry(name));
}

QString parentDiskName(const QString &name, const QString &root)
{
    return blockDeviceSysfsPath(name, root).section(u"/block/"_s, 1, 1).section(u'/', 0, 0);
}

bool isUsbBlockDevice(const QString &name, const QString &root)
{
    return holdsOfDeviceOrDisk(name, root, &hangsFromUsb);
}

bool isRemovableBlockDevice(const QString &name, const QString &root)
{
    return holdsOfDeviceOrDisk(name, root, &hasRemovableFlag);
}

bool isOpticalBlockDevice(const QString &name, const QString &root)
{
    // 5 is the SCSI peripheral device type of CD and DVD drives.
    return readFirstLine(inRoot(root, classEntry(name) + "/device/type"_L1)) == "5"_L1;
}

bool isPartitionedDisk(const QString &name, const QString &root)
{
    if (name != parentDiskName(name, root))
        return false;
    const QStringList entries =
        QDir(inRoot(root, classEntry(name)))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    return std::any_of(entries.cbegin(), entries.cend(),
                       [&name](const QString &entry) { return entry != name && entry.startsWith(name); });
}

QString readFirstLine(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return QString::fromUtf8(file.readLine(firstLineLimitBytes)).trimmed();
}

QString fallbackDisplayName(const QString &devicePath, const QString &rootPath)
{
    if (rootPath.isEmpty() || rootPath == "/"_L1)
        return QFileInfo(devicePath).fileName();
    return QFileInfo(rootPath).fileName();
}

QString decodeUdevEscapes(QString text)
{
    for (qsizetype at = text.indexOf("\\x"_L1); at != -1; at = text.indexOf("\\x"_L1, at + 1)) {
        bool isHex = false;
        const QString digits = text.mid(at + 2, 2);
        const char16_t character = digits.toUShort(&isHex, 16);
        if (isHex && digits.size() == 2)
            text.replace(at, 4, QChar(character));
    }
    return text;
}

QHash<QString, QString> blockLabelMap(const QString &root)
{
    const QString directory = QStringLiteral("/dev/disk/by-label");
    // A link to a device node is a "system" entry, and a label may begin with a dot.
    const QStringList entries =
        QDir(inRoot(root, directory))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);

    QHash<QString, QString> labels;
    for (const QString &entry : entries) {
        const QString target = canonicalInRoot(root, directory + u'/' + entry);
        if (target.startsWith("/dev/"_L1))
            labels.insert(QFileInfo(target).fileName(), decodeMountInfoToken(entry));
    }
    return labels;
}

QString mountedRootForLabel(const QString &label, const QString &root)
{
    // Whoever wrote such a label on the drive would choose a directory anywhere.
    if (label.contains(u'/'))
        return {};

    QStringList candidates;
    for (const QString &user : userNames()) {
        candidates.append("/media/"_L1 + user + u'/' + label);
        candidates.append("/run/media/"_L1 + user + u'/' + label);
    }
    candidates.append("/mnt/"_L1 + label);

    for (const QString &candidate : candidates) {
        if (QFileInfo(inRoot(root, candidate)).isDir())
            return candidate;
    }
    return {};
}

} // namespace Tessarin::Platform::Linux
