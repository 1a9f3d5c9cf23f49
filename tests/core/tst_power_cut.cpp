// Power cuts and failing calls at every step of every operation that changes a container: a cut leaves the
// contents from before or after, a failed call those that the result tells of. scripts/torture runs more.
#include "support/DriveTape.h"
#include "support/VaultFixture.h"

#include "core/Sha256.h"
#include "core/UndoRecord.h"

#include <array>
#include <cerrno>

#include <sys/syscall.h>
#include <unistd.h>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;

static time_t skippedSeconds = 0;

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    const long result = ::syscall(SYS_clock_gettime, clock, now);
    now->tv_sec += clock == CLOCK_MONOTONIC ? skippedSeconds : 0;
    return int(result);
}

namespace {

const QByteArray password = "uma senha bem longa";
const QByteArray newPassword = "outra senha bem longa";

using Step = std::function<bool(VaultManager &, const QString &folder)>;

QString containerIn(const QString &folder)
{
    return folder + u"/tessarin.trvx"_s;
}

Step importing(const QString &source, const QString &vaultPath)
{
    return [=](auto &vault, auto &folder) {
        const auto wait = [=](auto...) { skippedSeconds += vaultPath == "old.bin"_L1 ? 3 : 0; };
        return vault.importFile(folder + u"/sources/"_s + source, vaultPath, wait);
    };
}

/// A record of an older header, as one is left by a program that was killed where nobody could clear it.
QByteArray staleRecord;

bool leaveStaleRecord(VaultManager &, const QString &folder)
{
    QFile file(containerIn(folder));
    return file.open(QIODevice::ReadWrite | QIODevice::Unbuffered) &&
           file.seek(ContainerFormat::headerAreaSize - staleRecord.size()) &&
           file.write(staleRecord) == staleRecord.size();
}

const Step createAnew = [](auto &vault, auto &folder) {
    return vault.createVault(containerIn(folder), newPassword);
};

const QMap<QByteArray, QList<Step>> operations = {
    {"rename", {[](auto &vault, auto &) { return vault.renameFile(u"old.bin"_s, u"new.bin"_s); }}},
    {"delete", {[](auto &vault, auto &) { return vault.deleteFile(u"old.bin"_s); }}},
    {"folder", {[](auto &vault, auto &) { return vault.createDirectory(u"x/y"_s); }}},
    {"shorten", {[](auto &vault, auto &) {
         return vault.renameDirectory(vault.fileIndex().directories().first().path, u"y"_s);
     }}},
    {"import", {importing(u"small"_s, u"in/new.bin"_s)}},
    {"importBlocks", {importing(u"blocks"_s, u"new.bin"_s)}},
    {"replace", {importing(u"small"_s, u"old.bin"_s)}},
    {"stale", {leaveStaleRecord, [](auto &vault, auto &) { return vault.deleteFile(u"old.bin"_s); }}},
    {"create", {createAnew}},
    {"createOver", {createAnew}},
    {"password", {[](auto &vault, auto &folder) {
         return vault.lockVault() && vault.changePassword(containerIn(folder), password, newPassword);
     }}},
    {"series",
     {[](auto &vault, auto &) { return vault.beginImportSeries(), true; }, importing(u"small"_s, u"1.bin"_s),
      importing(u"small"_s, u"old.bin"_s), importing(u"small"_s, u"3.bin"_s),
      importing(u"large"_s, u"4.bin"_s), [](auto &vault, auto &) { return vault.endImportSeries(); }}},
    {"compact", {[](auto &vault, auto &) { return vault.compactVault({}, nullptr); }}},
    {"recover", {[](auto &vault, auto &folder) { return vault.unlockVault(containerIn(folder), password); }}},
};

/// Header sizes: small; the record in the tail; about where it moves to the end; there; and full.
constexpr qint64 mostGrowth = 2500; ///< Of a header by an operation.
const QMap<QByteArray, qint64> headerSizes = {{"small", 0},
                                              {"half", 4'400'000},
                                              {"edge", 4'791'500},
                                              {"more", 4'900'000},
                                              {"full", ContainerFormat::headerAreaSize}};

/// Names, folders and hashes of all that can be exported; empty when something cannot.
QByteArray contentsOf(const VaultManager &vault)
{
    QByteArrayList items{"a vault"};
    for (const VaultDirectoryEntry &directory : vault.fileIndex().directories())
        items << QByteArray::number(qHash(directory.path));
    for (const VaultFileEntry &file : vault.fileIndex().entries()) {
        QBuffer bytes;
        if (!bytes.open(QIODevice::WriteOnly) || !vault.writeVaultFileToDevice(file.vaultPath, &bytes))
            return {};
        items << file.vaultPath.toUtf8() + ' ' + QByteArray::number(qHash(bytes.data()));
    }
    return items.join('\n');
}

struct Session
{
    VaultManager vault;
    ~Session() { static_cast<void>(vault.lockVault()); }

