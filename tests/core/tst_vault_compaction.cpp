// Compaction and creation on a real drive: what they reclaim and leave, and what is left when the drive does
// not play along, here and in other operations. Runs on a practice drive, which it may fill up, and mounts
// another.
#include "core/Leftovers.h"
#include "support/VaultFixture.h"

#include <QDir>
#include <QStorageInfo>
#include <QTest>

#include <sys/mount.h>
#include <sys/wait.h>

#include <csignal>

#include <unistd.h>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 mebibyte = 1024 * 1024;
const auto replacing = u"Substituindo container no USB"_s;

QString driveRoot()
{
    QString root;
    for (const QStorageInfo &volume : QStorageInfo::mountedVolumes())
        root = volume.device() == "/dev/sdz1" ? volume.rootPath() : root;
    return root;
}

QStringList workingFolders()
{
    return QDir::temp().entryList({u"Tessarin-compact-*"_s}, QDir::Dirs);
}

bool isZero(const QByteArray &bytes)
{
    return bytes == QByteArray(bytes.size(), '\0');
}

} // namespace

class VaultCompactionTest : public QObject
{
    Q_OBJECT

private:
    const QString root = driveRoot();
    const QString twin = root + u"/tessarin-compactado-1.trvx"_s;
    const QString filler = root + u"/filler"_s;
    QTemporaryDir temporary;
    std::unique_ptr<VaultFixture> fixture;

    bool put(const QString &vaultPath, const QByteArray &bytes) { return fixture->put(vaultPath, bytes); }
    QByteArray get(const QString &vaultPath) const { return fixture->get(vaultPath); }
    VaultManager &vault() { return fixture->vault; }

    // A second drive, which can be pulled out.
    const QString flash = temporary.filePath(u"flash"_s);
    const QString stick = temporary.filePath(u"stick"_s);

