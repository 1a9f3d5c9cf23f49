// Compaction on a real drive: what it reclaims, and what is left when the drive does not play along, here and
// in other operations. Runs on a practice drive, which it may fill up, and mounts another.
#include "support/VaultFixture.h"

#include <QBuffer>
#include <QDir>
#include <QStorageInfo>
#include <QTest>

#include <sys/mount.h>
#include <sys/wait.h>

#include <csignal>
#include <functional>

#include <unistd.h>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 mebibyte = 1024 * 1024;

QString driveRoot()
{
    QStorageInfo found;
    for (const QStorageInfo &volume : QStorageInfo::mountedVolumes())
        found = volume.device() == "/dev/sdz1" ? volume : found;
    return found.rootPath();
}

QStringList workingFolders()
{
    return QDir::temp().entryList({u"Tessarin-compact-*"_s}, QDir::Dirs);
}

} // namespace

class VaultCompactionTest : public QObject
{
    Q_OBJECT

private:
    const QString root = driveRoot();
    const QString container = root + u"/tessarin.trvx"_s;
    const QString twin = root + u"/tessarin-compactado-1.trvx"_s;
    const QString source = root + u"/source"_s;
    const QByteArray password = "uma senha bem longa";
    QTemporaryDir temporary;
    std::unique_ptr<VaultManager> vault;

    bool put(const QString &vaultPath, const QByteArray &bytes)
    {
        writeFile(source, bytes);
        return vault->importFile(source, vaultPath) && QFile::remove(source);
    }

    QByteArray get(const QString &vaultPath)
    {
        QBuffer bytes;
        const bool isOpen = bytes.open(QIODevice::WriteOnly);
        return isOpen && vault->writeVaultFileToDevice(vaultPath, &bytes) ? bytes.data() : QByteArray();
    }

    // A second drive, which can be pulled out.
    const QString flash = temporary.filePath(u"flash"_s);
    const QString stick = temporary.filePath(u"stick"_s);
    const QString onStick = stick + u"/tessarin.trvx"_s;

