// Compaction and creation on a practice drive, which may be full or read-only; and why operations fail.
#include "core/HostFile.h"
#include "core/LeftoverNames.h"
#include "core/Leftovers.h"
#include "core/VaultKeys.h"
#include "support/DriveTape.h"
#include "support/VaultFixture.h"

#include <sys/mount.h>
#include <sys/wait.h>

#include <csignal>

#include <unistd.h>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;

class VaultCompactionTest : public QObject
{
    Q_OBJECT

private:
    static constexpr qint64 mebibyte = 1024 * 1024;
    const QString replacing = u"Substituindo container no USB"_s;

    const QString root = u"/media/%1/PRATICA"_s.arg(qEnvironmentVariable("USER", u"root"_s));
    const QString container = root + u"/tessarin.trvx"_s;
    const QString twin = root + u"/tessarin-compactado-1.trvx"_s;
    const QString filler = root + u"/filler"_s;
    const QString temporaryTemplate = QDir::tempPath() + u"/tessarin-XXXXXX"_s;
    std::optional<QTemporaryDir> temporary;
    std::unique_ptr<VaultFixture> fixture;
    QString preserved;

    VaultManager &vault() { return fixture->vault; }
    void play(const QString &script) { fixture->play(script); }
    bool compact(const ProgressCallback &progress = {}) { return vault().compactVault(progress, &preserved); }
    QStringList files() const { return QDir(root).entryList(QDir::Files); }

