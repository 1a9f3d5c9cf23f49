// Drives that are plugged in and pulled out, as the detector finds them and the window shows them: file
// systems really mounted and unmounted, on the machine with a practice drive that this test is started on.
#include "WindowHarness.h"
#include "platform/linux/LinuxDeviceManager.h"

#include <QDir>

#include <sys/mount.h>

using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class DrivesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("USER", QFileInfo(root).dir().dirName().toLocal8Bit());
        QCOMPARE(::mount("none", "/run", "tmpfs", 0, nullptr), 0);
    }

    void cleanup()
    {
        for (const QString &place : std::as_const(mounted))
            ::umount(place.toLocal8Bit());
        for (const QString &path : std::as_const(made))
            QFile::remove(path);
    }

    /// Beside the practice drive: a stick whose label is a path and that nobody mounted, two below /run,
    /// which the toolkit hides, one of them with another mounted over it, one of two partitions, a card
    /// mounted twice, a DVD and a fixed disk.
    void everyDriveIsFoundOnceHoweverItIsMounted()
    {
        const QString user = qEnvironmentVariable("USER", u"root"_s);
        addDevice(u"sdx"_s, u"usb9"_s, "1", "0", u"..\\x2f.."_s);
        addDevice(u"sdw"_s, u"usb9"_s, "1", "0", u"ESCONDIDO"_s);
        addDevice(u"sdv"_s, u"usb9"_s, "0", "0", u"DISCO"_s);
        addDevice(u"sdv/sdv1"_s, u"usb9"_s, {}, {}, u"MEUS\\x20ARQ"_s);
        addDevice(u"sr9"_s, u"usb9"_s, "1", "5", u"DVD"_s);
        addDevice(u"sdu"_s, u"ata9"_s, "0", "0", u"FIXO"_s);
        addDevice(u"mmcblk9"_s, u"mmc9"_s, "1", {}, u"CARTAO"_s);
        addDevice(u"sdt"_s, u"usb9"_s, "1", "0", {});
        addDevice(u"sds"_s, u"usb9"_s, "1", "0", {});
        addDevice(u"sdr"_s, u"usb9"_s, "1", "0", u"NENHURES"_s);
        QVERIFY(QDir().mkpath(u"/media/%1/MEUS ARQ"_s.arg(user)));
        for (const auto &[device, place] : {std::pair{"sdw", u"/run/tessarin-test/ESCONDIDO"_s},
                                            {"sdu", u"/media/FIXO"_s},
                                            {"sr9", u"/media/DVD"_s},
                                            {"mmcblk9", u"/media/Meu cartão"_s},
                                            {"mmcblk9", u"/media/outra vez"_s},
                                            {"sdt", u"/run/tessarin-test/com espaço"_s},
                                            {"sds", u"/run/tessarin-test/com espaço"_s}})
            mount(device, place);

        QStringList found;
        for (const auto &device : Tessarin::Platform::Linux::LinuxDeviceManager().detectUsbDevices()) {
            if (QRegularExpression(u"sd[r-z]|sr9|mmcblk9"_s).match(device.devicePath).hasMatch())
                found += QStringList{device.identifier,
                                     device.devicePath,
                                     device.displayName,
                                     device.rootPath,
                                     device.mounted ? device.fileSystemType : u"-"_s,
                                     device.removable ? u"removable"_s : u""_s,
                                     device.mounted ? u"mounted"_s : u""_s}
                             .join(u'|');
        }
        found.sort();
        const QString practice = QFileInfo(root).path() + u"/PRATICA"_s;
        QStringList expected{
            practice + u":/dev/sdz1|/dev/sdz1|PRATICA|"_s + practice + u"|tmpfs|removable|mounted"_s,
            u"/media/Meu cartão:/dev/mmcblk9|/dev/mmcblk9|CARTAO|/media/Meu cartão|tmpfs|removable|mounted"_s,
            u"/run/tessarin-test/ESCONDIDO:/dev/sdw|/dev/sdw|ESCONDIDO|/run/tessarin-test/ESCONDIDO|tmpfs|removable|mounted"_s,
            u"/run/tessarin-test/com espaço:/dev/sdt|/dev/sdt|/run/tessarin-test/com espaço|/run/tessarin-test/com espaço|tmpfs|removable|mounted"_s,
            u"sdv1|/dev/sdv1|MEUS ARQ|/media/%1/MEUS ARQ|-||"_s.arg(user),
            u"sdr|/dev/sdr|NENHURES||-|removable|"_s,
            u"sdx|/dev/sdx|../..||-|removable|"_s};
        expected.sort();
        QCOMPARE(found, expected);
    }

    void theListFollowsTheDrives()
    {
        addDevice(u"sdy1"_s, u"usb9"_s, "1", "0", {});
        QCOMPARE(shown(), u"[PRATICA]"_s);
        mount("sdy1", root);
        QTRY_COMPARE(shown(), u"[PRATICA] OUTRO"_s);
        w.deviceList.setCurrentRow(1);

        // With a dialog on show, nothing moves below it.
        const auto pullOutMeanwhile = [this](QWidget &) {
            pullOut();
            QTest::qWait(700);
            QCOMPARE(shown(), u"PRATICA [OUTRO]"_s);
        };
        w.act(u"about"_s, {{u"Sobre o Tessarin"_s, u"close"_s, pullOutMeanwhile}});
        QTRY_COMPARE(shown(), u"[PRATICA]"_s);

        mount("sdy1", root);
        QTRY_COMPARE(shown(), u"[PRATICA] OUTRO"_s);
        const QString container = root + u"/tessarin.trvx"_s;
        const auto create = [&](const std::function<void(QWidget &)> &meanwhile) {
            w.deviceList.setCurrentRow(1);
            return QList<DialogStep>{{u"Criar container Tessarin"_s, container},
                                     {u"Definir senha do cofre"_s, u"uma senha boa ; OK"_s},
                                     {u"Confirmar senha do cofre"_s, u"uma senha boa ; OK"_s, meanwhile}};
        };
        w.act(u"createVault"_s, create([this](QWidget &) { pullOut(); })
                                    << DialogStep{u"Tessarin | Não foi possível criar o cofre."_s, u"OK"_s});
        QVERIFY(!QFile::exists(container));
        mount("sdy1", root);
        w.act(u"createVault"_s, create({}), u"Cofre criado com sucesso."_s);
        w.act(u"unlock"_s, {{u"Senha do cofre"_s, u"uma senha boa ; OK"_s}});
        pullOut();
        QTRY_COMPARE(shown(), u"PRATICA"_s);
        QCOMPARE(w.window.statusBar()->currentMessage(),
                 u"A unidade do cofre aberto foi desconectada. Conecte-a de novo para continuar."_s);
        mount("sdy1", root);
        QTRY_COMPARE(shown(), u"PRATICA [OUTRO]"_s);
        QCOMPARE(w.window.statusBar()->currentMessage(),
                 u"A unidade do cofre aberto foi conectada de novo."_s);
    }

