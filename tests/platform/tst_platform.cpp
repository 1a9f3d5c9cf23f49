// Asks the questions about block devices of a made-up machine: a stick with one partition, a USB DVD drive, a
// card reader on PCI and a fixed disk. Its root lies below directories with misleading names. And what the
// process asks of the kernel for itself.
#include "platform/ProcessProtection.h"
#include "platform/TerminationSignals.h"
#include "platform/linux/BlockDevices.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include <sys/prctl.h>
#include <sys/resource.h>

using namespace Tessarin::Platform::Linux;
using namespace Qt::Literals::StringLiterals;

class PlatformTest : public QObject
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

    /// Each flag is a file below the device and the line in it.
    void addDevice(const QString &path, const QList<std::pair<QString, QByteArray>> &flags = {})
    {
        write("/sys/devices/"_L1 + path + "/uevent"_L1, {});
        for (const auto &[name, line] : flags)
            write("/sys/devices/"_L1 + path + u'/' + name, line + '\n');
        link("../../devices/"_L1 + path, "/sys/class/block/"_L1 + QFileInfo(path).fileName());
    }

private Q_SLOTS:
    void init() { QVERIFY(QDir().mkpath(root)); }
    void cleanup() { QVERIFY(QDir(root).removeRecursively()); }

    void devicesAreToldApart()
    {
        const QString stick = u"pci0/usb1/1-1/host0/block/sdb"_s;
        const QString dvd = u"pci0/usb2/2-1/host1/block/sr0"_s;
        const QString card = u"pci0/mmc0/block/mmcblk0"_s;
        const QString disk = u"pci0/ata1/block/sda"_s;
        const QString mapped = u"virtual/block/sdb/sdb9"_s;
        addDevice(stick, {{u"removable"_s, "1"}});
        addDevice(stick + u"/sdb1"_s);
        addDevice(dvd, {{u"removable"_s, "1"}, {u"device/type"_s, "5"}});
        addDevice(card, {{u"removable"_s, "1"}});
        addDevice(card + u"/mmcblk0p1"_s);
        addDevice(disk, {{u"removable"_s, "0"}, {u"device/type"_s, "0"}});
        addDevice(mapped);
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
        verify(u"sdb9"_s, mapped, u"sdb"_s, u"usb removable "_s);
        verify(u"sr0"_s, dvd, u"sr0"_s, u"usb removable optical "_s);
        verify(u"mmcblk0p1"_s, card + u"/mmcblk0p1"_s, u"mmcblk0"_s, u"removable "_s);
        verify(u"sda"_s, disk, u"sda"_s, {});
        for (const QString &nothing : {u"dangling"_s, u"outside"_s, u"%1"_s})
            verify(nothing, {}, {}, {});
    }

    void labelsAreMappedByTheDeviceTheyLeadTo()
    {
        QVERIFY(blockLabelMap(root).isEmpty());
        const QHash<QString, QString> links{{u"sdb1"_s, u"Minhas\\040fotos"_s},
                                            {u"sdc1"_s, u"A\\x20B"_s},
                                            {u"sdd1"_s, u"%1"_s},
                                            {u"sde1"_s, u".oculto"_s}};
        for (const auto &[node, label] : links.asKeyValueRange()) {
            write("/dev/"_L1 + node, {});
            link("../../"_L1 + node, "/dev/disk/by-label/"_L1 + label);
        }
        link(u"../../gone"_s, u"/dev/disk/by-label/GONE"_s);
        link(u"../../../sys"_s, u"/dev/disk/by-label/ELSEWHERE"_s);
        write(u"/sys/x"_s, {});
        QHash<QString, QString> labels = links;
        labels[u"sdb1"_s] = u"Minhas fotos"_s;
        QCOMPARE(blockLabelMap(root), labels);
        QCOMPARE(decodeUdevEscapes(uR"(\x41\x20B\x5cx20\xZZ \x2fé\x2)"_s), uR"(A B\x20\xZZ /é\x2)"_s);
        for (const auto &[path, name] :
             {std::pair{u"/media/x/NOME"_s, u"NOME"_s}, {u"/"_s, u"sdb1"_s}, {QString(), u"sdb1"_s}})
            QCOMPARE(fallbackDisplayName(u"/dev/sdb1"_s, path), name);
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
        qputenv("USER", "");
        QVERIFY(QDir().mkpath(root + u"/media/ninguém"_s));
        QCOMPARE(mountedRootForLabel(u"ninguém"_s, root), QString());
    }

    void mountTableLinesAreParsedAndDecodedOnce()
    {
        const auto parsed = [](const QString &line) {
            const std::optional<MountInfoLine> mount = parseMountInfoLine(line);
            return mount ? QStringList{mount->mountPoint, mount->fileSystemType, mount->source}
                         : QStringList();
        };
        const QList<std::pair<QString, QStringList>> lines{
            {uR"(36 35 8:17 / /media/A\040B\011C\012D\134E\134040 rw shared:1 - vfat /dev/sdb1 rw)"_s,
             {u"/media/A B\tC\nD\\E\\040"_s, u"vfat"_s, u"/dev/sdb1"_s}},
            {u"36 35  8:17 / /mnt - ext4 /dev/b - c"_s, {u"/mnt"_s, u"ext4"_s, u"/dev/b"_s}},
            {u""_s, {}},
            {u"36 35 8:17 / /mnt rw ext4 /dev/sdb1 rw"_s, {}},
            {u"36 35 8:17 / - ext4 /dev/sdb1 rw"_s, {}},
            {u"36 35 8:17 / /mnt - ext4 /dev/sdb1"_s, {}}};
        for (const auto &[line, parts] : lines)
            QCOMPARE(parsed(line), parts);
    }

    void memoryIsKeptPrivate()
    {
        Tessarin::Platform::keepMemoryPrivate();
        QCOMPARE(::prctl(PR_GET_DUMPABLE), 0);
        rlimit limit{1, 1};
        QCOMPARE(::getrlimit(RLIMIT_CORE, &limit), 0);
        QCOMPARE(limit.rlim_max, rlim_t(0));
    }

    /// Those that were ignored, as nohup does, stay so; afterwards all is as it was before.
    void signalsThatAskToEndAreHeard()
    {
        const auto handler = [](int number) {
            struct sigaction action = {};
            ::sigaction(number, nullptr, &action);
            return action.sa_handler;
        };
        const auto openFiles = [] { return QDir(u"/proc/self/fd"_s).count(); };
        ::signal(SIGHUP, SIG_IGN);
        const auto formerFiles = openFiles();
        {
            const Tessarin::Platform::TerminationSignals termination;
            QSignalSpy heard(&termination, &Tessarin::Platform::TerminationSignals::requested);
            QVERIFY(handler(SIGHUP) == SIG_IGN);
            for (const int number : {SIGTERM, SIGINT}) {
                std::raise(number);
                QVERIFY(heard.wait());
                QCOMPARE(heard.takeFirst().size(), 0);
                QVERIFY(!heard.wait(10));
            }
        }
        for (const int number : {SIGTERM, SIGINT})
            QVERIFY(handler(number) == SIG_DFL);
        QVERIFY(handler(SIGHUP) == SIG_IGN);
        QCOMPARE(openFiles(), formerFiles);
    }
};

QTEST_GUILESS_MAIN(PlatformTest)
#include "tst_platform.moc"
