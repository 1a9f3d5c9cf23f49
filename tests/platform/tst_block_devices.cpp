// Asks the questions about block devices of a made-up machine: a stick with one partition, a USB DVD drive, a
// card reader on PCI and a fixed disk. Its root lies below directories with misleading names.
#include "platform/linux/BlockDevices.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

using namespace Tessarin::Platform::Linux;
using namespace Qt::Literals::StringLiterals;

class BlockDevicesTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir directory;
    const QString root = directory.filePath(u"usb1/block/decoy"_s);

    void write(const QString &path, const QByteArray &content)
    {
        QFile file(root + path);
        QVERIFY(QDir().mkpath(QFileInfo(file).path()));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), content.size());
    }

    void link(const QString &target, const QString &path)
    {
        QVERIFY(QDir().mkpath(QFileInfo(root + path).path()));
        QVERIFY(QFile::link(target, root + path));
    }

    void addDevice(const QString &sysfsPath, const QByteArray &removable)
    {
        write("/sys/devices/"_L1 + sysfsPath + "/uevent"_L1, {});
        if (!removable.isEmpty())
            write("/sys/devices/"_L1 + sysfsPath + "/removable"_L1, removable);
        link("../../devices/"_L1 + sysfsPath, "/sys/class/block/"_L1 + QFileInfo(sysfsPath).fileName());
    }

private Q_SLOTS:
    void devicesAreToldApart()
    {
        const QString stick = u"pci0/usb1/1-1/host0/block/sdb"_s;
        const QString dvd = u"pci0/usb2/2-1/host1/block/sr0"_s;
        const QString card = u"pci0/mmc0/block/mmcblk0"_s;
        const QString disk = u"pci0/ata1/block/sda"_s;
        for (const QString &removable : {stick, dvd, card})
            addDevice(removable, "1\n");
        addDevice(stick + u"/sdb1"_s, {});
        addDevice(card + u"/mmcblk0p1"_s, {});
        addDevice(disk, "0\n");
        write(u"/sys/devices/"_s + dvd + u"/device/type"_s, "5\n");
        write(u"/sys/devices/"_s + disk + u"/device/type"_s, "0\n");
        link(u"../../devices/missing"_s, u"/sys/class/block/dangling"_s);
        link(u"/etc"_s, u"/sys/class/block/outside"_s);

        const auto verify = [this](const QString &name, const QString &path, const QString &parent,
                                   const QString &traits) {
            QString found = isUsbBlockDevice(name, root) ? u"usb "_s : QString();
            found += isRemovableBlockDevice(name, root) ? u"removable "_s : QString();
            found += isOpticalBlockDevice(name, root) ? u"optical "_s : QString();
            found += isPartitionedDisk(name, root) ? u"partitioned "_s : QString();
            QCOMPARE(found, traits);
            QCOMPARE(blockDeviceSysfsPath(name, root), path.isEmpty() ? path : u"/sys/devices/"_s + path);
            QCOMPARE(parentDiskName(name, root), parent);
        };
        verify(u"sdb"_s, stick, u"sdb"_s, u"usb removable partitioned "_s);
        verify(u"sdb1"_s, stick + u"/sdb1"_s, u"sdb"_s, u"usb removable "_s);
        verify(u"sr0"_s, dvd, u"sr0"_s, u"usb removable optical "_s);
        verify(u"mmcblk0p1"_s, card + u"/mmcblk0p1"_s, u"mmcblk0"_s, u"removable "_s);
        verify(u"sda"_s, disk, u"sda"_s, {});
        for (const QString &nothing : {u"dangling"_s, u"outside"_s, u"%1"_s})
            verify(nothing, {}, {}, {});
    }

    void labelsAreMappedByTheDeviceTheyLeadTo()
    {
        QVERIFY(blockLabelMap(root).isEmpty());

        for (const QString &node : {u"sdb1"_s, u"sdc1"_s, u"sdd1"_s, u"sde1"_s})
            write("/dev/"_L1 + node, {});
        link(u"../../sdb1"_s, u"/dev/disk/by-label/Minhas\\040fotos"_s);
        link(u"../../sdc1"_s, u"/dev/disk/by-label/A\\x20B"_s);
        link(u"../../sdd1"_s, u"/dev/disk/by-label/%1"_s);
        link(u"../../sde1"_s, u"/dev/disk/by-label/.oculto"_s);
        link(u"../../gone"_s, u"/dev/disk/by-label/GONE"_s);
        link(u"../../../sys/devices/pci0"_s, u"/dev/disk/by-label/ELSEWHERE"_s);
        QCOMPARE(blockLabelMap(root), (QHash<QString, QString>{{u"sdb1"_s, u"Minhas fotos"_s},
                                                               {u"sdc1"_s, u"A\\x20B"_s},
                                                               {u"sdd1"_s, u"%1"_s},
                                                               {u"sde1"_s, u".oculto"_s}}));
        QCOMPARE(decodeUdevEscapes(uR"(A\x20B\x5cx20\xZZ \x2fé\x2)"_s), uR"(A B\x20\xZZ /é\x2)"_s);
    }

    void rootForALabelIsTheFirstExistingCandidate()
    {
        qputenv("USER", "%2");
        qputenv("LOGNAME", "bia");
        const QString label = u"%1 fotos"_s;
        QCOMPARE(mountedRootForLabel(label, root), QString());

        // Each directory made here comes before the ones made so far.
        const QStringList candidates{u"/mnt/"_s + label, u"/run/media/bia/"_s + label,
                                     u"/media/bia/"_s + label, u"/run/media/%2/"_s + label,
                                     u"/media/%2/"_s + label};
        for (const QString &candidate : candidates) {
            QVERIFY(QDir().mkpath(root + candidate));
            QCOMPARE(mountedRootForLabel(label, root), candidate);
        }

        write(u"/mnt/a file"_s, "x");
        QCOMPARE(mountedRootForLabel(u"a file"_s, root), QString());
    }

    void mountTableLinesAreParsedAndDecodedOnce()
    {
        const auto parsed = [](const QString &line) {
            const std::optional<MountInfoLine> mount = parseMountInfoLine(line);
            return mount ? QStringList{mount->mountPoint, mount->fileSystemType, mount->source}
                         : QStringList{};
        };
        QCOMPARE(
            parsed(uR"(36 35 8:17 / /media/A\040B\011C\012D\134E\134040 rw shared:1 - vfat /dev/sdb1 rw)"_s),
            (QStringList{u"/media/A B\tC\nD\\E\\040"_s, u"vfat"_s, u"/dev/sdb1"_s}));
        QCOMPARE(parsed(u"36 35  8:17 / /mnt - ext4 /dev/b - c"_s),
                 (QStringList{u"/mnt"_s, u"ext4"_s, u"/dev/b"_s}));

        for (const QString &malformed :
             {u""_s, u"36 35 8:17 / /mnt rw ext4 /dev/sdb1 rw"_s, u"36 35 8:17 / - ext4 /dev/sdb1 rw"_s,
              u"36 35 8:17 / /mnt - ext4 /dev/sdb1"_s})
            QVERIFY2(parsed(malformed).isEmpty(), qPrintable(malformed));
    }
};

QTEST_GUILESS_MAIN(BlockDevicesTest)
#include "tst_block_devices.moc"
