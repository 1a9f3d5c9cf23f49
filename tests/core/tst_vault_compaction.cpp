// Compaction and creation on a real drive: what they reclaim and leave, and what is left when the drive does
// not play along, here and in other operations. Runs on a practice drive, which it may fill up, and mounts
// another.
#include "core/LeftoverNames.h"
#include "core/Leftovers.h"
#include "core/VaultKeys.h"
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

} // namespace

class VaultCompactionTest : public QObject
{
    Q_OBJECT

private:
    const QString root = driveRoot();
    const QString container = root + u"/tessarin.trvx"_s;
    const QString twin = root + u"/tessarin-compactado-1.trvx"_s;
    const QString filler = root + u"/filler"_s;
    QTemporaryDir temporary;
    std::unique_ptr<VaultFixture> fixture;
    QString preserved;

    VaultManager &vault() { return fixture->vault; }
    QString play(const QString &script) { return fixture->play(script); }
    bool put(const QString &vaultPath, const QByteArray &bytes) { return fixture->put(vaultPath, bytes); }
    QByteArray get(const QString &vaultPath) const { return fixture->get(vaultPath); }
    bool compact(const ProgressCallback &progress = {}) { return vault().compactVault(progress, &preserved); }
    QStringList files() const { return QDir(root).entryList(QDir::Files); }

    // A second drive, which can be pulled out.
    const QByteArray flash = temporary.filePath(u"flash"_s).toLocal8Bit();
    const QByteArray stick = temporary.filePath(u"stick"_s).toLocal8Bit();