    std::optional<DriveTape> tape;
    QFile user;
    std::optional<QLockFile> workspaceUser;
    void lockByUser()
    {
        QVERIFY(user.open(QIODevice::ReadOnly));
        QVERIFY(lockFile(user));
    }
    void lengthenLine() { writeFile(container, readFile(container).insert(27, "  ")); }
    void fillUp()
    {
        QFile more(filler);
        QVERIFY(more.open(QIODevice::Append));
        QVERIFY(more.write(QByteArray(200 * mebibyte, 'f')) < 200 * mebibyte);
    }
    bool remount(unsigned long flags)
    {
        const unsigned long same = MS_BIND | MS_REMOUNT | MS_NOSUID | MS_NODEV;
        return ::mount(nullptr, QFile::encodeName(root), nullptr, same | flags, nullptr) == 0;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QStorageInfo(root).device() == "/dev/sdz1", "no practice drive is mounted");
    }

    void init()
    {
        temporary.emplace(temporaryTemplate);
        QVERIFY(qputenv("TMPDIR", QFile::encodeName(temporary->path())));
        preserved.clear();
        fixture = std::make_unique<VaultFixture>(root);
        user.setFileName(container);
    }

    void cleanup()
    {
        tape.reset();
        user.close();
        workspaceUser.reset();
        QVERIFY(remount(0));
        static_cast<void>(vault().lockVault());
        for (const QString &file : files())
            QFile::remove(root + u'/' + file);
    }

    void everyFailureHasItsReason_data()
    {
        QTest::addColumn<Failure>("reason");
        QTest::addColumn<QString>("script");
        QTest::addColumn<std::function<void()>>("hinder");
        const auto failing = [this](const CallFailure &failure) {
            return [this, failure] { tape.emplace(root, failure); };
        };
        const auto row = [](const char *name, Failure reason, const QString &script,
                            const std::function<void()> &hinder = {}) {
            QTest::newRow(name) << reason << script << hinder;
        };
        using enum CallFailure::Calls;
        const QString changes = u"-put b=b; -rename a>c; -delete a; -mkdir b; -compact"_s;
        const QString password = u"-password uma senha bem longa>outra senha longa"_s;
        row("locked", Failure::Refused,
            u"mkdir d; "_s + password +
                u"; lock; series; -get a; -save; -move a>d; -mvdir d>e; -rmdir d; -open a; "
                "-unlock; -password >outra senha longa; -password uma senha bem longa>ééééééééééé; lock; "_s +
                changes + u"; unlock uma senha bem longa; mkdir e"_s);
        row("wrong password", Failure::WrongPasswordOrDamaged,
            u"lock; -unlock uma senha errada; -password não é esta>outra senha longa"_s);
        row("damaged block", Failure::DamagedData,
            u"put b=b; open a; edit a=editado; damage a; -get a; -open a; compact; get b=b; -get a; "
            "reopen; get a=editado"_s);
        row("block cut off", Failure::DamagedData, u"-compact; -get a"_s,
            [this] { QVERIFY(QFile::resize(container, QFileInfo(container).size() - 4096)); });
        const QString link = root + u"/link"_s;
        const QString hard = root + u"/hard"_s;
        row("the container itself", Failure::Refused,
            u"-import %1>b; -import %2>b; -import %3>b; -export a>%1; -export a>%2; -export a>%3"_s.arg(
                container, link, hard),
            [this, link, hard] {
                QVERIFY(QFile::link(container, link));
                QCOMPARE(::link(QFile::encodeName(container), QFile::encodeName(hard)), 0);
            });
        row("no file", Failure::SourceUnreadable, u"-import /falta>b; -import /dev/zero>b; -import /tmp>b"_s);
        row("short source", Failure::SourceChanged,
            u"series; put c=c; -import /sys/kernel/uevent_seqnum>b; end; get c=c"_s);
        row("no folder", Failure::TargetUnwritable, u"-export a>/falta/b; -export a>/tmp"_s);
        row("full target", Failure::TargetFull, u"-export a>/dev/full"_s);
        row("long name", Failure::NameTooLong, u"-export a>/"_s + QString(256, u'x'));
        row("long name of a container", Failure::None, u"create; unlock uma senha bem longa; compact"_s,
            [this] { fixture = std::make_unique<VaultFixture>(root, QString(250, u'n') + u".trvx"_s); });
        row("full index", Failure::IndexFull, u"-mkdir "_s + QString(6300000, u'x'));
        row("full drive", Failure::NoSpace, u"-import %1>b"_s.arg(filler), [this] { fillUp(); });
        row("read-only drive", Failure::ReadOnly, changes, [this] { QVERIFY(remount(MS_RDONLY)); });
        row("undeletable vault", Failure::ReadOnly, u"-compact; put b=b"_s, failing({1, EPERM, 1, Names}));
        row("in use", Failure::InUse, changes + u"; lock; -create; "_s + password, [this] { lockByUser(); });
        const QString leaving = u"; -lock; -create; -unlock uma senha bem longa"_s;
        row("another program", Failure::ChangedByOther, changes + leaving, [this] {
            const QByteArray theirs = readFile(container);
            play(u"put e=e; open e; edit e=editado"_s);
            overwrite(container, 0, theirs);
        });
        row("another file at a series' end", Failure::ChangedByOther, u"-end; get a=conteúdo"_s, [this] {
            play(u"series; put b=b"_s);
            const QByteArray present = readFile(container);
            QVERIFY(QFile::rename(container, root + u"/away"_s));
            writeFile(container, present);
        });
        row("no container", Failure::DriveGone, changes + u"; -open a; -get a"_s,
            [this] { QVERIFY(QFile::rename(container, root + u"/away"_s)); });
        row("no container for an edited copy", Failure::DriveGone, u"-lock"_s, [this] {
            play(u"open a"_s);
            QVERIFY(vault().modifiedOpenFiles().isEmpty());
            play(u"edit a=editado"_s);
            QVERIFY(QFile::rename(container, root + u"/away"_s));
        });
        row("unreadable block", Failure::DriveGone, u"-get a; -open a; -compact"_s, [this] {
            tape.emplace(root);
            tape->unreadableFrom = fixture->placeOf(u"a"_s);
            tape->unreadableTo = tape->unreadableFrom + 1;
        });
        row("former key", Failure::FormerKeyRemains, u"lock; "_s + password, failing({3, EIO, 2, Syncs}));
        row("unreadable block, damaged index", Failure::DriveGone, u"lock; "_s + password, [this] {
            const QByteArray index = fixture->document().encryptedIndex.toBase64();
            overwrite(container, readFile(container).indexOf(index), index.last(8));
            tape.emplace(root);
            tape->unreadableFrom = ContainerFormat::blockAreaOffset;
            tape->unreadableTo = tape->unreadableFrom + 1;
        });
        row("another length line, another program's password", Failure::None,
            u"compact; lock; unlock outra senha longa"_s, [this] {
                QVERIFY(VaultManager().changePassword(container, fixture->password, "outra senha longa"));
                lengthenLine();
            });
        row("failed wait for the drive", Failure::DriveGone, u"-put b=b"_s, failing({1, EIO, 1, Syncs}));
        for (const int error : {EINVAL, ESPIPE, ENOSYS, EIO}) {
            const auto name = "early writeback fails: " + QByteArray::number(error);
            const QString script =
                u"series; %1import %2>b; put c=c; end; get c=c"_s.arg(error == EIO ? u"-"_s : u""_s, filler);
            row(name.constData(), error == EIO ? Failure::DriveGone : Failure::None, script, [this, error] {
                writeFile(filler, QByteArray(21 * mebibyte, 'f'));
                tape.emplace(root, CallFailure{2, error, 1, Syncs});
            });
        }
        for (const int error : {EINVAL, ENOSYS, EOPNOTSUPP}) {
            const auto name = "no renaming with flags: " + QByteArray::number(error);
            row(name.constData(), Failure::None, u"create; lock; create; unlock uma senha bem longa"_s,
                [this, error] {
                    QVERIFY(QFile::remove(container));
                    tape.emplace(root, CallFailure{1, error, CallFailure::forEver, Names});
                });
        }
        for (const bool isNew : {false, true}) {
            for (int sync = 0; sync < (isNew ? 4 : 5); ++sync) { // The renaming itself for 0.
                const auto name = u"creation, new %1, sync %2"_s.arg(isNew).arg(sync);
                row(qPrintable(name), Failure::DriveGone, u"lock; -create"_s, [this, isNew, sync] {
                    QVERIFY(!isNew || QFile::remove(container));
                    tape.emplace(root, CallFailure{std::max(sync, 1), EIO, 1, sync == 0 ? Names : Syncs});
                });
            }
        }
        row("no renaming with flags in the temporary folder", Failure::None,
            u"unlock uma senha bem longa; open a"_s, [this] {
                play(u"lock"_s);
                QVERIFY(QDir(temporary->path()).rmdir(u"Tessarin"_s));
                tape.emplace(temporary->path(), CallFailure{1, EINVAL, 1, Names});
            });
        row("taken place of a copy", Failure::WorkspaceUnavailable, u"-open a"_s,
            [this] { QVERIFY(QDir(vault().workspacePath()).mkdir(u"a"_s)); });
        row("workspace in use", Failure::WorkspaceUnavailable, u"-unlock uma senha bem longa; put b=b"_s,
            [this] {
                play(u"lock"_s);
                const QString workspace = vault().workspacePath();
                QVERIFY(QDir().mkdir(workspace, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
                workspaceUser.emplace(fixture->workspaceLock());
                QVERIFY(workspaceUser->tryLock(0));
                QFile lock(workspaceUser->fileName()); // However long ago.
                QVERIFY(lock.open(QIODevice::ReadWrite));
                QVERIFY(lock.setFileTime(QDateTime::fromSecsSinceEpoch(0), QFile::FileModificationTime));
            });
        row("no room among the temporary files", Failure::WorkspaceUnavailable, u"-compact"_s, [this] {
            QVERIFY(qputenv("TMPDIR", QFile::encodeName(root)));
            fillUp();
        });
        const auto taking = [this](int error, int times) {
            return [=, this] { tape.emplace(temporary->path(), CallFailure{1, error, times, Locks}); };
        };
        row("working folders locked by others", Failure::None, u"compact"_s, taking(EWOULDBLOCK, 3));
        row("working folders cleared by others", Failure::None, u"compact"_s, taking(ENOENT, 3));
        row("all working folders cleared", Failure::WorkspaceUnavailable, u"-compact"_s, taking(ENOENT, 99));
        row("taken name of a twin", Failure::None, u"compact"_s, [this] { writeFile(twin, "de outro"); });
        row("no temporary directory", Failure::None, u"compact"_s, [] { QVERIFY(qputenv("TMPDIR", "/x")); });
        row("another length line", Failure::OtherLayout, u"-mkdir d; reopen; compact; mkdir d"_s,
            [this] { play(u"delete a"_s), lengthenLine(); });
        row("length line, in use", Failure::InUse, u"-compact"_s, [this] { lengthenLine(), lockByUser(); });
        row("another length line, another vault", Failure::ChangedByOther, u"-compact"_s, [this] {
            QVERIFY(VaultManager().createVault(container, fixture->password));
            lengthenLine();
        });
    }
    void everyFailureHasItsReason()
    {
        QFETCH(const Failure, reason);
        QFETCH(const QString, script);
        QFETCH(const std::function<void()>, hinder);
        play(u"put a=conteúdo"_s);
        if (hinder)
            hinder();
        for (const QString &step : script.split(u"; "_s)) {
            const bool isRefused = step.startsWith(u'-');
            const QByteArray former = readFile(container);
            play(step);
            QCOMPARE(vault().lastFailure(), isRefused ? reason : Failure::None);
            if (isRefused)
                QCOMPARE(readFile(container) == former, reason != Failure::FormerKeyRemains);
        }
        QCOMPARE(QDir(temporary->path()).entryList({u"Tessarin-compact-*"_s}), QStringList());
        const QStringList leftBeside = VaultManager::compactionTwins(container);
        QCOMPARE(leftBeside.count(twin), leftBeside.size());
    }

    void compactionReclaimsDeadBytesAndNothingElse()
    {
        QVERIFY(fixture->put(u"Docs/grande"_s, noise(17 * mebibyte, 1)));
        QVERIFY(fixture->put(u"morto"_s, noise(5 * mebibyte, 2)));
        play(u"put b=b; delete morto"_s);
        writeFile(filler, QByteArray(46 * mebibyte, 'f'));
        constexpr qint64 size = 6401 * 4096; // What is alive, up to the end of a page.
        QVERIFY(QFile::setPermissions(container, QFile::ReadOwner | QFile::WriteOwner));
        QStringList seen;
        QVERIFY(compact([&](qint64 done, qint64 total, const QString &label) {
            seen += u"%1/%2 %3"_s.arg(done).arg(total).arg(label);
        }));
        QCOMPARE(files(), (QStringList{u"filler"_s, u"tessarin.trvx"_s}));
        QCOMPARE(QFileInfo(container).size(), size);
        QCOMPARE(QFile::permissions(container) & 0x0fff, QFile::ReadUser | QFile::WriteUser);
        QCOMPARE(seen.first(), u"16777216/17825793 Docs/grande"_s);
        QCOMPARE(seen.last(), u"%1/%1 "_s.arg(size) + replacing);

        QVERIFY(QFile::remove(filler)); // There is room for a twin, but not to its end.
        QVERIFY(compact([&](qint64, qint64, const QString &label) {
            if (label == replacing && !QFile::exists(filler))
                fillUp();
        }));
        QVERIFY(fixture->reopen());
        QVERIFY(fixture->get(u"docs/grande"_s) == noise(17 * mebibyte, 1));
    }

    /// With a twin, or on a drive without room for one and then none for the copy.
    void aCopyThatIsNoneLeavesThePreservedContainer()
    {
        for (const bool hasTwin : {true, false}) {
            QVERIFY(fixture->put(u"a"_s, noise(12 * mebibyte, 3)));
            play(u"put morto=m; delete morto"_s);
            if (!hasTwin)
                writeFile(filler, QByteArray(52 * mebibyte, 'f'));
            const auto spoil = [&](qint64 done, qint64 total, const QString &label) {
                QFile target(container);
                const bool isOld = target.size() > total;
                if (label != replacing || isOld || !target.open(QFile::ReadWrite | QFile::ExistingOnly))
                    return;
                if (target.size() < total)
                    QVERIFY(target.read(7) != "TRAVEX3");
                if (!hasTwin)
                    fillUp();
                else if (done == total && target.seek(total - 5))
                    target.write("XXXXX");
            };
            QVERIFY(!compact(spoil));
            QVERIFY(!QFile::exists(container));
            QVERIFY(QFile::exists(preserved));
            QCOMPARE(VaultManager::compactionTwins(container), QStringList(hasTwin, preserved));
            QCOMPARE(presentWorkingFolders().size(), 1);

            QFile::remove(filler);
            QVERIFY(QFile::copy(preserved, container));
            play(u"mkdir depois; reopen"_s);
            QVERIFY(fixture->get(u"a"_s) == noise(12 * mebibyte, 3));
            cleanup();
            init();
        }
    }

    void nothingIsDeletedWhenTheDriveOrAnotherProgramComesBetween()
    {
        QVERIFY(fixture->put(u"a"_s, noise(mebibyte - 44, 8))); // Its block ends with a page.
        QVERIFY(compact());
        QVERIFY(!compact([&](qint64, qint64, const QString &label) {
            const QDir folder(presentWorkingFolders().value(0).filePath());
            if (label == u"a"_s)
                QFile::resize(folder.filePath(folder.entryList(QDir::Files).value(0)), 8388640);
        }));
        const QByteArray former = readFile(container);
        play(u"mkdir dela"_s);
        const QByteArray theirs = readFile(container);
        overwrite(container, 0, former);
        QVERIFY(fixture->reopen());
        QVERIFY(!compact([&](qint64 done, qint64 total, const QString &label) {
            if (done == total && label == replacing)
                overwrite(twin, 1000, "XXXXX");
        }));
        QVERIFY(readFile(container) == former);
        QVERIFY(!compact([&](qint64, qint64, auto &) { overwrite(container, 0, theirs); }));
        QVERIFY(readFile(container) == theirs);
        overwrite(container, 0, former);
        QVERIFY(!compact([&](qint64, qint64, auto &) {
            QFile::rename(container, root + u"/seu.trvx"_s);
            writeFile(container, "de outro");
        }));
        QCOMPARE(readFile(container), "de outro");
        QCOMPARE(files(), (QStringList{u"seu.trvx"_s, u"tessarin.trvx"_s}));
    }

    void whatAKilledCompactionLeftGoesWithTheNextUnlocking()
    {
        QVERIFY(fixture->put(u"a"_s, noise(5000, 5)));
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
            QCOMPARE(fixture->get(u"a"_s), noise(5000, 5));
            QCOMPARE(files(), QStringList{u"tessarin.trvx"_s});
            QVERIFY(presentWorkingFolders().isEmpty());
        }
    }

    void aLeftoverThatMayHoldMoreStaysAndIsTold()
    {
        const QByteArray former = readFile(container);
        play(u"put a=bytes enough; put b=b; mkdir d"_s);
        QVERIFY(QFile::copy(container, twin));
        overwrite(container, 0, former);
        const SecretBytes key = decryptMasterKey(fixture->document(), fixture->password);
        QFile file(container);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(clearLeftovers({file, key, vault().fileIndex()}, 1LL << 40, {}), QStringList{twin});
        overwrite(container, 0, readFile(twin));
        // A folder that only the twin has; a block that only it has whole; then a file, replaced or deleted.
        for (const QString &step :
             {u"rmdir d; reopen"_s, u"mkdir d; damage a; reopen"_s, u"put a=others enough; reopen"_s,
              u"delete a; lock; password uma senha bem longa>outra senha longa"_s}) {
            play(step);
            QCOMPARE(vault().compactionLeftovers(), QStringList{twin});
        }
    }

    /// Unlocking shows no progress; compaction does, and leaves no key in what it deletes.
    void whatUnlockingCannotJudgeInAMomentIsLeftToCompaction()
    {
        QVERIFY(fixture->put(u"a"_s, noise(33 * mebibyte, 6)));
        const QString folder = temporary->filePath(u"Tessarin-compact-abcdef"_s);
        const QString built = folder + u"/tessarin.trvx"_s;
        const QString link = temporary->filePath(u"link"_s);
        QVERIFY(QDir().mkdir(folder));
        QVERIFY(QFile::copy(container, built));
        QVERIFY(QFile::copy(container, folder + u"/alheio.trvx"_s));
        QCOMPARE(::link(QFile::encodeName(built), QFile::encodeName(link)), 0);
        const QString foreign = temporary->filePath(u"Tessarin-compact-bcdefg/tessarin.trvx"_s);
        QVERIFY(QFileInfo(foreign).dir().mkpath(u"."_s));
        QVERIFY(VaultManager().createVault(foreign, fixture->password));
        QVERIFY(fixture->reopen());
        QCOMPARE(vault().compactionLeftovers(), QStringList{built});
        QVERIFY(compact());
        QCOMPARE(vault().compactionLeftovers(), QStringList());
        QCOMPARE(readFile(link).first(512), QByteArray(512, '\0'));
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{u"alheio.trvx"_s});
        QVERIFY(QFile::exists(foreign));
    }

    void whatAKilledCreationLeftGoesWithTheNextUnlocking()
    {
        const QByteArray block("a block");
        for (const auto &[name, rest, isOther, stays] :
             {std::tuple("the former container, of use as long as the new one is empty", block, true, true),
              {"the former container", block, true, false},
              {"a new one without a block", {}, true, false},
              {"the container itself under two names", {}, false, true},
              {"in use", block, true, true}}) {
            user.setFileName(newCreationPath(container));
            const QString left = user.fileName();
            writeFile(left, readFile(container) + rest);
            if (isOther)
                overwrite(left, 400, "XXXXX");
            if (QByteArray(name) == "in use")
                lockByUser();
            QCOMPARE(VaultManager::compactionTwins(container), QStringList{left});
            QVERIFY(fixture->reopen());
            QVERIFY2(QFile::exists(left) == stays, name);
            QCOMPARE(vault().compactionLeftovers().contains(left), stays);
            QFile::remove(left);
            QVERIFY(fixture->put(u"a"_s, "a"));
        }
    }
};

QTEST_GUILESS_MAIN(VaultCompactionTest)
#include "tst_vault_compaction.moc"