    bool plugIn()
    {
        return ::mount(flash.toLocal8Bit(), stick.toLocal8Bit(), nullptr, MS_BIND, nullptr) == 0;
    }
    bool pullOut() { return ::umount2(stick.toLocal8Bit(), MNT_DETACH) == 0; }
    bool remount(unsigned long flags)
    {
        const unsigned long same = MS_BIND | MS_REMOUNT | MS_NOSUID | MS_NODEV;
        return ::mount(nullptr, stick.toLocal8Bit(), nullptr, same | flags, nullptr) == 0;
    }
    void useStick()
    {
        QVERIFY(QDir().mkpath(flash));
        QVERIFY(QDir().mkpath(stick));
        QVERIFY(plugIn());
        fixture = std::make_unique<VaultFixture>(stick);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!root.isEmpty(), "no practice drive is mounted");
        // Its own, so that the folders counted here are no other test's.
        QVERIFY(temporary.isValid());
        QVERIFY(qputenv("TMPDIR", QFile::encodeName(temporary.path())));
    }

    void init() { fixture = std::make_unique<VaultFixture>(root); }

    void cleanup()
    {
        static_cast<void>(fixture->vault.lockVault());
        pullOut();
        QDir(flash).removeRecursively();
        for (const QFileInfo &file : QDir(root).entryInfoList(QDir::Files))
            QFile::remove(file.filePath());
        for (const QString &folder : workingFolders())
            QDir(QDir::temp().filePath(folder)).removeRecursively();
    }

    void compactionReclaimsDeadBytesAndNothingElse()
    {
        QVERIFY(put(u"Docs/grande"_s, noise(17 * mebibyte, 1)));
        QVERIFY(put(u"morto"_s, noise(5 * mebibyte, 2)));
        QCOMPARE(fixture->play(u"put vazio=; put b=b; delete morto; mkdir Fotos"_s), QString());
        const QStringList paths = fixture->paths();
        const VaultFileEntry former = fixture->entry(u"docs/grande"_s);
        const qint64 formerSize = QFileInfo(fixture->container).size();
        QVERIFY(QFile::setPermissions(fixture->container, QFile::ReadOwner | QFile::WriteOwner));
        QStringList seen;
        QString preserved;
        QVERIFY(vault().compactVault(
            [&](qint64 done, qint64 total, const QString &label) {
                seen += u"%1/%2 %3"_s.arg(done).arg(total).arg(label);
            },
            &preserved));
        QCOMPARE(preserved, QString());
        QCOMPARE(QDir(root).entryList(QDir::Files), QStringList{u"tessarin.trvx"_s});
        QCOMPARE(workingFolders(), QStringList());
        const qint64 size = formerSize - 5 * mebibyte - 16;
        QCOMPARE(QFileInfo(fixture->container).size(), size);
        QCOMPARE(QFile::permissions(fixture->container) & 0x0fff, QFile::ReadUser | QFile::WriteUser);
        QCOMPARE(seen.first(), u"16777216/17825793 Docs/grande"_s);
        QCOMPARE(seen.at(2), u"17825793/17825793 b"_s);
        QCOMPARE(seen.last(), u"%1/%1 "_s.arg(size) + replacing);

        QVERIFY(fixture->reopen());
        QCOMPARE(fixture->paths(), paths);
        QVERIFY(get(u"docs/grande"_s) == noise(17 * mebibyte, 1));
        QCOMPARE(get(u"b"_s), "b");
        QCOMPARE(fixture->entry(u"docs/grande"_s).id, former.id);
        QCOMPARE(fixture->entry(u"docs/grande"_s).blocks.first().nonce, former.blocks.first().nonce);
        QCOMPARE(fixture->play(u"delete Docs/grande; delete b; compact"_s), QString());
        QCOMPARE(QFileInfo(fixture->container).size(), 8388636);
    }

    void aReadOnlyDriveKeepsItsContainer()
    {
        useStick();
        QVERIFY(put(u"a"_s, "a"));
        const QByteArray former = readFile(fixture->container);
        QVERIFY(remount(MS_RDONLY));
        QString preserved;
        QVERIFY(!vault().compactVault({}, &preserved));
        QCOMPARE(preserved + workingFolders().join(u' '), QString());
        QVERIFY(readFile(fixture->container) == former);
        QCOMPARE(fixture->play(u"-delete a"_s), QString());
        QVERIFY(remount(0));
        QCOMPARE(fixture->play(u"delete a"_s), QString());
    }

    void damageInABlockStopsNothingButTheSameBytesAreKept()
    {
        QCOMPARE(fixture->play(u"put a=aaaa; put b=bbbb"_s), QString());
        overwrite(fixture->container, fixture->entry(u"a"_s).blocks.first().offset, "XXXXX");
        QCOMPARE(fixture->play(u"compact; get b=bbbb; -get a=aaaa"_s), QString());
        QVERIFY(QFile::resize(fixture->container, QFileInfo(fixture->container).size() - 1));
        const QByteArray former = readFile(fixture->container);
        QCOMPARE(fixture->play(u"-compact"_s), QString());
        QVERIFY(readFile(fixture->container) == former);
        QCOMPARE(workingFolders(), QStringList());
    }

    void theOldContainersRoomIsFreeForTheNewOne()
    {
        QVERIFY(put(u"a"_s, noise(30 * mebibyte, 4)));
        // Room for no second container beside the old one, and then for just one.
        for (const qint64 fillerSize : {45 * mebibyte, 10 * mebibyte}) {
            writeFile(filler, QByteArray(fillerSize, 'f'));
            QString preserved;
            QVERIFY(vault().compactVault({}, &preserved));
            QCOMPARE(preserved, QString());
        }
        QVERIFY(get(u"a"_s) == noise(30 * mebibyte, 4));
    }

    /// What another file meets that takes the container's name meanwhile: nothing.
    void anotherFileInThePlaceStays()
    {
        QVERIFY(put(u"a"_s, "a"));
        QVERIFY(!vault().compactVault(
            [&](qint64, qint64, const QString &label) {
                if (label == replacing) {
                    QFile::rename(fixture->container, root + u"/seu.trvx"_s);
                    writeFile(fixture->container, "de outro");
                }
            },
            nullptr));
        QCOMPARE(readFile(fixture->container), "de outro");
        QCOMPARE(QDir(root).entryList(QDir::Files), (QStringList{u"seu.trvx"_s, u"tessarin.trvx"_s}));
    }

    void aCopyThatIsNoneLeavesThePreservedContainer_data()
    {
        QTest::addColumn<bool>("hasTwin");
        QTest::addColumn<bool>("isFull");
        QTest::newRow("full: no second container") << false << true;
        QTest::newRow("full: a second container beside the old one") << true << true;
        QTest::newRow("bytes lost: no second container") << false << false;
        QTest::newRow("bytes lost: a second container beside the old one") << true << false;
    }
    void aCopyThatIsNoneLeavesThePreservedContainer()
    {
        QFETCH(const bool, hasTwin);
        QFETCH(const bool, isFull);
        QVERIFY(put(u"a"_s, noise(12 * mebibyte, 3)));
        QCOMPARE(fixture->play(u"put morto=m; delete morto"_s), QString());
        if (!hasTwin)
            writeFile(filler, QByteArray(52 * mebibyte, 'f'));
        const qint64 formerSize = QFileInfo(fixture->container).size();
        bool isHeaderFirst = false;
        const auto spoil = [&](qint64 done, qint64 total, const QString &label) {
            QFile target(fixture->container);
            const bool isNew = !target.exists() || target.size() != formerSize;
            if (label != replacing || !isNew || !target.open(QIODevice::ReadWrite | QIODevice::ExistingOnly))
                return;
            isHeaderFirst = isHeaderFirst || (target.size() < total && target.read(7) == "TRAVEX3");
            if (isFull) {
                QFile more(filler);
                if (more.open(QIODevice::Append))
                    more.write(QByteArray(200 * mebibyte, 'f'));
            } else if (done == total && target.seek(total - 5)) {
                target.write("XXXXX");
            }
        };
        QString preserved;
        QVERIFY(!vault().compactVault(spoil, &preserved));
        QVERIFY(!isHeaderFirst);
        QVERIFY(!QFile::exists(fixture->container));
        QVERIFY(QFile::exists(preserved));
        QCOMPARE(VaultManager::compactionTwins(fixture->container),
                 hasTwin ? QStringList{preserved} : QStringList{});
        QCOMPARE(workingFolders().size(), 1);

        // Put back by hand, it goes on where it was, in this session too.
        QFile::remove(filler);
        QVERIFY(QFile::copy(preserved, fixture->container));
        QVERIFY(vault().createDirectory(u"depois"_s));
        QVERIFY(get(u"a"_s) == noise(12 * mebibyte, 3));
        QVERIFY(fixture->reopen());
        QVERIFY(get(u"a"_s) == noise(12 * mebibyte, 3));
    }

    void nothingIsDeletedWhenTheDriveOrAnotherProgramComesBetween()
    {
        const QByteArray former = readFile(fixture->container);
        QVERIFY(vault().createDirectory(u"dela"_s));
        const QByteArray theirs = readFile(fixture->container);
        overwrite(fixture->container, 0, former);
        QVERIFY(fixture->reopen());
        for (const bool isTwin :
             {true, false}) { // Bytes that it was not given, and a save where no locks are.
            const auto interfere = [&](qint64 done, qint64 total, const QString &) {
                if (done == total)
                    overwrite(isTwin ? twin : fixture->container, isTwin ? 1000 : 0, isTwin ? "XXXXX" : theirs);
            };
            QString preserved;
            QVERIFY(!vault().compactVault(interfere, &preserved));
            QCOMPARE(preserved, QString());
            QVERIFY(readFile(fixture->container) == (isTwin ? former : theirs));
            QVERIFY(!QFile::exists(twin));
            QCOMPARE(workingFolders(), QStringList());
        }
    }

    void aContainerWithAnotherLengthLineGetsTheUsualOne()
    {
        QVERIFY(vault().lockVault());
        writeFile(fixture->container, readFile(fixture->container).insert(27, "  "));
        QCOMPARE(fixture->play(u"unlock uma senha bem longa; compact"_s), QString());
        QCOMPARE(QFileInfo(fixture->container).size(), 8388636);
        QVERIFY(vault().createDirectory(u"d"_s));
    }

    void whatAKilledCompactionLeftGoesWithTheNextUnlocking()
    {
        QVERIFY(put(u"a"_s, noise(5000, 5)));
        int status = -1;
        for (int lastCall = 1; status != 0; ++lastCall) {
            QVERIFY(vault().lockVault());
            const pid_t child = ::fork();
            if (child == 0) {
                int calls = 0;
                const auto stop = [&](qint64, qint64, const QString &) {
                    if (++calls == lastCall)
                        ::kill(::getpid(), SIGKILL);
                };
                ::_exit(vault().unlockVault(fixture->container, fixture->password) &&
                                vault().compactVault(stop, nullptr)
                            ? 0
                            : 1);
            }
            QCOMPARE(::waitpid(child, &status, 0), child);
            if (!fixture->unlock()) {
                QVERIFY(QFile::remove(fixture->container));
                QVERIFY(QFile::rename(twin, fixture->container));
                QVERIFY(fixture->unlock());
            }
            QCOMPARE(get(u"a"_s), noise(5000, 5));
            QVERIFY(!QFile::exists(twin));
            QCOMPARE(workingFolders(), QStringList());
        }
    }

    void aLeftoverThatMayHoldMoreStaysAndIsTold()
    {
        QCOMPARE(fixture->play(u"put a=conteúdo; put b=b"_s), QString());
        QVERIFY(QFile::copy(fixture->container, twin));
        // A block that only the twin has whole; then a file that only it has.
        overwrite(fixture->container, 8388640, "X");
        QVERIFY(fixture->reopen());
        QCOMPARE(vault().compactionLeftovers(), QStringList{twin});
        QCOMPARE(fixture->play(u"delete a; lock; password uma senha bem longa>outra senha longa"_s),
                 QString());
        QCOMPARE(vault().compactionLeftovers(), QStringList{twin});
    }

    /// Unlocking shows no progress; compaction does, and leaves no key in what it deletes.
    void whatUnlockingCannotJudgeInAMomentIsLeftToCompaction()
    {
        QVERIFY(put(u"a"_s, noise(33 * mebibyte, 6)));
        const QString folder = temporary.filePath(u"Tessarin-compact-abcdef"_s);
        const QString built = folder + u"/tessarin.trvx"_s;
        QVERIFY(QDir().mkdir(folder));
        writeFile(folder + u"/alheio"_s, "de outro");
        QVERIFY(QFile::copy(fixture->container, built));
        const QString link = temporary.filePath(u"link"_s);
        QCOMPARE(::link(QFile::encodeName(built).constData(), QFile::encodeName(link).constData()), 0);
        QVERIFY(fixture->reopen());
        QCOMPARE(vault().compactionLeftovers(), QStringList{built});
        QCOMPARE(fixture->play(u"compact"_s), QString());
        QCOMPARE(vault().compactionLeftovers(), QStringList());
        QVERIFY(isZero(readFile(link).first(512)));
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{u"alheio"_s});
    }

    void whatAKilledCreationLeftGoesWithTheNextUnlocking_data()
    {
        QTest::addColumn<bool>("isOther");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("stays");
        QTest::newRow("the former container") << true << QByteArray("a block") << false;
        QTest::newRow("a new one, half written") << true << QByteArray() << false;
        QTest::newRow("the container itself under two names") << false << QByteArray() << true;
        QTest::newRow("in use") << true << QByteArray("a block") << true;
    }
    void whatAKilledCreationLeftGoesWithTheNextUnlocking()
    {
        QFETCH(const bool, isOther);
        QFETCH(const QByteArray, bytes);
        QFETCH(const bool, stays);
        const QString left = newCreationPath(fixture->container);
        QByteArray former = readFile(fixture->container) + bytes;
        former[400] = static_cast<char>(former[400] ^ int(isOther));
        writeFile(left, former);
        QFile user(left);
        QVERIFY(user.open(QIODevice::ReadOnly));
        QVERIFY(!isOther || !stays || lockFile(user));
        QCOMPARE(VaultManager::compactionTwins(fixture->container), QStringList{left});
        QVERIFY(fixture->reopen());
        QCOMPARE(vault().compactionLeftovers(), stays ? QStringList{left} : QStringList());
        QCOMPARE(QFile::exists(left), stays);
    }

    void aContainerInUseIsNotReplacedAndALongNameIsNoHindrance()
    {
        QFile user(fixture->container);
        QVERIFY(user.open(QIODevice::ReadOnly));
        QVERIFY(lockFile(user));
        const QByteArray former = readFile(fixture->container);
        QVERIFY(!VaultManager().createVault(fixture->container, fixture->password));
        QVERIFY(readFile(fixture->container) == former);
        const QString longName = root + u'/' + QString(250, u'n') + u".trvx"_s;
        for (int round = 0; round < 2; ++round) {
            QVERIFY(vault().createVault(longName, fixture->password));
            QVERIFY(vault().unlockVault(longName, fixture->password));
            QVERIFY(vault().compactVault({}, nullptr));
        }
        QCOMPARE(QDir(root).entryList(QDir::Files).size(), 2);
    }

    void aPulledDriveFailsEverythingAndLosesNothing()
    {
        useStick();
        const QByteArray large = noise(ContainerFormat::blockPlainSize + 5, 7);
        QVERIFY(put(u"a"_s, large));
        const QByteArray former = readFile(fixture->container);

        QVERIFY(pullOut());
        QCOMPARE(fixture->play(u"-put b=b; -rename a>c; -delete a; -mkdir d; -compact; -open a; -get a"_s),
                 QString());
        QVERIFY(plugIn());
        QVERIFY(readFile(fixture->container) == former);
        QVERIFY(get(u"a"_s) == large);

        // While it works the operation holds the file; its result and the container tell the same.
        bool isPulled = false;
        const bool isImported =
            vault().importFile(fixture->folder.filePath(u"source"_s), u"b"_s,
                               [&](qint64, qint64, const QString &) { isPulled = isPulled || pullOut(); });
        QVERIFY(isPulled);
        QVERIFY(plugIn());
        QVERIFY(fixture->reopen());
        QVERIFY(get(u"a"_s) == large);
        QCOMPARE(vault().fileIndex().contains(u"b"_s), isImported);
    }

    void anImportThatFillsTheDriveIsUndone()
    {
        QVERIFY(put(u"a"_s, "a"));
        const QByteArray former = readFile(fixture->container);
        const QString large = temporary.filePath(u"large"_s);
        writeFile(large, {});
        QVERIFY(QFile::resize(large, 200 * mebibyte));
        qint64 doneBytes = 0;
        QVERIFY(!vault().importFile(large, u"l"_s,
                                    [&](qint64 done, qint64, const QString &) { doneBytes = done; }));
        QVERIFY(doneBytes > 32 * mebibyte);
        QVERIFY(readFile(fixture->container) == former);
        QCOMPARE(get(u"a"_s), "a");
    }
};

QTEST_GUILESS_MAIN(VaultCompactionTest)
#include "tst_vault_compaction.moc"