    bool plugIn() { return ::mount(flash, stick, nullptr, MS_BIND, nullptr) == 0; }
    bool pullOut() { return ::umount2(stick, MNT_DETACH) == 0; }
    bool remount(unsigned long flags)
    {
        const unsigned long same = MS_BIND | MS_REMOUNT | MS_NOSUID | MS_NODEV;
        return ::mount(nullptr, stick, nullptr, same | flags, nullptr) == 0;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!root.isEmpty(), "no practice drive is mounted");
        // Its own, so that the folders counted here are no other test's.
        QVERIFY(temporary.isValid());
        QVERIFY(qputenv("TMPDIR", QFile::encodeName(temporary.path())));
    }

    void init()
    {
        preserved.clear();
        fixture = std::make_unique<VaultFixture>(root);
    }

    void cleanup()
    {
        static_cast<void>(vault().lockVault());
        pullOut();
        QDir(QString::fromLocal8Bit(flash)).removeRecursively();
        for (const QString &file : files())
            QFile::remove(root + u'/' + file);
        for (const QString &folder : workingFolders())
            QDir(QDir::temp().filePath(folder)).removeRecursively();
    }

    void compactionReclaimsDeadBytesAndNothingElse()
    {
        QVERIFY(put(u"Docs/grande"_s, noise(17 * mebibyte, 1)));
        QVERIFY(put(u"morto"_s, noise(5 * mebibyte, 2)));
        QCOMPARE(play(u"put vazio=; put b=b; delete morto; mkdir Fotos"_s), QString());
        const QStringList paths = fixture->paths();
        const VaultFileEntry former = fixture->entry(u"docs/grande"_s);
        const qint64 size = QFileInfo(container).size() - 5 * mebibyte - 16;
        QVERIFY(QFile::setPermissions(container, QFile::ReadOwner | QFile::WriteOwner));
        QStringList seen;
        QVERIFY(compact([&](qint64 done, qint64 total, const QString &label) {
            seen += u"%1/%2 %3"_s.arg(done).arg(total).arg(label);
        }));
        QCOMPARE(preserved, QString());
        QCOMPARE(files(), QStringList{u"tessarin.trvx"_s});
        QCOMPARE(workingFolders(), QStringList());
        QCOMPARE(QFileInfo(container).size(), size);
        QCOMPARE(QFile::permissions(container) & 0x0fff, QFile::ReadUser | QFile::WriteUser);
        QCOMPARE(seen.first(), u"16777216/17825793 Docs/grande"_s);
        QCOMPARE(seen.at(2), u"17825793/17825793 b"_s);
        QCOMPARE(seen.last(), u"%1/%1 "_s.arg(size) + replacing);

        QVERIFY(fixture->reopen());
        QCOMPARE(fixture->paths(), paths);
        QVERIFY(get(u"docs/grande"_s) == noise(17 * mebibyte, 1));
        QCOMPARE(fixture->entry(u"docs/grande"_s).id, former.id);
        QCOMPARE(fixture->entry(u"docs/grande"_s).blocks.first().nonce, former.blocks.first().nonce);
        QCOMPARE(play(u"get b=b; delete Docs/grande; delete b; compact"_s), QString());
        QCOMPARE(QFileInfo(container).size(), 8388636);
    }

    void damageInABlockStopsNothingButTheSameBytesAreKept()
    {
        QCOMPARE(play(u"put a=aaaa; put b=bbbb"_s), QString());
        overwrite(container, fixture->entry(u"a"_s).blocks.first().offset, "XXXXX");
        QCOMPARE(play(u"compact; get b=bbbb; -get a=aaaa"_s), QString());
        QVERIFY(QFile::resize(container, QFileInfo(container).size() - 1));
        const QByteArray former = readFile(container);
        QCOMPARE(play(u"-compact"_s), QString());
        QVERIFY(readFile(container) == former);
        QCOMPARE(workingFolders(), QStringList());
    }

    void theOldContainersRoomIsFreeForTheNewOne()
    {
        QVERIFY(put(u"a"_s, noise(30 * mebibyte, 4)));
        // Room for no second container beside the old one, and then for just one.
        for (const qint64 fillerSize : {45 * mebibyte, 10 * mebibyte}) {
            writeFile(filler, QByteArray(fillerSize, 'f'));
            QVERIFY(compact());
            QCOMPARE(preserved, QString());
        }
        QVERIFY(get(u"a"_s) == noise(30 * mebibyte, 4));
    }

    void aCopyThatIsNoneLeavesThePreservedContainer_data()
    {
        QTest::addColumn<bool>("hasTwin");
        QTest::addColumn<bool>("isFull");
        for (const bool hasTwin : {false, true}) {
            for (const bool isFull : {false, true})
                QTest::addRow("twin %d, full %d", hasTwin, isFull) << hasTwin << isFull;
        }
    }
    void aCopyThatIsNoneLeavesThePreservedContainer()
    {
        QFETCH(const bool, hasTwin);
        QFETCH(const bool, isFull);
        QVERIFY(put(u"a"_s, noise(12 * mebibyte, 3)));
        QCOMPARE(play(u"put morto=m; delete morto"_s), QString());
        if (!hasTwin)
            writeFile(filler, QByteArray(52 * mebibyte, 'f'));
        const qint64 formerSize = QFileInfo(container).size();
        bool isHeaderFirst = false;
        const auto spoil = [&](qint64 done, qint64 total, const QString &label) {
            QFile target(container);
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
        QVERIFY(!compact(spoil));
        QVERIFY(!isHeaderFirst);
        QVERIFY(!QFile::exists(container));
        QVERIFY(QFile::exists(preserved));
        QCOMPARE(VaultManager::compactionTwins(container), hasTwin ? QStringList{preserved} : QStringList{});
        QCOMPARE(workingFolders().size(), 1);

        // Put back by hand, it goes on where it was, in this session too.
        QFile::remove(filler);
        QVERIFY(QFile::copy(preserved, container));
        QCOMPARE(play(u"mkdir depois; reopen"_s), QString());
        QVERIFY(get(u"a"_s) == noise(12 * mebibyte, 3));
    }

    void nothingIsDeletedWhenTheDriveOrAnotherProgramComesBetween()
    {
        QVERIFY(put(u"a"_s, noise(mebibyte, 8)));
        // The new container loses a block while it is built.
        QVERIFY(!compact([&](qint64, qint64, auto &) {
            const QDir folder(QDir::temp().filePath(workingFolders().value(0)));
            QFile::resize(folder.filePath(folder.entryList(QDir::Files).value(0)), 8388640);
        }));
        QVERIFY(get(u"a"_s) == noise(mebibyte, 8));
        const QByteArray former = readFile(container);
        QCOMPARE(play(u"mkdir dela"_s), QString());
        const QByteArray theirs = readFile(container);
        overwrite(container, 0, former);
        QVERIFY(fixture->reopen());
        // The drive holds other bytes than it was given.
        QVERIFY(!compact([&](qint64 done, qint64 total, const QString &label) {
            if (done == total && label == replacing)
                overwrite(twin, 1000, "XXXXX");
        }));
        QVERIFY(readFile(container) == former);
        // Another program saves, as it can where no locks are.
        QVERIFY(!compact([&](qint64 done, qint64 total, auto &) {
            if (done == total)
                overwrite(container, 0, theirs);
        }));
        QVERIFY(readFile(container) == theirs);
        // Another file takes the container's name.
        overwrite(container, 0, former);
        QVERIFY(!compact([&](qint64, qint64, auto &) {
            QFile::rename(container, root + u"/seu.trvx"_s);
            writeFile(container, "de outro");
        }));
        QCOMPARE(readFile(container), "de outro");
        QCOMPARE(preserved, QString());
        QCOMPARE(files(), (QStringList{u"seu.trvx"_s, u"tessarin.trvx"_s}));
        QCOMPARE(workingFolders(), QStringList());
    }

    void aContainerWithAnotherLengthLineGetsTheUsualOne()
    {
        QVERIFY(vault().lockVault());
        writeFile(container, readFile(container).insert(27, "  "));
        QCOMPARE(play(u"unlock uma senha bem longa; compact; mkdir d"_s), QString());
        QCOMPARE(QFileInfo(container).size(), 8388636);
    }

    void whatAKilledCompactionLeftGoesWithTheNextUnlocking()
    {
        QVERIFY(put(u"a"_s, noise(5000, 5)));
        int status = -1;
        for (int lastCall = 1; status != 0; ++lastCall) {
            QVERIFY(vault().lockVault());
            const pid_t child = ::fork();
            if (child == 0) {
                const auto stop = [calls = 0, lastCall](qint64, qint64, auto &) mutable {
                    if (++calls == lastCall)
                        ::kill(::getpid(), SIGKILL);
                };
                ::_exit(fixture->unlock() && compact(stop) ? 0 : 1);
            }
            QCOMPARE(::waitpid(child, &status, 0), child);
            if (!fixture->unlock()) {
                QVERIFY(QFile::remove(container));
                QVERIFY(QFile::rename(twin, container));
                QVERIFY(fixture->unlock());
            }
            QCOMPARE(get(u"a"_s), noise(5000, 5));
            QCOMPARE(files(), QStringList{u"tessarin.trvx"_s});
            QCOMPARE(workingFolders(), QStringList());
        }
    }

    void aLeftoverThatMayHoldMoreStaysAndIsTold()
    {
        QCOMPARE(play(u"put a=conteúdo; put b=b"_s), QString());
        QVERIFY(QFile::copy(container, twin));
        // A block that only the twin has whole; then a file that only it has.
        overwrite(container, 8388640, "XXXXX");
        for (const QString &step :
             {u"reopen"_s, u"delete a; lock; password uma senha bem longa>outra senha longa"_s}) {
            QCOMPARE(play(step), QString());
            QCOMPARE(vault().compactionLeftovers(), QStringList{twin});
        }
    }

    void aLeftoverStaysUnlessTheDriveHoldsTheIndexInForce()
    {
        const QByteArray former = readFile(container);
        QVERIFY(put(u"a"_s, "a"));
        QVERIFY(QFile::copy(container, twin));
        overwrite(container, 0, former);
        const SecretBytes key = decryptMasterKey(fixture->document(), fixture->password);
        QFile file(container);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(clearLeftovers({file, key, vault().fileIndex()}, 1LL << 40, {}), QStringList{twin});
    }

    /// Unlocking shows no progress; compaction does, and leaves no key in what it deletes.
    void whatUnlockingCannotJudgeInAMomentIsLeftToCompaction()
    {
        QVERIFY(put(u"a"_s, noise(33 * mebibyte, 6)));
        const QString folder = temporary.filePath(u"Tessarin-compact-abcdef"_s);
        const QString built = folder + u"/tessarin.trvx"_s;
        const QString link = temporary.filePath(u"link"_s);
        QVERIFY(QDir().mkdir(folder));
        QVERIFY(QFile::copy(container, built));
        QVERIFY(QFile::copy(container, folder + u"/alheio.trvx"_s));
        QCOMPARE(::link(QFile::encodeName(built), QFile::encodeName(link)), 0);
        QVERIFY(fixture->reopen());
        QCOMPARE(vault().compactionLeftovers(), QStringList{built});
        QVERIFY(compact());
        QCOMPARE(vault().compactionLeftovers(), QStringList());
        QCOMPARE(readFile(link).first(512), QByteArray(512, '\0'));
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{u"alheio.trvx"_s});
    }

    void whatAKilledCreationLeftGoesWithTheNextUnlocking_data()
    {
        QTest::addColumn<QByteArray>("block");
        QTest::addColumn<bool>("isOther");
        QTest::addColumn<bool>("isInUse");
        QTest::newRow("the former container") << QByteArray("a block") << true << false;
        QTest::newRow("a new one without a block") << QByteArray() << true << false;
        QTest::newRow("the container itself under two names") << QByteArray() << false << false;
        QTest::newRow("in use") << QByteArray("a block") << true << true;
    }
    void whatAKilledCreationLeftGoesWithTheNextUnlocking()
    {
        QFETCH(const QByteArray, block);
        QFETCH(const bool, isOther);
        QFETCH(const bool, isInUse);
        const QString left = newCreationPath(container);
        writeFile(left, readFile(container) + block);
        if (isOther)
            overwrite(left, 400, "XXXXX");
        QFile user(left);
        QVERIFY(user.open(QIODevice::ReadOnly));
        QVERIFY(!isInUse || lockFile(user));
        QCOMPARE(VaultManager::compactionTwins(container), QStringList{left});
        QVERIFY(fixture->reopen());
        QCOMPARE(QFile::exists(left), isInUse || !isOther);
        QCOMPARE(vault().compactionLeftovers().contains(left), QFile::exists(left));
    }

    void aContainerInUseIsNotReplacedAndALongNameIsNoHindrance()
    {
        QFile user(container);
        QVERIFY(user.open(QIODevice::ReadOnly));
        QVERIFY(lockFile(user));
        const QByteArray former = readFile(container);
        QVERIFY(!VaultManager().createVault(container, fixture->password));
        QVERIFY(readFile(container) == former);
        const QString longName = root + u'/' + QString(250, u'n') + u".trvx"_s;
        for (int round = 0; round < 2; ++round) {
            QVERIFY(vault().createVault(longName, fixture->password));
            QVERIFY(vault().unlockVault(longName, fixture->password));
            QVERIFY(compact());
        }
        QCOMPARE(files().size(), 2);
    }

    void aDriveThatFailsLosesNothing()
    {
        QVERIFY(QDir().mkpath(QString::fromLocal8Bit(flash)));
        QVERIFY(QDir().mkpath(QString::fromLocal8Bit(stick)));
        QVERIFY(plugIn());
        fixture = std::make_unique<VaultFixture>(QString::fromLocal8Bit(stick));
        const QByteArray large = noise(ContainerFormat::blockPlainSize + 5, 7);
        QVERIFY(put(u"a"_s, large));
        const QByteArray former = readFile(fixture->container);
        QVERIFY(remount(MS_RDONLY));
        QVERIFY(!compact());
        QCOMPARE(play(u"-delete a"_s), QString());
        QVERIFY(remount(0));

        QVERIFY(pullOut());
        QCOMPARE(play(u"-put b=b; -rename a>c; -delete a; -mkdir d; -compact; -open a; -get a"_s), QString());
        QVERIFY(plugIn());
        QCOMPARE(preserved + workingFolders().join(u' '), QString());
        QVERIFY(readFile(fixture->container) == former);

        // While it works the operation holds the file; its result and the container tell the same.
        bool isPulled = false;
        const bool isImported =
            vault().importFile(fixture->folder.filePath(u"source"_s), u"b"_s,
                               [&](qint64, qint64, auto &) { isPulled = isPulled || pullOut(); });
        QVERIFY(isPulled);
        QVERIFY(plugIn());
        QVERIFY(fixture->reopen());
        QVERIFY(get(u"a"_s) == large);
        QCOMPARE(vault().fileIndex().contains(u"b"_s), isImported);
    }
};

QTEST_GUILESS_MAIN(VaultCompactionTest)
#include "tst_vault_compaction.moc"