private:
    /// To the kernel, one more device; `name` is that of a disk or "disk/partition".
    void addDevice(const QString &name, const QString &bus, const QByteArray &removable,
                   const QByteArray &type, const QString &label)
    {
        const QString path = u"/media/.practice-drive/devices/%1/block/%2"_s.arg(bus, name);
        QVERIFY(QDir().mkpath(path + u"/device"_s));
        for (const auto &[file, content] :
             {std::pair{u"/removable"_s, removable}, {u"/device/type"_s, type}}) {
            QFile flag(path + file);
            if (!content.isEmpty() && flag.open(QIODevice::WriteOnly))
                flag.write(content + '\n');
        }
        const QString node = u"/dev/"_s + QFileInfo(name).fileName();
        QVERIFY(QFile(node).open(QIODevice::WriteOnly));
        link(path, u"/sys/class/block/"_s + QFileInfo(name).fileName());
        if (!label.isEmpty())
            link(node, u"/dev/disk/by-label/"_s + label);
        made += node;
    }
    void link(const QString &target, const QString &path)
    {
        QVERIFY2(QFile::link(target, path), qPrintable(path));
        made += path;
    }
    void mount(const char *device, const QString &place)
    {
        QVERIFY(QDir().mkpath(place));
        QCOMPARE(
            ::mount(("/dev/" + QByteArray(device)).constData(), place.toLocal8Bit(), "tmpfs", 0, "size=32M"),
            0);
        mounted += place;
    }
    void pullOut() { QCOMPARE(::umount(root.toLocal8Bit()), 0); }

    /// The names in the list, the chosen one in brackets.
    QString shown() const
    {
        QStringList names;
        for (int row = 0; row < w.deviceList.count(); ++row) {
            const QListWidgetItem *item = w.deviceList.item(row);
            const QString name = item->text().section(u' ', 0, 0).section(u'/', -1);
            names += item->isSelected() ? u'[' + name + u']' : name;
        }
        return names.join(u' ');
    }

    const QString root = u"/media/%1/OUTRO"_s.arg(qEnvironmentVariable("USER", u"root"_s));
    QStringList made;
    QStringList mounted;
    WindowHarness w{std::make_unique<Tessarin::Platform::Linux::LinuxDeviceManager>()};
};

QTEST_MAIN(DrivesTest)
#include "tst_drives.moc"
