// The window while drives are plugged in and pulled out: file systems really mounted and unmounted, on the
// machine with a practice drive that this test is started on.
#include "WindowHarness.h"
#include "platform/linux/LinuxDeviceManager.h"

#include <QDir>
#include <QStorageInfo>

#include <sys/mount.h>

using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class DrivesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void thePracticeDriveIsFoundOnceAsItsPartition()
    {
        const QString place = QFileInfo(root).path() + u"/PRATICA"_s;
        const auto devices = Tessarin::Platform::Linux::LinuxDeviceManager().detectUsbDevices();
        QStringList found;
        for (const Tessarin::Platform::UsbDevice &device : devices) {
            if (device.devicePath.startsWith(u"/dev/sdz"_s))
                found << device.identifier << device.displayName << device.rootPath << device.fileSystemType;
            QVERIFY(device.rootPath != place || (device.removable && device.mounted));
        }
        const QStorageInfo volume(place);
        QCOMPARE(found, (QStringList{place + u":/dev/sdz1"_s, u"PRATICA"_s, place,
                                     QString::fromUtf8(volume.fileSystemType())}));
    }

    void theListFollowsTheDrives()
    {
        // To the kernel the second stick is another partition of the practice drive.
        QVERIFY(QFile::link(u"sdz1"_s, u"/sys/class/block/sdy1"_s) && QDir().mkdir(root));
        QCOMPARE(shown(), u"[PRATICA]"_s);
        plugIn();
        QTRY_COMPARE(shown(), u"[PRATICA] OUTRO"_s);
        w.deviceList.setCurrentRow(1);

        // With a dialog on show, nothing moves below it.
        const auto pullOutMeanwhile = [this](QWidget &dialog) {
            pullOut();
            QTest::qWait(1000);
            QCOMPARE(shown(), u"PRATICA [OUTRO]"_s);
            dialog.close();
        };
        w.act(u"about"_s, {{u"Sobre o Tessarin"_s, {}, pullOutMeanwhile}});
        QTRY_COMPARE(shown(), u"[PRATICA]"_s);

        plugIn();
        QTRY_COMPARE(shown(), u"[PRATICA] OUTRO"_s);
        const QString password = u"uma senha boa"_s;
        const QString container = root + u"/tessarin.trvx"_s;
        const auto create = [&](const std::function<void()> &meanwhile) {
            w.deviceList.setCurrentRow(1);
            DialogStep confirm = type(u"Confirmar senha do cofre"_s, {password});
            confirm.answer = [&, answer = confirm.answer](QWidget &dialog) {
                meanwhile();
                answer(dialog);
            };
            return QList<DialogStep>{pick(u"Criar container Tessarin"_s, {container}),
                                     type(u"Definir senha do cofre"_s, {password}), confirm};
        };
        w.act(u"createVault"_s, create([this] { pullOut(); }) << told(u"Não foi possível criar o cofre."_s));
        QVERIFY(!QFile::exists(container));
        plugIn();
        w.act(u"createVault"_s, create([] {}), u"Cofre criado com sucesso."_s);
        w.act(u"unlock"_s, {type(u"Senha do cofre"_s, {password})});
        pullOut();
        QTRY_COMPARE(shown(), u"PRATICA"_s);
        QCOMPARE(w.window.statusBar()->currentMessage(), u"A unidade do cofre aberto foi desconectada."_s);
        plugIn();
        QTRY_COMPARE(shown(), u"PRATICA [OUTRO]"_s);
    }

private:
    void plugIn() { QCOMPARE(::mount("/dev/sdy1", root.toLocal8Bit(), "tmpfs", 0, "size=32M"), 0); }
    void pullOut() { QCOMPARE(::umount(root.toLocal8Bit()), 0); }

    /// The names in the list, the chosen one in brackets.
    QString shown() const
    {
        QStringList names;
        for (int row = 0; row < w.deviceList.count(); ++row) {
            const QListWidgetItem *item = w.deviceList.item(row);
            names += (item->isSelected() ? u"[%1]"_s : u"%1"_s)
                         .arg(item->text().section(u' ', 0, 0).section(u'/', -1));
        }
        return names.join(u' ');
    }

    const QString root = u"/media/%1/OUTRO"_s.arg(qEnvironmentVariable("USER", u"root"_s));
    WindowHarness w{std::make_unique<Tessarin::Platform::Linux::LinuxDeviceManager>()};
};

QTEST_MAIN(DrivesTest)
#include "tst_drives.moc"