    bool unlock(const QString &container)
    {
        return vault.unlockVault(container, password) || vault.unlockVault(container, newPassword);
    }
    bool knows(const QByteArray &state) const
    {
        const QByteArray contents = contentsOf(vault);
        return !contents.isEmpty() && state.startsWith(contents);
    }
};

/// A change that every vault must allow, and that needs no room.
bool change(VaultManager &vault)
{
    return vault.renameFile(u"keep.bin"_s, u"kept.bin"_s) || vault.renameFile(u"kept.bin"_s, u"keep.bin"_s) ||
           vault.createDirectory(u"new"_s) || vault.deleteDirectory(u"new"_s);
}

/// What opening a container shows, and by which password; empty when the vault is lost, or cannot be used.
QByteArray stateOf(const QString &container)
{
    Session session;
    const bool isOldPassword = session.vault.unlockVault(container, password);
    const QByteArray state = isOldPassword || session.unlock(container) ? contentsOf(session.vault) : "";
    QFile file(container);
    if (state.isEmpty() || !change(session.vault) || !file.open(QIODevice::ReadOnly) || findUndoRecord(file))
        return {};
    Session again;
    if (!again.unlock(container) || !session.knows(contentsOf(again.vault)))
        return {};
    return isOldPassword ? state : state + "\nnew password";
}

/// A vault whose header has this many bytes, or three less; 0 for a small one. Locking has ended its series.
std::pair<DriveFiles, QByteArray> driveAndRecord(qint64 headerSize)
{
    VaultFixture fixture;
    const auto header = [&] { return ContainerManager().buildHeader(fixture.document()); };
    const auto record = undoRecordFor({header(), Sha256::of(header())}, {header(), Sha256::of(header())});
    bool isMade = fixture.put(u"gone.bin"_s, noise(3000, 1)) && fixture.put(u"keep.bin"_s, noise(700, 2));
    fixture.play(u"delete gone.bin; mkdir x; series"_s);
    isMade = isMade && fixture.put(u"old.bin"_s, noise(5000, 3)) && fixture.reopen();
    // Of each letter, the three bytes in the index are four in the header.
    for (QString folder = u"x"_s; isMade && header().size() < headerSize - 3;) {
        const QString longer = folder + QString((headerSize - header().size()) / 4, u'字');
        isMade = fixture.vault.renameDirectory(folder, longer);
        folder = longer;
    }
    return {{{u"tessarin.trvx"_s, isMade ? FileImage::read(fixture.container) : FileImage()}}, record};
}

constexpr int quickStride = TESSARIN_IS_SANITIZED ? 21 : 7;

} // namespace

class PowerCutTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir drive{u"/dev/shm/tessarin-XXXXXX"_s};
    QTemporaryDir scratch{u"/dev/shm/tessarin-XXXXXX"_s};
    QTemporaryDir temporaryFiles{u"/dev/shm/tessarin-XXXXXX"_s};
    const QString container = containerIn(drive.path());
    const bool isThorough = qEnvironmentVariableIsSet("TESSARIN_CUTS");
    const int randomCuts = isThorough ? qEnvironmentVariableIntValue("TESSARIN_CUTS") : 4;
    const quint32 seed = static_cast<quint32>(qEnvironmentVariableIntValue("TESSARIN_SEED"));
    QString failed;                                         ///< What has, before a cut.
    QHash<size_t, QByteArray> knownStates;                  ///< By a hash of all that is on the drive.
    QMap<qint64, std::pair<DriveFiles, QByteArray>> drives; ///< By the size of the header.

    QByteArray operation;
    DriveFiles before;
    std::optional<DriveTape> whole; ///< With nothing that comes between.
    QByteArrayList states;          ///< Before, and after each step.
    bool isRecordBehind = false;

    PowerCutTest &choose(const QByteArray &name, const QByteArray &size = "small")
    {
        const qint64 headerSize = headerSizes.value(size, size.toLongLong());
        isRecordBehind = headerSize > headerSizes["half"];
        operation = name;
        before.clear();
        if (name == "recover") { // Of a drive on which renaming broke off.
            record("rename", size);
            operation = name;
            before = tornHeader(*whole);
        } else if (name != "create") {
            const qint64 begin = headerSize - (name == "rename" ? 0 : mostGrowth);
            if (!drives.contains(begin))
                drives[begin] = driveAndRecord(begin);
            std::tie(before, staleRecord) = drives[begin];
        }
        return *this;
    }

    struct Begun : Session
    {
        explicit Begun(const PowerCutTest &test)
        {
            skippedSeconds = 0;
            putFiles(test.drive.path(), test.before);
            const bool opensLater = test.operation == "recover" || test.operation.startsWith("create");
            QVERIFY(opensLater || unlock(test.container));
        }
    };

    /// Runs the operation up to the first step that fails. A series that ends well has all it told of.
    bool run(Session &session)
    {
        const QList<Step> steps = operations[operation];
        for (qsizetype i = 0; i < steps.size(); ++i) {
            const qsizetype files = session.vault.fileIndex().entries().size();
            if (steps[i](session.vault, drive.path()))
                continue;
            const bool endsWell = session.vault.endImportSeries() && i + 1 < steps.size();
            [&] { QVERIFY(!endsWell || session.vault.fileIndex().entries().size() >= files); }();
            return false;
        }
        return true;
    }

    void record(const QByteArray &name, const QByteArray &size = "small")
    {
        Begun session(choose(name, size));
        states = {stateOfCopy(before)};
        whole.emplace(drive.path());
        for (const Step &step : operations[operation]) {
            QVERIFY(step(session.vault, drive.path()));
            states << stateOfDrive();
            if (operation == "series") // What a commit may put in force after a failure.
                states << contentsOf(session.vault);
        }
        whole->stop();
    }

    static qsizetype headerWriteOf(const DriveTape &tape)
    {
        qsizetype at = tape.events.size() - 1;
        while (tape.events.at(at).kind != DriveTape::Write || tape.events.at(at).position > 0)
            --at;
        return at;
    }

    static DriveFiles tornHeader(const DriveTape &tape, DriveTape::Loss loss = DriveTape::Nothing)
    {
        const qsizetype at = headerWriteOf(tape);
        DriveFiles torn = tape.cutAfter(at, loss);
        torn.first().sectors.first() = tape.cutAfter(at + 1, DriveTape::Nothing).first().sectors.first();
        return torn;
    }

    QByteArray stateOfCopy(const DriveFiles &files)
    {
        size_t key = 0;
        for (const FileImage &file : files)
            key = qHashMulti(key, file.size, file.sectors);
        QByteArray &state = knownStates[key];
        if (!state.isNull())
            return state;
        putFiles(scratch.path(), files);
        for (auto file = files.cend(); state.isEmpty() && file != files.cbegin();)
            state = stateOf(scratch.filePath((--file).key()));
        return state = state.isEmpty() ? "" : state;
    }

    QByteArray stateOfDrive() { return stateOfCopy(filesIn(drive.path())); }

    void cut(const DriveTape &tape, qsizetype at, DriveTape::Loss loss, quint32 cutSeed,
             const QByteArrayList &allowed)
    {
        const QByteArray state = stateOfCopy(tape.cutAfter(at, loss, cutSeed));
        const auto where =
            QString::asprintf("cut after %lld of %lld events, loss %d, seed %u: %s", qlonglong(at),
                              qlonglong(tape.events.size()), int(loss), cutSeed, state.constData());
        QVERIFY2(allowed.contains(state), qPrintable(failed + where));
    }

    bool fail(const CallFailure &failure)
    {
        Begun session(*this);
        DriveTape tape(drive.path(), failure);
        const bool isDone = run(session);
        tape.stop();
        failed = QString::asprintf("%s %d fails with %d, %d times, result %d; ",
                                   std::array{"call", "sync", "size"}[failure.counted], failure.call,
                                   failure.error, failure.times, isDone);
        if (tape.calls >= failure.call)
            judge(failure, session, tape, isDone);
        failed.clear();
        return tape.calls >= failure.call;
    }

    void judge(const CallFailure &failure, Session &session, DriveTape &tape, bool isDone)
    {
        const bool isInForce = isDone || session.vault.lastFailure() == Failure::FormerKeyRemains;
        QByteArrayList allowed{isInForce ? states.last() : states.first()};
        // A new vault that failed to get its name may be there under another.
        if (!isInForce && (failure.times > 1 || states.size() > 2 || operation == "create"))
            allowed = states;
        const QByteArray state = stateOfDrive();
        QVERIFY2(allowed.contains(state), qPrintable(failed));
        // It would free the former container before the new one is there.
        QVERIFY2(before.isEmpty() || tape.count(DriveTape::Rename) == 0, qPrintable(failed));
        const qsizetype last = tape.events.size();
        // Cuts at every later point or at one. Without room some changes go ahead without protection.
        const bool isUnprotected = failure.error != EIO && (operation == "compact" || isRecordBehind);
        QRandomGenerator random(seed + quint32(failure.call));
        const qsizetype stride = isThorough ? 1 : last + 1;
        qsizetype at = tape.eventsBeforeFailure;
        at += random.bounded(qMin(stride, last + 1 - at));
        for (; at < last && !isUnprotected; at += stride)
            cut(tape, at, DriveTape::Loss(random.bounded(4)), random.generate(), states);
        for (const auto loss : {DriveTape::Everything, DriveTape::AnySectors})
            cut(tape, last, loss, random.generate(), allowed);
        // A compaction that fails past the deletion leaves the container elsewhere, for the user to take.
        if ((operation == "compact" || operation == "create") && !isDone)
            return;
        const bool isOpen = session.vault.state() == VaultManager::Unlocked;
        QVERIFY2(!isOpen || failure.times > 1 || session.knows(state), qPrintable(failed));
        // The drive works again, but does not hold all that the kernel's cache shows.
        tape.resume();
        QVERIFY2(isOpen || session.unlock(container), qPrintable(failed));
        QVERIFY2(change(session.vault), qPrintable(failed));
        tape.stop();
        const QByteArray next = stateOfCopy({{u"tessarin.trvx"_s, FileImage::read(container)}});
        QVERIFY2(session.knows(next), qPrintable(failed));
        const qsizetype end = tape.events.size();
        cut(tape, end, DriveTape::Everything, 0, {next});
        const bool isWhole = failure.counted == CallFailure::Syncs && (isThorough || operation == "rename");
        for (qsizetype i = failure.error != EIO ? 0 : isWhole ? 4 * (end + 1 - last) : 1; i > 0; --i)
            cut(tape, last + random.bounded(end + 1 - last), DriveTape::AnySectors, random.generate(),
                allowed + QByteArrayList{state, next});
    }

