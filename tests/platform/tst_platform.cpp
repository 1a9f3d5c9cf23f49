// The block devices of a made-up machine; and what the process asks of the kernel, the desktop and X.
#include "platform/CapsLock.h"
#include "platform/CloseRequest.h"
#include "platform/FileOpener.h"
#include "platform/ProcessProtection.h"
#include "platform/TerminationSignals.h"
#include "platform/linux/BlockDevices.h"

#include <QDesktopServices>
#include <QtTest>

#include <csignal>
#include <cstdlib>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <xcb/xcb.h>

using namespace Tessarin::Platform::Linux;
using namespace Qt::Literals::StringLiterals;

class PlatformTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir directory;
    const QString root = directory.filePath(u"usb1/block/decoy"_s);

    void make(const QByteArray &script)
    {
        QCOMPARE(std::system("set -e; cd " + root.toLocal8Bit() + '\n' + script), 0);
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
        make(u"mkdir -p sys/class/block sys/devices; cd sys/devices\n"
             "for device in %1 %1/sdb1 %2 %3 %3/mmcblk0p1 %4 %5; do\n"
             "    mkdir -p $device/device; touch $device/uevent; ln -s ../../devices/$device ../class/block\n"
             "done\n"
             "for device in %1 %2 %3; do echo 1 > $device/removable; done\n"
             "echo 0 > %4/removable; echo 5 > %2/device/type; echo 0 > %4/device/type\n"
             "ln -s ../../devices/missing ../class/block/dangling; ln -s /etc ../class/block/outside"_s
                 .arg(stick, dvd, card, disk, mapped)
                 .toUtf8());
        const QList<std::tuple<QString, QString, QString, QString>> devices{
            {u"sdb"_s, stick, u"sdb"_s, u" usb removable partitioned"_s},
            {u"sdb1"_s, stick + u"/sdb1"_s, u"sdb"_s, u" usb removable"_s},
            {u"sdb9"_s, mapped, u"sdb"_s, u" usb removable"_s},
            {u"sr0"_s, dvd, u"sr0"_s, u" usb removable optical"_s},
            {u"mmcblk0p1"_s, card + u"/mmcblk0p1"_s, u"mmcblk0"_s, u" removable"_s},
            {u"sda"_s, disk, u"sda"_s, {}},
            {u"dangling"_s, {}, {}, {}},
            {u"outside"_s, {}, {}, {}},
            {u"%1"_s, {}, {}, {}}};
        for (const auto &[name, path, parent, traits] : devices) {
            QString found = isUsbBlockDevice(name, root) ? u" usb"_s : QString();
            found += isRemovableBlockDevice(name, root) ? u" removable"_s : QString();
            found += isOpticalBlockDevice(name, root) ? u" optical"_s : QString();
            found += isPartitionedDisk(name, root) ? u" partitioned"_s : QString();
            QCOMPARE(found, traits);
            QCOMPARE(blockDeviceSysfsPath(name, root), path.isEmpty() ? path : u"/sys/devices/"_s + path);
            QCOMPARE(parentDiskName(name, root), parent);
        }
    }

    void labelsAreMappedByTheDeviceTheyLeadTo()
    {
        QVERIFY(blockLabelMap(root).isEmpty());
        make(R"(mkdir -p dev/disk/by-label sys; cd dev; touch sdb1 sdc1 sdd1 sde1; cd disk/by-label
            ln -s ../../sdb1 'Minhas\040fotos'; ln -s ../../sdc1 'A\x20B'; ln -s ../../sdd1 %1
            ln -s ../../sde1 .oculto; ln -s ../../gone GONE; ln -s ../../../sys ELSEWHERE)");
        const QHash<QString, QString> labels{{u"sdb1"_s, u"Minhas fotos"_s},
                                             {u"sdc1"_s, u"A\\x20B"_s},
                                             {u"sdd1"_s, u"%1"_s},
                                             {u"sde1"_s, u".oculto"_s}};
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

        const QStringList candidates{u"/mnt/"_s + label, u"/run/media/bia/"_s + label,
                                     u"/media/bia/"_s + label, u"/run/media/%2/"_s + label,
                                     u"/media/%2/"_s + label};
        for (const QString &candidate : candidates) {
            QVERIFY(QDir().mkpath(root + candidate));
            QCOMPARE(mountedRootForLabel(label, root), candidate);
        }
        make("touch 'mnt/a file'; mkdir media/ninguém");
        QCOMPARE(mountedRootForLabel(u"a file"_s, root), QString());
        qputenv("USER", "");
        QCOMPARE(mountedRootForLabel(u"ninguém"_s, root), QString());
    }

    void mountTableLinesAreParsedAndDecodedOnce()
    {
        const QList<std::pair<QString, QStringList>> lines{
            {uR"(36 35 8:17 / /media/A\040B\011C\012D\134E\134040 rw shared:1 - vfat /dev/sdb1 rw)"_s,
             {u"/media/A B\tC\nD\\E\\040"_s, u"vfat"_s, u"/dev/sdb1"_s}},
            {u"36 35  8:17 / /mnt - ext4 /dev/b - c"_s, {u"/mnt"_s, u"ext4"_s, u"/dev/b"_s}},
            {u""_s, {}},
            {u"36 35 8:17 / /mnt rw ext4 /dev/sdb1 rw"_s, {}},
            {u"36 35 8:17 / - ext4 /dev/sdb1 rw"_s, {}},
            {u"36 35 8:17 / /mnt - ext4 /dev/sdb1"_s, {}}};
        for (const auto &[line, parts] : lines) {
            const auto mount = parseMountInfoLine(line);
            const QStringList parsed =
                mount ? QStringList{mount->mountPoint, mount->fileSystemType, mount->source} : QStringList();
            QCOMPARE(parsed, parts);
        }
    }

    void filesAreOpenedByTheDesktopAndItsFailureIsTold()
    {
        make(R"(echo '#!/bin/sh
            read -r _ _ _ _ _ session _ </proc/$$/stat
            echo "$1" $((session == $$)) $(readlink /proc/$$/fd/0) >"$0.seen"
            case $1 in *fails) exit 1;; *dies) kill -9 $$;; esac' >xdg-open; chmod +x xdg-open)");
        const QByteArray formerPath = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(root) + ':' + formerPath);
        const Tessarin::Platform::FileOpener opener;
        QSignalSpy failed(&opener, &Tessarin::Platform::FileOpener::failed);
        const QString program = root + u"/xdg-open"_s;
        QCOMPARE(QStandardPaths::findExecutable(u"xdg-open"_s), program);
        for (const auto &[url, failures] :
             {std::pair{"file:///tmp/a%20%231"_ba, 0}, {"file:///fails"_ba, 1}, {"file:///dies"_ba, 2}}) {
            QVERIFY(QDesktopServices::openUrl(QUrl(QString::fromLatin1(url))));
            QFile seen(program + u".seen"_s);
            QTRY_VERIFY(seen.size() > 0);
            QVERIFY(seen.open(QIODevice::ReadOnly));
            QCOMPARE(seen.readAll(), url + " 1 /dev/null\n");
            QVERIFY(seen.remove());
            QTRY_COMPARE(failed.size(), failures);
            QVERIFY(!failed.wait(50));
        }
        make("echo '#!/falta' >xdg-open");
        QVERIFY(QDesktopServices::openUrl(QUrl::fromLocalFile(program)));
        QTRY_COMPARE(failed.size(), 3);
        qputenv("PATH", formerPath);
    }

    void anXServerIsUnderstood()
    {
        for (const bool isOn : {true, false}) {
            QCOMPARE(std::system("xdotool key Caps_Lock"), 0);
            QCOMPARE(Tessarin::Platform::isCapsLockOn(nullptr), std::optional(isOn));
        }
        xcb_connection_t *server = qApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
        const auto atom = [=](const QByteArray &name) {
            const auto question = xcb_intern_atom(server, false, uint16_t(name.size()), name.data());
            return xcb_intern_atom_reply(server, question, nullptr)->atom;
        };
        const auto isRequest = [&](int code, const char *kind, const char *text) {
            xcb_client_message_event_t event{uint8_t(code), 32, 0, 0, atom(kind), {}};
            event.data.data32[0] = atom(text);
            return Tessarin::Platform::isCloseRequest("xcb_generic_event_t", &event);
        };
        QVERIFY(isRequest(XCB_CLIENT_MESSAGE | 128, "WM_PROTOCOLS", "WM_DELETE_WINDOW"));
        QVERIFY(!isRequest(XCB_EXPOSE, "WM_PROTOCOLS", "WM_DELETE_WINDOW"));
        QVERIFY(!isRequest(XCB_CLIENT_MESSAGE, "WM_PROTOCOLS", "WM_TAKE_FOCUS"));
        QVERIFY(!isRequest(XCB_CLIENT_MESSAGE, "WM_STATE", "WM_DELETE_WINDOW"));
        QVERIFY(!Tessarin::Platform::isCloseRequest("of no X server", nullptr));
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
        const auto openFiles = [] {
            return QDir(u"/proc/self/fd"_s, {}, QDir::Name, QDir::AllEntries | QDir::System).count();
        };
        std::signal(SIGHUP, SIG_IGN);
        const auto formerFiles = openFiles();
        {
            const Tessarin::Platform::TerminationSignals termination;
            QSignalSpy heard(&termination, &Tessarin::Platform::TerminationSignals::requested);
            QVERIFY(std::signal(SIGHUP, SIG_IGN) == SIG_IGN);
            for (const int number : {SIGTERM, SIGINT}) {
                std::raise(number);
                QVERIFY(heard.wait());
                QVERIFY(!heard.wait(10));
            }
        }
        for (const int number : {SIGTERM, SIGINT})
            QVERIFY(std::signal(number, SIG_DFL) == SIG_DFL);
        QVERIFY(std::signal(SIGHUP, SIG_DFL) == SIG_IGN);
        QCOMPARE(openFiles(), formerFiles);
    }
};

QTEST_MAIN(PlatformTest)
#include "tst_platform.moc"