    bool mountStick()
    {
        return ::mount(flash.toLocal8Bit(), stick.toLocal8Bit(), nullptr, MS_BIND, nullptr) == 0;
    }
    bool remountStick(unsigned long flags)
    {
        const unsigned long same = MS_BIND | MS_REMOUNT | MS_NOSUID | MS_NODEV;
        return ::mount(nullptr, stick.toLocal8Bit(), nullptr, same | flags, nullptr) == 0;
    }
    bool pullStick() { return ::umount2(stick.toLocal8Bit(), MNT_DETACH) == 0; }
    bool plugInStick()
    {
        return QDir().mkpath(flash) && QDir().mkpath(stick) && mountStick() &&
               vault->createVault(onStick, password) && vault->unlockVault(onStick, password);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!root.isEmpty(), "no practice drive is mounted");
        // Its own, so that the folders counted here are no other test's.
        QVERIFY(temporary.isValid() && qputenv("TMPDIR", QFile::encodeName(temporary.path())));
    }

    void init()
    {
        vault = std::make_unique<VaultManager>();
        QVERIFY(vault->createVault(container, password) && vault->unlockVault(container, password));
    }

    void cleanup()
    {
        QVERIFY(vault->lockVault());
        QFile::remove(container);
        QFile::remove(twin);
        QFile::remove(source);
        QFile::remove(root + u"/filler"_s);
    }

    void compactionReclaimsDeadBytesAndNothingElse()
    {
        QVERIFY(put(u"Docs/grande"_s, noise(17 * mebibyte, 1)) && put(u"vazio"_s, {}) &&
                put(u"morto"_s, noise(5 * mebibyte, 2)));
        QVERIFY(put(u"b"_s, "b") && vault->deleteFile(u"morto"_s) && vault->createDirectory(u"Fotos"_s));
        const SecureFileIndex former = vault->fileIndex();
        const qint64 formerSize = QFileInfo(container).size();
        QStringList labels;
        QString preserved;
        QVERIFY(
            vault->compactVault([&](qint64, qint64, const QString &label) { labels << label; }, &preserved));
        QVERIFY(preserved.isEmpty() && workingFolders().isEmpty());
        QCOMPARE(labels.first(), u"Docs/grande"_s);
        QCOMPARE(labels.last(), u"Substituindo container no USB"_s);
        QCOMPARE(QFileInfo(container).size(), formerSize - 5 * mebibyte - 16);

        QVERIFY(vault->lockVault() && vault->unlockVault(container, password));
        QVERIFY(get(u"docs/grande"_s) == noise(17 * mebibyte, 1));
        QCOMPARE(get(u"b"_s), "b");
        QCOMPARE(vault->fileIndex().entries().first().blocks.first().nonce,
                 former.entries().first().blocks.first().nonce);
        QCOMPARE(vault->fileIndex().directories().size(), 2);
        QVERIFY(vault->saveIndex({}) && vault->compactVault({}, nullptr));
        QCOMPARE(QFileInfo(container).size(), 8388636);
        QVERIFY(vault->lockVault() && !vault->compactVault({}, nullptr));
    }

    void aReadOnlyDriveKeepsItsContainer()
    {
        QVERIFY(plugInStick() && put(u"a"_s, "a"));
        const QByteArray former = readFile(onStick);
        QVERIFY(remountStick(MS_RDONLY));
        QString preserved;
        QVERIFY(!vault->compactVault({}, &preserved) && !vault->deleteFile(u"a"_s));
        QVERIFY(preserved.isEmpty() && workingFolders().isEmpty() && readFile(onStick) == former);
        QVERIFY(remountStick(0) && vault->deleteFile(u"a"_s) && vault->lockVault() && pullStick());
    }

    void damageInABlockStopsNothingButTheSameBytesAreKept()
    {
        QVERIFY(put(u"a"_s, "aaaa") && put(u"b"_s, "bbbb"));
        overwrite(container, vault->fileIndex().entries().first().blocks.first().offset, "X");
        QVERIFY(vault->compactVault({}, nullptr));
        QCOMPARE(get(u"b"_s), "bbbb");
        QVERIFY(get(u"a"_s).isEmpty());
        QVERIFY(QFile::resize(container, QFileInfo(container).size() - 1));
        QVERIFY(!vault->compactVault({}, nullptr) && QFile::exists(container) && workingFolders().isEmpty());
    }

    void theOldContainersRoomIsFreeForTheNewOne()
    {
        QVERIFY(put(u"morto"_s, "m") && put(u"a"_s, noise(30 * mebibyte, 4)) &&
                vault->deleteFile(u"morto"_s));
        // Room for no second container beside the old one, and then for just one.
        for (const qint64 fillerSize : {45 * mebibyte, 10 * mebibyte}) {
            writeFile(root + u"/filler"_s, QByteArray(fillerSize, 'f'));
            QString preserved;
            QVERIFY(vault->compactVault({}, &preserved) && preserved.isEmpty());
        }
        QVERIFY(get(u"a"_s) == noise(30 * mebibyte, 4));
    }

    void aDriveThatFillsUpDuringTheCopyBackLeavesThePreservedContainer_data()
    {
        QTest::addColumn<bool>("hasTwin");
        QTest::newRow("no room for a second container") << false;
        QTest::newRow("a second container beside the old one") << true;
    }
    void aDriveThatFillsUpDuringTheCopyBackLeavesThePreservedContainer()
    {
        QFETCH(bool, hasTwin);
        QVERIFY(put(u"morto"_s, "m") && put(u"a"_s, noise(12 * mebibyte, 3)) &&
                vault->deleteFile(u"morto"_s));
        const auto fillDrive = [&](qint64, qint64, const QString &label) {
            QFile filler(root + u"/filler"_s);
            const bool isTime = hasTwin
                                    ? !QFile::exists(container) || QFileInfo(container).size() < 20 * mebibyte
                                    : label == u"Substituindo container no USB"_s;
            if (isTime && filler.open(QIODevice::Append))
                filler.write(QByteArray(200 * mebibyte, 'f'));
        };
        QString preserved;
        QVERIFY(!vault->compactVault(fillDrive, &preserved));
        QVERIFY(!QFile::exists(container) && QFile::exists(preserved));
        QCOMPARE(VaultManager::compactionTwins(container), hasTwin ? QStringList{preserved} : QStringList{});
        QCOMPARE(workingFolders().size(), hasTwin ? 0 : 1);

        // Put back by hand, it goes on where it was, in this session too.
        QVERIFY(QFile::remove(root + u"/filler"_s) && QFile::copy(preserved, container) &&
                QFile::remove(preserved));
        QVERIFY(vault->createDirectory(u"depois"_s) && get(u"a"_s) == noise(12 * mebibyte, 3));
        QVERIFY(vault->lockVault() && vault->unlockVault(container, password));
        QVERIFY(get(u"a"_s) == noise(12 * mebibyte, 3));
        for (const QString &folder : workingFolders())
            QVERIFY(QDir(QDir::temp().filePath(folder)).removeRecursively());
    }

    void nothingIsDeletedWhenTheDriveOrAnotherProgramComesBetween()
    {
        const QByteArray former = readFile(container);
        QVERIFY(vault->createDirectory(u"dela"_s));
        const QByteArray theirs = readFile(container);
        overwrite(container, 0, former);
        QVERIFY(vault->lockVault() && vault->unlockVault(container, password));
        for (const bool isTwin :
             {true, false}) { // Bytes that it was not given, and a save where no locks are.
            const auto interfere = [&](qint64 done, qint64 total, const QString &) {
                if (done == total)
                    overwrite(isTwin ? twin : container, 0, isTwin ? "X" : theirs);
            };
            QString preserved;
            QVERIFY(!vault->compactVault(interfere, &preserved));
            QCOMPARE(preserved, QString());
            QVERIFY(readFile(container) == (isTwin ? former : theirs));
            QVERIFY(!QFile::exists(twin));
            QCOMPARE(workingFolders(), QStringList());
        }
    }

    void aContainerWithAnotherLengthLineGetsTheUsualOne()
    {
        QVERIFY(vault->lockVault());
        writeFile(container, readFile(container).insert(27, "  "));
        QVERIFY(vault->unlockVault(container, password) && vault->compactVault({}, nullptr));
        QCOMPARE(QFileInfo(container).size(), 8388636);
        QVERIFY(vault->createDirectory(u"d"_s));
    }

    void whatAKilledCompactionLeftGoesWithTheNextUnlocking()
    {
        QVERIFY(put(u"a"_s, noise(5000, 5)));
        int status = -1;
        for (int lastCall = 1; status != 0; ++lastCall) {
            QVERIFY(vault->lockVault());
            const pid_t child = ::fork();
            if (child == 0) {
                int calls = 0;
                VaultManager killed;
                const auto stop = [&](qint64, qint64, const QString &) {
                    if (++calls == lastCall)
                        ::kill(::getpid(), SIGKILL);
                };
                ::_exit(vault->unlockVault(container, password) && vault->compactVault(stop, nullptr) ? 0
                                                                                                      : 1);
            }
            QCOMPARE(::waitpid(child, &status, 0), child);
            if (!vault->unlockVault(container, password)) {
                QVERIFY(QFile::remove(container) && QFile::rename(twin, container));
                QVERIFY(vault->unlockVault(container, password));
            }
            QCOMPARE(get(u"a"_s), noise(5000, 5));
            QVERIFY(!QFile::exists(twin));
            QCOMPARE(workingFolders(), QStringList());
        }
    }

    void aLeftoverThatMayHoldMoreStaysAndIsTold()
    {
        QVERIFY(put(u"a"_s, "conteúdo") && put(u"b"_s, "b") && QFile::copy(container, twin));
        overwrite(container, 8388640,
                  "X"); // A block that only the twin has whole; then a file that only it has.
        QVERIFY(vault->lockVault() && vault->unlockVault(container, password));
        QCOMPARE(vault->compactionLeftovers(), QStringList{twin});
        QVERIFY(vault->deleteFile(u"a"_s) && vault->lockVault());
        QVERIFY(vault->changePassword(container, password, "outra senha longa"));
        QCOMPARE(vault->compactionLeftovers(), QStringList{twin});
    }

    void aPulledDriveFailsEverythingAndLosesNothing()
    {
        QVERIFY(plugInStick());
        const QByteArray large = noise(ContainerFormat::blockPlainSize + 5, 7);
        QVERIFY(put(u"a"_s, large));
        const QByteArray former = readFile(onStick);

        QVERIFY(pullStick());
        QString path;
        QVERIFY(!put(u"b"_s, "b") && !vault->renameFile(u"a"_s, u"c"_s) && !vault->deleteFile(u"a"_s));
        QVERIFY(!vault->createDirectory(u"d"_s) && !vault->compactVault({}, &path) && path.isEmpty());
        QVERIFY(get(u"a"_s).isEmpty() && !vault->prepareFileForEditing(u"a"_s, &path));
        QVERIFY(mountStick() && readFile(onStick) == former && get(u"a"_s) == large);

        // While it works the operation holds the file; its result and the container tell the same.
        bool isPulled = false;
        const bool isImported = vault->importFile(
            source, u"b"_s, [&](qint64, qint64, const QString &) { isPulled = isPulled || pullStick(); });
        QVERIFY(isPulled && mountStick() && vault->lockVault() && vault->unlockVault(onStick, password));
        QVERIFY(get(u"a"_s) == large && vault->fileIndex().contains(u"b"_s) == isImported);
        QVERIFY(vault->lockVault() && pullStick());
    }

    void anImportThatFillsTheDriveIsUndone()
    {
        QVERIFY(put(u"a"_s, "a"));
        const QByteArray former = readFile(container);
        const QString large = QDir::temp().filePath(u"tessarin-test-large"_s);
        writeFile(large, QByteArray(200 * mebibyte, 'l'));
        qint64 doneBytes = 0;
        const bool imported =
            vault->importFile(large, u"l"_s, [&](qint64 done, qint64, const QString &) { doneBytes = done; });
        QVERIFY(QFile::remove(large));
        QVERIFY(!imported && doneBytes > 32 * mebibyte);
        QVERIFY(readFile(container) == former);
        QCOMPARE(get(u"a"_s), "a");
    }
};

QTEST_GUILESS_MAIN(VaultCompactionTest)
#include "tst_vault_compaction.moc"
