// Compaction on a real drive: what it reclaims, and what is left when the drive does not play along. Runs on
// a practice drive, which it may fill up and mount read-only.
#include "support/VaultFixture.h"

#include <QBuffer>
#include <QDir>
#include <QProcess>
#include <QStorageInfo>
#include <QTest>

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
        QVERIFY(put(u"a"_s, "a"));
        const QByteArray former = readFile(container);
        const auto remount = [this](const QString &mode) {
            return QProcess::execute(u"mount"_s, {u"-o"_s, u"remount,"_s + mode, root}) == 0;
        };
        QVERIFY(remount(u"ro"_s));
        QString preserved;
        const bool isChanged = vault->compactVault({}, &preserved) || vault->deleteFile(u"a"_s);
        QVERIFY(remount(u"rw"_s));
        QVERIFY(!isChanged && preserved.isEmpty() && workingFolders().isEmpty());
        QVERIFY(readFile(container) == former);
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
                                    ? !QFile::exists(container) || QFileInfo(container).size() < 16 * mebibyte
                                    : label == u"Substituindo container no USB"_s;
            if (isTime && filler.open(QIODevice::Append))
                filler.write(QByteArray(200 * mebibyte, 'f'));
        };
        QString preserved;
        QVERIFY(!vault->compactVault(fillDrive, &preserved));
        QVERIFY(!QFile::exists(container) && QFile::exists(preserved));
        QCOMPARE(preserved.startsWith(root), hasTwin);
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
