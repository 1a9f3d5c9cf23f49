// Drives that are plugged in and pulled out, as the detector finds them and the window shows them: file
// systems really mounted and unmounted, on the machine with a practice drive that this test is started on.
#include "WindowHarness.h"
#include "platform/linux/LinuxDeviceManager.h"

#include <cstdlib>

using namespace Tessarin::Tests;

/// `add` brings the kernel a device: its name, or "disk/partition", its bus, removable flag, type and label.
const QByteArray commands = R"(set -e
add() {
    path=/media/.practice-drive/devices/$2/block/$1 node=/dev/${1##*/}
    mkdir -p "$path/device"
    touch "$node"
    [ -z "$3" ] || echo "$3" > "$path/removable"
    [ -z "$4" ] || echo "$4" > "$path/device/type"
    ln -s "$path" /sys/class/block/
    printf '%s\n' "$node" "/sys/class/block/${1##*/}" >> /run/made
    [ -z "$5" ] || { ln -s "$node" "/dev/disk/by-label/$5" && echo "/dev/disk/by-label/$5" >> /run/made; }
}
plug() {
    mkdir -p "$2"
    mount -n -t tmpfs -o size=32M "/dev/$1" "$2"
    echo "$2" >> /run/mounted
}
)";

class DrivesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("USER", QFileInfo(root).dir().dirName().toLocal8Bit());
        run("mount -n -t tmpfs none /run");
    }

    void cleanup()
    {
        run("xargs -rd '\\n' umount < /run/mounted || true\n" // Some are pulled out already.
            "xargs -rd '\\n' rm < /run/made; rm /run/made /run/mounted");
    }

    void everyDriveIsFoundOnceHoweverItIsMounted()
    {
        run(R"(
            add sdx usb9 1 0 '..\x2f..'
            add sdw usb9 1 0 ESCONDIDO
            add sdv usb9 0 0 DISCO
            add sdv/sdv1 usb9 '' '' 'MEUS\x20ARQ'
            add sr9 usb9 1 5 DVD
            add sdu ata9 0 0 FIXO
            add mmcblk9 mmc9 1 '' CARTAO
            add sdt usb9 1 0 ''
            add sds usb9 1 0 ''
            add sdr usb9 1 0 NENHURES
            mkdir -p "/media/$USER/MEUS ARQ"
            mount -n -t tmpfs -o X-mount.mkdir x/sdr /dev/x
            plug sdw /dev/x/ESCONDIDO
            plug sdu /media/FIXO
            mount -n -t tmpfs x/sdr /media/FIXO
            plug sr9 /media/DVD
            plug mmcblk9 '/media/Meu cartão'
            plug mmcblk9 '/media/outra vez'
            plug sdt '/dev/x/com espaço'
            plug sds '/dev/x/com espaço')");
        QStringList found;
        for (const auto &device : Tessarin::Platform::Linux::LinuxDeviceManager().detectUsbDevices()) {
            if (QRegularExpression(u"sd[r-z]|sr9|mmcblk9"_s).match(device.devicePath).hasMatch())
                found += u"%1|%2|%3|%4|%5"_s.arg(device.identifier, device.devicePath, device.displayName,
                                                 device.rootPath,
                                                 device.mounted ? device.fileSystemType : u"unmounted"_s) +
                         (device.removable ? u"|removable"_s : QString());
        }
        const auto rowOf = [&](const QString &text) { return found.indexOf(found.filter(text).value(0)); };
        QVERIFY2(rowOf(u"CARTAO"_s) < rowOf(u"ESCONDIDO"_s), "what the toolkit knows comes first");
        found.sort();
        const QString practice = QFileInfo(root).path() + u"/PRATICA"_s;
        QStringList expected{
            practice + u":/dev/sdz1|/dev/sdz1|PRATICA|"_s + practice + u"|tmpfs|removable"_s,
            u"sdv1|/dev/sdv1|MEUS ARQ|/media/%1/MEUS ARQ|unmounted"_s.arg(qEnvironmentVariable("USER")),
            u"sdr|/dev/sdr|NENHURES||unmounted|removable"_s,
            u"sdx|/dev/sdx|../..||unmounted|removable"_s,
            u"/media/Meu cartão:/dev/mmcblk9|/dev/mmcblk9|CARTAO|/media/Meu cartão|tmpfs|removable"_s,
            u"/dev/x/ESCONDIDO:/dev/sdw|/dev/sdw|ESCONDIDO|/dev/x/ESCONDIDO|tmpfs|removable"_s,
            u"/dev/x/com espaço:/dev/sdt|/dev/sdt|/dev/x/com espaço|/dev/x/com espaço|tmpfs|removable"_s};
        expected.sort();
        QCOMPARE(found, expected);
    }

    void theListFollowsTheDrives()
    {
        run("add sdy1 usb9 1 0 ''");
        QCOMPARE(shown(), u"[PRATICA]"_s);
        plugIn();
        QTRY_COMPARE(shown(), u"[PRATICA] OUTRO"_s);
        w.deviceList.setCurrentRow(1);

        const auto pullOutMeanwhile = [this](QWidget &) {
            pullOut();
            QTest::qWait(700);
            QCOMPARE(shown(), u"PRATICA [OUTRO]"_s);
        };
        w.act(u"about"_s, {{u"Sobre o Tessarin"_s, u"close"_s, pullOutMeanwhile}});
        QTRY_COMPARE(shown(), u"[PRATICA]"_s);

        plugIn();
        QTRY_COMPARE(shown(), u"[PRATICA] OUTRO"_s);
        const QString container = root + u"/tessarin.trvx"_s;
        w.deviceList.setCurrentRow(1);
        w.act(u"createVault"_s,
              {{u"Criar container Tessarin"_s, container},
               {u"Definir senha do cofre"_s, u"uma senha boa ; OK"_s},
               {u"Confirmar senha do cofre"_s, u"uma senha boa ; OK"_s, [this](QWidget &) { pullOut(); }},
               {u"Tessarin | Não foi possível criar o cofre."_s, u"OK"_s}});
        QVERIFY(!QFile::exists(container));
    }

private:
    static void run(const QByteArray &script) { QCOMPARE(std::system(commands + script), 0); }
    void plugIn() { run("plug sdy1 '" + root.toLocal8Bit() + '\''); }
    void pullOut() { run("umount '" + root.toLocal8Bit() + '\''); }

    QString shown() const
    {
        QStringList names;
        for (int row = 0; row < w.deviceList.count(); ++row) {
            const QListWidgetItem &item = *w.deviceList.item(row);
            const QString name = item.text().section(u' ', 0, 0).section(u'/', -1);
            names += item.isSelected() ? u'[' + name + u']' : name;
        }
        return names.join(u' ');
    }

    const QString root = u"/media/%1/OUTRO"_s.arg(qEnvironmentVariable("USER", u"root"_s));
    WindowHarness w{std::make_unique<Tessarin::Platform::Linux::LinuxDeviceManager>()};
};

QTEST_MAIN(DrivesTest)
#include "tst_drives.moc"
