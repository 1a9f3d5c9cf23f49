// Looks for drives on the running system. It is started with a practice drive plugged in, which it must find
// once, and as the partition, not as the disk around it.
#include "platform/linux/LinuxDeviceManager.h"

#include <QStorageInfo>
#include <QTest>

using namespace Tessarin::Platform;
using namespace Qt::Literals::StringLiterals;

class TestLinuxDeviceManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void practiceDriveIsFoundOnce()
    {
        const QString rootPath = "/media/"_L1 + qEnvironmentVariable("USER", u"root"_s) + "/PRATICA"_L1;
        const QStorageInfo volume(rootPath);
        QVERIFY2(volume.rootPath() == rootPath,
                 "no practice drive: start this test through scripts/practice-drive");

        QList<UsbDevice> found;
        const QList<UsbDevice> devices = Linux::LinuxDeviceManager().detectUsbDevices();
        std::copy_if(devices.cbegin(), devices.cend(), std::back_inserter(found),
                     [&](const UsbDevice &device) {
                         return device.rootPath == rootPath || device.devicePath.startsWith("/dev/sdz"_L1);
                     });

        QCOMPARE(found.size(), 1);
        const UsbDevice &drive = found.constFirst();
        const QString devicePath = QString::fromLocal8Bit(volume.device());
        QCOMPARE(drive.devicePath, devicePath);
        QCOMPARE(drive.rootPath, rootPath);
        QCOMPARE(drive.identifier, rootPath + u':' + devicePath);
        QCOMPARE(drive.displayName, u"PRATICA"_s);
        QCOMPARE(drive.fileSystemType, QString::fromUtf8(volume.fileSystemType()));
        QVERIFY(drive.removable);
        QVERIFY(drive.mounted);
    }
};

QTEST_GUILESS_MAIN(TestLinuxDeviceManager)
#include "tst_linux_device_manager.moc"