private Q_SLOTS:
    void initTestCase()
    {
        // The names of the workspaces are not random here.
        QVERIFY(qputenv("TMPDIR", temporaryFiles.path().toLocal8Bit()));
        QVERIFY(QDir(drive.path()).mkdir(u"sources"_s));
        writeFile(drive.filePath(u"sources/small"_s), noise(900, 5));
        writeFile(drive.filePath(u"sources/large"_s), noise(5'000'000, 4));
        writeFile(drive.filePath(u"sources/blocks"_s), noise(ContainerFormat::blockPlainSize + 1000, 6));
    }

    void everyCutAndFailingCallLeavesAVault_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("size");
        for (const QByteArray &size : headerSizes.keys()) {
            for (const QByteArray &name : operations.keys()) {
                const bool isPossible = name != "stale" || size != "full";
                const bool isQuick = size == "small" || name == "rename" || name == "recover" ||
                                     (name == "stale" && size == "more");
                if (isPossible && (isThorough || isQuick))
                    QTest::addRow("%s %s", name.constData(), size.constData()) << name << size;
            }
        }
    }
    void everyCutAndFailingCallLeavesAVault()
    {
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, size);
        record(name, size);
        QVERIFY2(!states.sliced(1).contains(QByteArray("")), "not even without a cut");
        QCOMPARE(filesIn(drive.path()).size(), 1);
        QFile file(container);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(!findUndoRecord(file));
        const qint64 end = ContainerFormat::headerAreaOffset + HeaderArea::read(file)->header().size();
        const QByteArray rest = readAt(file, end, ContainerFormat::blockAreaOffset - end);
        QCOMPARE(rest.count('\0'), rest.size());
        const qsizetype last = whole->events.size();
        QVERIFY2(whole->cutAfter(last, DriveTape::Nothing) == filesIn(drive.path()),
                 "changes came about by calls that the tape does not know");
        if (name != "compact" && name != "createOver")
            QVERIFY(whole->count(DriveTape::Sync) <= (name == "stale" ? 5 : name == "series" ? 4 : 3));

        const bool isWhole = isThorough || size == "small";
        for (qsizetype at = 0; isWhole && at <= last; ++at) {
            for (const auto loss : {DriveTape::Everything, DriveTape::Nothing, DriveTape::EndOfLastWrite})
                cut(*whole, at, loss, seed, states);
        }
        cut(*whole, last, DriveTape::Everything, seed, {states.last()});
        QRandomGenerator random(seed + quint32(name.size()));
        for (int i = 0; i < randomCuts; ++i)
            cut(*whole, random.bounded(last + 1), DriveTape::AnySectors, random.generate(), states);

        if (!isWhole)
            return;
        const int stride = isThorough ? (size == "small" ? 1 : 3) : name == "createOver" ? 3 : quickStride;
        bool isReached = true;
        for (int call = 1; isReached; ++call) {
            for (int variant = call % stride; variant < 7; variant += stride) {
                const int error = std::array{EIO, ENOSPC, EFBIG}[size_t(variant % 3)];
                isReached = fail({call, error, variant < 3 ? 1 : variant < 6 ? CallFailure::forEver : 2});
            }
        }
        // What is done and fails is so on a network where the answer is lost.
        for (CallFailure each : {CallFailure{1, EIO, 2, CallFailure::Sizes},
                                 {1, EIO, 2, CallFailure::Syncs},
                                 {1, EIO, 1, CallFailure::Changes, true}}) {
            while ((size == "small" || name == "series" || each.counted == CallFailure::Syncs) && fail(each))
                ++each.call;
        }
    }

    /// What is kept of a torn header's page may be nothing at all. What the change left alone is not written.
    void anUnreadableTornHeaderIsRestored()
    {
        for (const char *name : {"rename", "shorten", "password"}) {
            for (const char *size : {"small", "half", "more"}) {
                record(name, size);
                const DriveTape::Event header = whole->events.at(headerWriteOf(*whole));
                putFiles(drive.path(), tornHeader(*whole));
                Session second;
                DriveTape damaged(drive.path());
                damaged.unreadableFrom = header.position;
                damaged.unreadableTo = header.position + HeaderArea::pageSize;
                QVERIFY(second.vault.unlockVault(container, password));
                damaged.stop();
                QCOMPARE(damaged.unreadableTo, 0);
                QCOMPARE(damaged.events.first().position, header.position);
                QCOMPARE(damaged.events.first().bytes.size(), header.bytes.size());
                QCOMPARE(stateOfDrive(), states.first());
                DriveFiles erased = tornHeader(*whole); // As flash is.
                erased.first().put(0, QByteArray(FileImage::sectorSize, '\xff'));
                QCOMPARE(stateOfCopy(erased), states.first());
            }
        }
    }

    /// What a change has left before, whole or in part: behind the header, at the end or between blocks.
    void noFormerKeyOutlivesANewPassword()
    {
        for (const QByteArray &size : {QByteArray("small"), QByteArray("more")}) {
            ContainerDocument document;
            record("rename", size);
            QVERIFY(ContainerManager().readDocument(container, &document));
            const QByteArray key = document.crypto.encryptedMasterKey.toBase64();
            const auto keysIn = [&](const DriveFiles &on) { return on.first().sectors.join().count(key); };
            const bool isCutOff = whole->events.last().kind == DriveTape::Resize;
            const auto loss = isCutOff ? DriveTape::Everything : DriveTape::Nothing;
            QCOMPARE(keysIn(whole->cutAfter(whole->events.size() - isCutOff, loss)), 1);
            for (const auto &[eventCount, buriedBy] : {std::pair(1, 0), {1, 70}, {2, 0}, {2, 17 << 20}}) {
                DriveFiles files = before;
                for (quint32 part = 1; keysIn(files) < 2; ++part)
                    files = whole->cutAfter(eventCount, DriveTape::EndOfLastWrite, part);
                files.first().put(files.first().size, noise(buriedBy, 1));
                putFiles(drive.path(), files);
                DriveTape changing(drive.path()); // Behind the header, nothing has to be readable.
                changing.unreadableFrom = 8380416;
                changing.unreadableTo = changing.unreadableFrom + HeaderArea::pageSize;
                QVERIFY(VaultManager().changePassword(container, password, newPassword));
                changing.stop();
                QCOMPARE(changing.unreadableTo, 0);
                qsizetype at = changing.events.size();
                do {
                    QCOMPARE(keysIn(changing.cutAfter(at, DriveTape::Everything)), 0);
                } while (changing.events.at(--at).kind == DriveTape::Resize);
                for (at = 0; at < changing.events.size(); ++at) {
                    if (changing.events.at(at).kind != DriveTape::Resize)
                        continue;
                    const FileImage image = changing.cutAfter(at, DriveTape::Everything).first();
                    const qint64 cutOff = changing.events.at(at).position / FileImage::sectorSize;
                    QVERIFY(!image.sectors.mid(cutOff).join().contains(key));
                }
                // The first block shares a sector with the end of the header area.
                for (const auto &[kind, file, begin, bytes, name] : std::as_const(changing.events))
                    QVERIFY(begin + bytes.size() <= 8388608 || begin >= ContainerFormat::blockAreaOffset);
                QCOMPARE(stateOfDrive(), stateOfCopy(before) + "\nnew password");
            }
        }
    }

    /// The drive never took the zeros over it, and told a change that failed. The next record lay behind.
    void aRecordThatWasClearedInMemoryAloneUndoesNothing()
    {
        Begun session(choose("rename", "half"));
        const QString folder = session.vault.fileIndex().directories().first().path;
        DriveTape tape(drive.path(), {3, EIO, 1, CallFailure::Syncs});
        QVERIFY(session.vault.renameDirectory(folder, folder + QString(400'000, u'x')));
        const QByteArray grown = contentsOf(session.vault);
        QVERIFY(!session.vault.deleteFile(u"old.bin"_s));
        QVERIFY(session.vault.deleteFile(u"old.bin"_s));
        tape.stop();
        QCOMPARE(stateOfCopy(tornHeader(tape, DriveTape::Everything)), grown);
    }

    void aHeaderTornInItsMiddleIsRolledBackByItsSession()
    {
        record("rename", "more");
        Begun session(*this);
        DriveFiles torn = whole->cutAfter(2, DriveTape::Nothing);
        torn.first().put(2000000, QByteArray(4096, 'A'));
        putFiles(drive.path(), torn);
        DriveTape next(drive.path());
        QVERIFY(session.vault.renameFile(u"keep.bin"_s, u"kept.bin"_s));
        next.stop();
        for (qsizetype at = 0; at <= next.events.size(); ++at)
            cut(next, at, DriveTape::EndOfLastWrite, seed, {stateOfCopy(before), stateOfDrive()});
    }

    void whatAnotherProgramHasSavedIsNotRolledBack()
    {
        record("rename");
        Begun session(*this);
        const DriveFiles saved = whole->cutAfter(headerWriteOf(*whole) + 1, DriveTape::Nothing);
        putFiles(drive.path(), saved);
        QVERIFY(!change(session.vault));
        QVERIFY(filesIn(drive.path()) == saved);
    }

    /// It told of blocks that it never wrote. Records of other programs may share a page with the header.
    void whatTheDriveHasLostIsRolledBack()
    {
        Begun session(choose("rename", "8385000"));
        QVERIFY(leaveStaleRecord(session.vault, drive.path()));
        DriveFiles files = filesIn(drive.path());
        QCOMPARE(stateOfCopy(files), stateOfCopy(before));
        files.first().put(files.first().size - HeaderArea::pageSize, noise(HeaderArea::pageSize, 1));
        QCOMPARE(stateOfCopy(files), "a vault");
        // Somebody has made this one up: it says that the change left the whole header alone.
        staleRecord = undoRecordFor({"x", Sha256::of("x\"")}, {"", Sha256::of("")});
        staleRecord[16] = 2, staleRecord[40] = 1;
        staleRecord = staleRecord.chopped(32) + Sha256::of(staleRecord.chopped(32));
        putFiles(drive.path(), before);
        QVERIFY(leaveStaleRecord(session.vault, drive.path()));
        QCOMPARE(stateOfDrive(), stateOfCopy(before));
    }

    void aChangedPasswordIsNeverUndone()
    {
        Begun session(choose("rename"));
        QVERIFY(VaultManager().changePassword(container, password, newPassword));
        DriveFiles behind = filesIn(drive.path());
        behind.first().put(behind.first().size, staleRecord);
        QVERIFY(leaveStaleRecord(session.vault, drive.path()));
        const DriveFiles files = filesIn(drive.path());
        QVERIFY(!VaultManager().unlockVault(container, password));
        QVERIFY(!change(session.vault));
        QVERIFY(filesIn(drive.path()) == files);
        for (const DriveFiles &each : {files, behind})
            QCOMPARE(stateOfCopy(each), stateOfCopy(before) + "\nnew password");
        putFiles(drive.path(), behind);
        QVERIFY(VaultManager().changePassword(container, newPassword, password));
        // It stays, too, when a session that did not see it rolls another's change back.
        Begun late(*this);
        QVERIFY(VaultManager().changePassword(container, password, newPassword));
        Session other;
        QVERIFY(other.unlock(container));
        DriveTape breaking(drive.path());
        QVERIFY(run(other));
        breaking.stop();
        putFiles(drive.path(), tornHeader(breaking));
        QVERIFY(change(late.vault));
        QVERIFY(stateOfDrive().endsWith("\nnew password"));
    }

    void whatIsNoRecordIsTakenForNone()
    {
        constexpr qint64 tail = ContainerFormat::headerAreaSize;
        constexpr qint64 blocks = ContainerFormat::blockAreaOffset;
        const auto isFound = [](qint64 size, char kind, qint64 end, const QByteArray &more = {}) {
            const QByteArray header = QByteArray(size, 'x') + more;
            QByteArray record = undoRecordFor({header, Sha256::of(header)}, {"", Sha256::of("")});
            record.chop(Sha256::sizeBytes);
            record[record.indexOf("TRVXUNDO") + 15] = kind;
            record += Sha256::of(record);
            QByteArray bytes = QByteArray(end - record.size(), '\0') + record;
            QBuffer file(&bytes);
            return file.open(QIODevice::ReadOnly) && findUndoRecord(file);
        };
        QVERIFY(isFound(100, 2, tail));
        QVERIFY2(!isFound(100, 3, tail), "of an unknown kind");
        QVERIFY(isFound(4'100'000, 1, tail));
        QVERIFY2(!isFound(4'300'000, 1, tail), "over its own header");
        QVERIFY(isFound(100, 1, blocks + 244));
        QVERIFY2(!isFound(100, 1, blocks + 243), "behind the blocks, but for its beginning");
        const QByteArray much = "\"encryptedIndex\":\"" + QByteArray(3'000'000, 'A') + '"';
        QVERIFY(isFound(1'000'000, 1, 2 * tail, much + QByteArray(3'000'000, 'x')));
        QVERIFY2(!isFound(3'000'000, 1, 2 * tail, much + QByteArray(3'000'000, 'x')), "of no header");
    }

    /// On a full drive. Room must be made there all the same, and a former password must not stay.
    void onlyWhatCannotWaitGoesAheadWithoutARecord()
    {
        for (const auto &[name, works] : {std::pair("rename", false), {"delete", true}, {"password", true}}) {
            Begun session(choose(name, "full"));
            DriveTape tape(drive.path(), {1, ENOSPC});
            QCOMPARE(run(session), works);
        }
    }

    void aSeriesGoesOnUntilTheIndexIsFull()
    {
        Begun session(choose("delete", "8380000"));
        session.vault.beginImportSeries();
        int files = 0;
        while (importing(u"small"_s, QString::number(files))(session.vault, drive.path()))
            ++files;
        QCOMPARE(session.vault.lastFailure(), Failure::IndexFull);
        QVERIFY(session.vault.endImportSeries());
        QCOMPARE(session.vault.fileIndex().entries().size(), 2 + files);
    }

    void recordsWithoutNumberAreClearedAFewAtATime()
    {
        choose("rename");
        before.first().put(before.first().size, staleRecord.repeated(17));
        Begun session(*this);
        QVERIFY(!session.vault.deleteFile(u"old.bin"_s));
        QVERIFY(session.vault.deleteFile(u"old.bin"_s));
    }

    /// Nothing tells whether another program is at work; what lies beside a locked container may be in use.
    void withoutLocksAnothersWorkIsLeftAlone()
    {
        choose("recover");
        before[u"tessarin-compactado-1.trvx"_s] = before.first();
        putFiles(drive.path(), before);
        Session opening;
        DriveTape recovery(drive.path());
        recovery.hasLocks = false;
        QVERIFY(opening.unlock(container));
        QCOMPARE(recovery.events.size(), 0);
        QCOMPARE(opening.vault.compactionLeftovers().size(), 1);
        QCOMPARE(contentsOf(opening.vault), states.first());
        recovery.hasLocks = true;
        QFile other(container);
        QVERIFY(other.open(QIODevice::ReadOnly));
        QVERIFY(lockFile(other));
        QVERIFY(opening.unlock(container));
        QCOMPARE(opening.vault.compactionLeftovers(), QStringList());
    }

    void withoutLocksASeriesIsNotCommittedOverAnothersWork()
    {
        Begun series(choose("rename"));
        Session other;
        DriveTape tape(drive.path());
        tape.hasLocks = false;
        series.vault.beginImportSeries();
        QVERIFY(importing(u"small"_s, u"1.bin"_s)(series.vault, drive.path()));
        QVERIFY(!series.vault.deleteFile(u"1.bin"_s));
        QVERIFY(!series.vault.compactVault({}, nullptr));
        // What it has appended is not cut off with a file that fails: one that says it has 4096 bytes.
        QVERIFY(!series.vault.importFile(u"/sys/kernel/uevent_seqnum"_s, u"2.bin"_s, [&](auto...) {
            QVERIFY(other.unlock(container));
            QVERIFY(importing(u"small"_s, u"other.bin"_s)(other.vault, drive.path()));
        }));
        skippedSeconds += 3;
        QVERIFY(!importing(u"small"_s, u"2.bin"_s)(series.vault, drive.path()));
        QVERIFY(!series.vault.endImportSeries());
        QCOMPARE(series.vault.lastFailure(), Failure::ChangedByOther);
        QVERIFY(series.unlock(container));
        QVERIFY(contentsOf(series.vault).contains("\nother.bin "));
    }
};

QTEST_GUILESS_MAIN(PowerCutTest)
#include "tst_power_cut.moc"
