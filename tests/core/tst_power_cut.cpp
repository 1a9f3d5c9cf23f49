// Power cuts and failing calls at every step of every operation that changes a container. Each recorded cut
// must leave a vault that opens with the contents from before or after, and each failed call must leave the
// contents that the operation's result tells of. scripts/torture runs more of the same.
#include "support/DriveTape.h"
#include "support/VaultFixture.h"

#include "core/Sha256.h"
#include "core/UndoRecord.h"

#include <QBuffer>
#include <QDir>
#include <QRandomGenerator>

#include <sodium.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include <malloc.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

// What is random or depends on the time is the same each time that an operation runs, so that of the many
// cuts that leave the same bytes only one has to be looked at.
static time_t skippedSeconds = 0; ///< Between two syncs of a series.
static quint64 drawn = 0;         ///< Of the random bytes.

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    const long result = ::syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && clock == CLOCK_MONOTONIC)
        now->tv_sec += skippedSeconds;
    if (result == 0 && clock == CLOCK_REALTIME)
        *now = {};
    return int(result);
}

extern "C" void randombytes_buf(void *const bytes, const size_t size)
{
    std::array<unsigned char, randombytes_SEEDBYTES> seed{};
    ++drawn;
    std::copy_n(reinterpret_cast<const unsigned char *>(&drawn), sizeof drawn, seed.begin());
    randombytes_buf_deterministic(bytes, size, seed.data());
}

QUuid QUuid::createUuid()
{
    std::array<char, 16> bytes{};
    randombytes_buf(bytes.data(), bytes.size());
    return QUuid::fromRfc4122(bytes);
}

namespace {

const QByteArray password = "uma senha bem longa";
const QByteArray newPassword = "outra senha bem longa";

using Step = std::function<bool(VaultManager &, const QString &folder)>;

/// What a user does, in steps that each may be the last to be seen.
struct Operation
{
    QByteArray name;
    qint64 headerGrowth = 0; ///< Room in the header that it needs, in bytes.
    QList<Step> steps;
};

QString containerIn(const QString &folder)
{
    return folder + u"/tessarin.trvx"_s;
}

Step importing(const QString &source, const QString &vaultPath)
{
    return [=](auto &vault, auto &folder) {
        return vault.importFile(folder + u"/sources/"_s + source, vaultPath);
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

bool createAnew(VaultManager &vault, const QString &folder)
{
    return vault.createVault(containerIn(folder), newPassword);
}

const QList<Operation> operations = {
    {"rename", 0, {[](auto &vault, auto &) { return vault.renameFile(u"old.bin"_s, u"new.bin"_s); }}},
    {"delete", 0, {[](auto &vault, auto &) { return vault.deleteFile(u"old.bin"_s); }}},
    {"folder", 600, {[](auto &vault, auto &) { return vault.createDirectory(u"x/y"_s); }}},
    {"import", 900, {importing(u"small"_s, u"in/new.bin"_s)}},
    {"importBlocks", 1200, {importing(u"blocks"_s, u"new.bin"_s)}},
    {"replace", 900, {importing(u"small"_s, u"old.bin"_s)}},
    {"stale", 0, {leaveStaleRecord, [](auto &vault, auto &) { return vault.deleteFile(u"old.bin"_s); }}},
    {"create", 0, {createAnew}},
    {"createOver", 0, {createAnew}},
    {"password", 0, {[](auto &vault, auto &folder) {
         return vault.lockVault() && vault.changePassword(containerIn(folder), password, newPassword);
     }}},
    // What was imported is made certain after a while, and at the end.
    {"series",
     2500,
     {[](auto &vault, auto &) { return vault.beginImportSeries(), true; }, importing(u"small"_s, u"1.bin"_s),
      importing(u"small"_s, u"old.bin"_s), [](auto &, auto &) { return skippedSeconds += 3; },
      importing(u"small"_s, u"3.bin"_s), importing(u"small"_s, u"4.bin"_s),
      [](auto &vault, auto &) { return vault.endImportSeries(); }}},
    {"compact", 0, {[](auto &vault, auto &) { return vault.compactVault({}, nullptr); }}},
    {"recover", 0, {[](auto &vault, auto &folder) {
         return vault.state() == VaultManager::Unlocked || vault.unlockVault(containerIn(folder), password);
     }}},
};

/// Header sizes: small; the record in the tail; about where it moves to the end; there; and full.
const QMap<QByteArray, qint64> headerSizes = {{"small", 0},
                                              {"half", 4'400'000},
                                              {"edge", 4'791'500},
                                              {"more", 4'900'000},
                                              {"full", ContainerFormat::headerAreaSize}};

/// Names, folders and hashes of all that can be exported; empty when something cannot.
QByteArray contentsOf(const VaultManager &vault)
{
    QByteArrayList items;
    for (const VaultDirectoryEntry &directory : vault.fileIndex().directories())
        items << Sha256::of(directory.path.toUtf8()).toHex();
    for (const VaultFileEntry &file : vault.fileIndex().entries()) {
        QBuffer bytes;
        if (!bytes.open(QIODevice::WriteOnly) || !vault.writeVaultFileToDevice(file.vaultPath, &bytes) ||
            Sha256::of(bytes.data()) != file.sha256)
            return {};
        items << file.vaultPath.toUtf8() + ' ' + file.sha256.toHex();
    }
    std::sort(items.begin(), items.end());
    return "a vault\n" + items.join('\n');
}

/// A session that leaves no workspace behind.
struct Session
{
    VaultManager vault;
    ~Session() { static_cast<void>(vault.lockVault()); }

    bool unlock(const QString &container)
    {
        return vault.unlockVault(container, password) || vault.unlockVault(container, newPassword);
    }
};

qint64 headerLength(const QString &container)
{
    QFile file(container);
    return file.open(QIODevice::ReadOnly) ? HeaderArea::read(file)->header().size() : 0;
}

bool isZero(QByteArrayView bytes)
{
    return bytes.isEmpty() || (bytes.front() == 0 && bytes.chopped(1) == bytes.sliced(1));
}

/// The container's bytes are those of a finished operation.
bool isTidy(const QString &container)
{
    QFile file(container);
    if (!file.open(QIODevice::ReadOnly) || findUndoRecord(file) || !file.seek(0))
        return false;
    const QByteArray area = file.read(ContainerFormat::blockAreaOffset);
    const qsizetype end =
        ContainerFormat::headerAreaOffset +
        area.mid(ContainerFormat::fileMagicSize, ContainerFormat::lengthDigits).toLongLong();
    return isZero(QByteArrayView(area).sliced(end));
}

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
    if (!again.unlock(container) || contentsOf(again.vault) != contentsOf(session.vault))
        return {};
    return isOldPassword ? state : state + "\nnew password";
}

DriveFiles filesIn(const QString &folder)
{
    DriveFiles files;
    const QStringList names = QDir(folder).entryList(QDir::Files);
    for (const QString &name : names)
        files[name] = readFile(folder + u'/' + name);
    return files;
}

/// A drive is a folder; what the operations read lies in another below it.
void putFiles(const QString &folder, const DriveFiles &files)
{
    const QStringList present = QDir(folder).entryList(QDir::Files);
    for (const QString &name : present) {
        if (!files.contains(name))
            QFile::remove(folder + u'/' + name);
    }
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        QFile target(folder + u'/' + file.key());
        QVERIFY(target.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered));
        QVERIFY(target.resize(file->size()));
        // Most of it is zeros, and need not be written.
        constexpr qsizetype chunkSize = 65536;
        for (qsizetype at = 0; at < file->size(); at += chunkSize) {
            const auto chunk = QByteArrayView(*file).sliced(at, qMin(chunkSize, file->size() - at));
            if (!isZero(chunk))
                QVERIFY(target.seek(at) && target.write(chunk.data(), chunk.size()) == chunk.size());
        }
    }
}

/// A vault whose header has this many bytes, or three less; 0 for a small one.
QByteArray containerWithHeader(qint64 headerSize)
{
    VaultFixture fixture;
    bool isMade = fixture.put(u"gone.bin"_s, noise(3000, 1)) && fixture.put(u"keep.bin"_s, noise(700, 2)) &&
                  fixture.put(u"old.bin"_s, noise(5000, 3)) && fixture.vault.deleteFile(u"gone.bin"_s) &&
                  fixture.vault.createDirectory(u"x"_s);
    QFile file(fixture.container);
    const bool isOpen = file.open(QIODevice::ReadOnly);
    const QByteArray small = isOpen ? HeaderArea::read(file)->header().toByteArray() : QByteArray();
    staleRecord = undoRecordFor({small, Sha256::of(small)}, {small, Sha256::of(small)});
    isMade = isMade && fixture.vault.renameFile(u"old.bin"_s, u"old.new"_s) &&
             fixture.vault.renameFile(u"old.new"_s, u"old.bin"_s) && fixture.put(u"later.bin"_s, "later");
    // Each byte of the index is four thirds of one in the header.
    for (QString folder = u"x"_s; isMade && headerLength(fixture.container) < headerSize - 3;) {
        const qint64 missing = (headerSize - headerLength(fixture.container)) * 3 / 4;
        const QString longer = folder + QString(missing, u'x');
        isMade = fixture.vault.renameDirectory(folder, longer);
        folder = longer;
    }
    return isMade && fixture.vault.lockVault() ? readFile(fixture.container) : QByteArray();
}

} // namespace

Q_DECLARE_METATYPE(Operation)

#ifdef __SANITIZE_ADDRESS__ // Ten times as slow: one call of three.
constexpr int quickStride = 21;
#else
constexpr int quickStride = 7;
#endif

class PowerCutTest : public QObject
{
    Q_OBJECT

private:
    using States = QList<QByteArray>;

    QTemporaryDir drive{u"/dev/shm/tessarin-XXXXXX"_s};
    QTemporaryDir scratch{u"/dev/shm/tessarin-XXXXXX"_s};
    QTemporaryDir temporaryFiles{u"/dev/shm/tessarin-XXXXXX"_s};
    const QString container = containerIn(drive.path());
    const bool isThorough = qEnvironmentVariableIsSet("TESSARIN_CUTS");
    const int randomCuts = isThorough ? qEnvironmentVariableIntValue("TESSARIN_CUTS") : 4;
    const quint32 seed = static_cast<quint32>(qEnvironmentVariableIntValue("TESSARIN_SEED"));
    int trials = 0;
    int losses = 0;
    QHash<size_t, QByteArray> knownStates; ///< By a hash of all that is on the drive.

    // Of the row that is played:
    Operation operation;
    DriveFiles before;
    States states; ///< Before, and after each step.
    bool isRecordBehind = false;

    void check(bool isRight, const QString &when, const char *what)
    {
        ++trials;
        losses += isRight ? 0 : 1;
        if (!isRight)
            qWarning("%s, %s: %s", QTest::currentDataTag(), qPrintable(when), what);
    }

    /// The drive before the operation: for a recovery, one on which renaming broke off.
    DriveFiles driveBefore(qint64 headerSize)
    {
        const DriveFiles whole{
            {u"tessarin.trvx"_s, containerWithHeader(headerSize - operation.headerGrowth)}};
        if (operation.name == "create")
            return {};
        if (operation.name != "recover")
            return whole;
        putFiles(drive.path(), whole);
        Session session;
        if (!session.unlock(container))
            return {};
        DriveTape tape(drive.path());
        const bool isRenamed = operations.first().steps.first()(session.vault, drive.path());
        tape.stop();
        for (qsizetype i = 0; isRenamed && i < tape.events.size(); ++i) {
            if (tape.events.at(i).kind == DriveTape::Sync)
                return tape.cutAfter(i + 2, DriveTape::EndOfLastWrite, seed + 4);
        }
        return {};
    }

    bool begin(Session &session)
    {
        putFiles(drive.path(), before);
        return operation.name == "recover" || operation.name.startsWith("create") ||
               session.unlock(container);
    }

    /// Runs the operation up to the first step that fails.
    bool run(Session &session, const std::function<void()> &afterStep)
    {
        const auto restore =
            qScopeGuard([former = std::exchange(drawn, quint64(1) << 32)] { drawn = former; });
        for (const Step &step : std::as_const(operation.steps)) {
            if (!step(session.vault, drive.path())) {
                static_cast<void>(session.vault.endImportSeries());
                return false;
            }
            afterStep();
        }
        return true;
    }

    QByteArray stateOfCopy(const DriveFiles &files)
    {
        size_t key = operation.name == "create";
        for (auto file = files.cbegin(); file != files.cend(); ++file)
            key = qHash(*file, key);
        QByteArray &state = knownStates[key];
        if (!state.isNull())
            return state;
        putFiles(scratch.path(), files);
        // The container's own name comes last, and counts first.
        for (auto file = files.cend(); state.isEmpty() && file != files.cbegin();)
            state = stateOf(scratch.filePath((--file).key()));
        if (state.isEmpty())
            state = operation.name == "create" ? QByteArray("no vault yet") : QByteArray("");
        return state;
    }

    void cut(const DriveTape &tape, qsizetype at, DriveTape::Loss loss, quint32 cutSeed,
             const States &allowed)
    {
        const QByteArray state = stateOfCopy(tape.cutAfter(at, loss, cutSeed));
        check(allowed.contains(state),
              QString::asprintf("cut after %lld of %lld events, loss %d, seed %u", qlonglong(at),
                                qlonglong(tape.events.size()), int(loss), cutSeed),
              state.isEmpty() ? "lost" : "a state that never was");
    }

    /// Cuts the power again while what the first cut left is repaired.
    void cutOnceMore(const DriveFiles &files, quint32 cutSeed)
    {
        putFiles(drive.path(), files);
        Session second;
        DriveTape recovery(drive.path());
        const bool isOpen = second.unlock(container);
        recovery.stop();
        if (!isOpen || recovery.events.isEmpty())
            return;
        const auto at = QRandomGenerator(cutSeed).bounded(recovery.events.size() + 1);
        cut(recovery, at, DriveTape::AnySectors, cutSeed, {stateOfCopy(filesIn(drive.path()))});
    }

    /// Cuts after a call that has failed, at every later point or at some.
    void cutAfterFailure(const DriveTape &tape, qsizetype last, const CallFailure &failure,
                         const States &atTheEnd)
    {
        // Without room some changes go ahead without protection.
        const bool isUnprotected = failure.error != EIO && (operation.name == "compact" || isRecordBehind);
        QRandomGenerator random(seed + quint32(failure.call));
        const qsizetype stride = isThorough ? 1 : last + 1;
        const qsizetype first =
            tape.eventsBeforeFailure + random.bounded(qMin(stride, last + 1 - tape.eventsBeforeFailure));
        for (qsizetype at = first; at < last && !isUnprotected; at += stride) {
            const auto loss = DriveTape::Loss(random.bounded(4));
            cut(tape, at, loss, random.generate(), states);
        }
        for (const auto loss : {DriveTape::Everything, DriveTape::AnySectors})
            cut(tape, last, loss, random.generate(), atTheEnd);
    }

    /// False when the operation has no call of this number.
    bool fail(const CallFailure &failure)
    {
        Session session;
        if (!begin(session))
            return false;
        DriveTape tape(drive.path(), failure);
        const bool isDone = run(session, [] {});
        tape.stop();
        if (tape.calls < failure.call)
            return false;

        const QString when =
            QString::asprintf("%s %d fails with %d, %d times, result %d", failure.isOfSyncs ? "sync" : "call",
                              failure.call, failure.error, failure.times, isDone);
        const bool isInForce = isDone || session.vault.lastFailure() == Failure::FormerKeyRemains;
        States allowed{isInForce ? states.last() : states.first()};
        // A new vault that failed to get its name may be there under another.
        if (!isInForce && (failure.times > 1 || states.size() > 2 || operation.name == "create"))
            allowed = states;
        const QByteArray state = stateOfCopy(filesIn(drive.path()));
        check(allowed.contains(state), when, "not the state that the result tells of");
        const qsizetype failed = tape.events.size();
        cutAfterFailure(tape, failed, failure, allowed);
        // A compaction that fails past the deletion leaves the container elsewhere, for the user to take.
        if ((operation.name == "compact" || operation.name == "create") && !isDone)
            return true;
        const bool isOpen = session.vault.state() == VaultManager::Unlocked;
        check(!isOpen || failure.times > 1 || state.startsWith(contentsOf(session.vault)), when,
              "the session knows another state");
        // The drive works again, but does not hold all that the kernel's cache shows.
        tape.resume();
        check(isOpen || session.unlock(container), when, "no unlocking afterwards");
        check(change(session.vault), when, "nothing can be done afterwards");
        tape.stop();
        const QByteArray last = stateOfCopy({{u"tessarin.trvx"_s, readFile(container)}});
        check(!last.isEmpty() && last.startsWith(contentsOf(session.vault)), when,
              "wrong after the next operation");
        const qsizetype end = tape.events.size();
        cut(tape, end, DriveTape::Everything, 0, {last});
        QRandomGenerator random(seed + quint32(failed));
        const bool isWhole = failure.isOfSyncs && (isThorough || operation.name == "rename");
        const int count = failure.error != EIO ? 0 : isWhole ? int(4 * (end + 1 - failed)) : 1;
        for (int i = 0; i < count; ++i)
            cut(tape, failed + random.bounded(end + 1 - failed), DriveTape::AnySectors, random.generate(),
                allowed + States{state, last});
        return true;
    }

private Q_SLOTS:
    void initTestCase()
    {
        ::mallopt(M_MMAP_THRESHOLD, 1 << 30);
        ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
        // The names of the workspaces are not random here.
        QVERIFY(qputenv("TMPDIR", temporaryFiles.path().toLocal8Bit()));
        QVERIFY(QDir(drive.path()).mkdir(u"sources"_s));
        writeFile(drive.filePath(u"sources/small"_s), noise(900, 5));
        writeFile(drive.filePath(u"sources/blocks"_s), noise(ContainerFormat::blockPlainSize + 1000, 6));
    }

    /// All operations with all sizes of header, or a quick choice.
    void everyCutAndFailingCallLeavesAVault_data()
    {
        QTest::addColumn<Operation>("row");
        QTest::addColumn<QByteArray>("size");
        for (const QByteArray &size : headerSizes.keys()) {
            for (const Operation &row : operations) {
                // A full header leaves no room in its tail for a record that could be stale.
                if (row.name == "stale" && size == "full")
                    continue;
                if (isThorough || size == "small" || (row.name == "rename" && size != "half") ||
                    (size == "more" && row.name == "stale"))
                    QTest::addRow("%s %s", row.name.constData(), size.constData()) << row << size;
            }
        }
    }
    void everyCutAndFailingCallLeavesAVault()
    {
        QFETCH(Operation, row);
        QFETCH(QByteArray, size);
        operation = row;
        knownStates.clear();
        before = driveBefore(headerSizes.value(size));
        isRecordBehind = headerSizes.value(size) > headerSizes["half"];
        states = {stateOfCopy(before)};
        losses = 0;
        const bool isWhole = isThorough || size == "small" || operation.name != "rename";

        QVERIFY(!states.first().isEmpty());
        QList<DriveFiles> seen;
        auto session = std::make_unique<Session>();
        QVERIFY(begin(*session));
        DriveTape tape(drive.path());
        QVERIFY(run(*session, [&] {
            seen << filesIn(drive.path());
            if (operation.name == "series") // What a commit may put in force after a failure.
                states << contentsOf(session->vault);
        }));
        tape.stop();
        session.reset();
        for (const DriveFiles &files : std::as_const(seen))
            states << stateOfCopy(files);
        QVERIFY2(!states.contains(QByteArray()) && states.size() > 1, "not even without a cut");
        QVERIFY(isTidy(container));
        QCOMPARE(filesIn(drive.path()).size(), 1);
        const qsizetype last = tape.events.size();
        QVERIFY2(tape.cutAfter(last, DriveTape::Nothing, 0) == filesIn(drive.path()),
                 "changes came about by calls that the tape does not know");

        const auto syncs = std::ranges::count(tape.events, DriveTape::Sync, &DriveTape::Event::kind);
        if (operation.steps.size() == 1 && operation.name != "compact" && operation.name != "createOver")
            QVERIFY2(syncs <= 3, "waits for the drive too often");

        for (qsizetype at = 0; isWhole && at <= last; ++at) {
            for (const auto loss : {DriveTape::Everything, DriveTape::Nothing, DriveTape::EndOfLastWrite})
                cut(tape, at, loss, seed, states);
        }
        cut(tape, last, DriveTape::Everything, seed, {states.last()});
        QRandomGenerator random(seed + quint32(operation.name.size()));
        for (int i = 0; i < randomCuts; ++i) {
            const auto at = random.bounded(last + 1);
            const quint32 cutSeed = random.generate();
            cut(tape, at, DriveTape::AnySectors, cutSeed, states);
            cutOnceMore(tape.cutAfter(at, DriveTape::AnySectors, cutSeed), cutSeed);
        }

        // Each call in all ways, or in ways that alternate from call to call.
        const int stride = !isThorough ? quickStride : size == "small" ? 1 : 3;
        bool isReached = isWhole;
        for (int call = 1; isReached; ++call) {
            for (int variant = call % stride; variant < 7; variant += stride) {
                const int error = std::array{EIO, ENOSPC, EFBIG}[size_t(variant % 3)];
                isReached = fail({call, error, variant < 3 ? 1 : variant < 6 ? CallFailure::forEver : 2});
            }
        }
        for (int sync = 1; isWhole && fail({sync, EIO, 2, true}); ++sync) {
        }
        QCOMPARE(losses, 0);
    }

    /// What is kept of a torn header's page may be nothing at all.
    void anUnreadableTornHeaderIsRestored()
    {
        for (const auto &[name, size] : {std::pair<QByteArray, QByteArray>("rename", "small"),
                                         {"rename", "more"},
                                         {"password", "small"},
                                         {"password", "half"},
                                         {"password", "more"}}) {
            operation = *std::ranges::find(operations, name, &Operation::name);
            before = driveBefore(headerSizes.value(size));
            Session session;
            QVERIFY(begin(session));
            DriveTape tape(drive.path());
            QVERIFY(run(session, [] {}));
            tape.stop();
            const QList<DriveTape::Event> &events = std::as_const(tape.events);
            const auto header = std::ranges::find(events, DriveTape::Sync, &DriveTape::Event::kind) + 1;
            putFiles(drive.path(),
                     tape.cutAfter(header - events.cbegin() + 1, DriveTape::EndOfLastWrite, seed));
            Session second;
            DriveTape damaged(drive.path());
            damaged.unreadableFrom = header->position;
            damaged.unreadableTo = header->position + 4096;
            QVERIFY(second.vault.unlockVault(container, password));
            QCOMPARE(damaged.unreadableTo, 0);
            damaged.stop();
            QCOMPARE(stateOfCopy(filesIn(drive.path())), stateOfCopy(before));
        }
    }

    /// What a change has left before, whole or in part: behind the header, at the end or between blocks.
    void noFormerKeyOutlivesANewPassword()
    {
        operation = operations.first();
        for (const QByteArray &size : {QByteArray("small"), QByteArray("more")}) {
            before = driveBefore(headerSizes[size]);
            Session session;
            QVERIFY(begin(session));
            ContainerDocument document;
            QVERIFY(ContainerManager().readDocument(container, &document));
            const QByteArray key = document.crypto.encryptedMasterKey.toBase64();
            DriveTape tape(drive.path());
            QVERIFY(run(session, [] {}));
            tape.stop();
            QCOMPARE(tape.cutAfter(tape.events.size(), DriveTape::Nothing, 0).first().count(key), 1);
            for (const auto &[eventCount, buriedBy] : {std::pair(1, 0), {1, 70}, {2, 0}, {2, 70}}) {
                DriveFiles files = before;
                for (quint32 part = 1; files.first().count(key) < 2; ++part)
                    files = tape.cutAfter(eventCount, DriveTape::EndOfLastWrite, part);
                files.first() += noise(buriedBy, 1);
                putFiles(drive.path(), files);
                DriveTape changing(drive.path());
                QVERIFY(VaultManager().changePassword(container, password, newPassword));
                changing.stop();
                qsizetype at = changing.events.size();
                do {
                    QVERIFY(!changing.cutAfter(at, DriveTape::Everything, 0).first().contains(key));
                } while (changing.events.at(--at).kind == DriveTape::Resize);
                QCOMPARE(stateOfCopy(filesIn(drive.path())), stateOfCopy(before) + "\nnew password");
            }
        }
    }

    /// A rename over the former container would free it before the new one is there.
    void anExchangeThatFailsIsNoReasonToRename()
    {
        operation = *std::ranges::find(operations, QByteArray("createOver"), &Operation::name);
        before = driveBefore(0);
        for (int call = 1, calls = 1; call <= calls; ++call) {
            Session session;
            QVERIFY(begin(session));
            DriveTape tape(drive.path(), {call, EIO});
            static_cast<void>(run(session, [] {}));
            tape.stop();
            calls = tape.calls + 1;
            QCOMPARE(std::ranges::count(tape.events, DriveTape::Rename, &DriveTape::Event::kind), 0);
        }
    }

    void pagesBehindTheHeaderNeedNotBeReadable()
    {
        operation = operations.first();
        before = driveBefore(0);
        for (const qint64 page : {65536, 8380416, 8384512}) {
            putFiles(drive.path(), before);
            DriveTape damaged(drive.path());
            damaged.unreadableFrom = page;
            damaged.unreadableTo = page + 4096;
            Session session;
            QVERIFY(session.unlock(container));
            QVERIFY(change(session.vault));
            QVERIFY(session.vault.lockVault());
            QVERIFY(VaultManager().changePassword(container, password, newPassword));
            QCOMPARE(damaged.unreadableTo, 0);
        }
    }

    /// The ends of such a header, nonce and tag of its index, are those that the session knows.
    void aHeaderTornInItsMiddleIsRolledBackByItsSession()
    {
        operation = operations.first();
        before = driveBefore(headerSizes["more"]);
        losses = 0;
        Session session;
        Session other;
        QVERIFY(begin(session));
        QVERIFY(begin(other));
        DriveTape tape(drive.path());
        QVERIFY(run(other, [] {}));
        tape.stop();
        DriveFiles torn = tape.cutAfter(2, DriveTape::Nothing, 0);
        torn.first().replace(2000000, 4096, QByteArray(4096, 'A'));
        putFiles(drive.path(), torn);
        DriveTape next(drive.path());
        QVERIFY(change(session.vault));
        next.stop();
        const States allowed{stateOfCopy(before), stateOfCopy(filesIn(drive.path()))};
        for (qsizetype at = 0; at <= next.events.size(); ++at) {
            for (const auto loss : {DriveTape::Everything, DriveTape::Nothing, DriveTape::EndOfLastWrite})
                cut(next, at, loss, seed, allowed);
        }
        QCOMPARE(losses, 0);
    }

    void aChangedPasswordIsNeverUndone()
    {
        operation = operations.first();
        before = driveBefore(0);
        Session session;
        QVERIFY(begin(session));
        QVERIFY(VaultManager().changePassword(container, password, newPassword));
        QVERIFY(leaveStaleRecord(session.vault, drive.path()));
        const DriveFiles files = filesIn(drive.path());
        QVERIFY(!VaultManager().unlockVault(container, password));
        QVERIFY(!change(session.vault));
        QVERIFY(filesIn(drive.path()) == files);
        QCOMPARE(stateOfCopy(files), stateOfCopy(before) + "\nnew password");
    }

    void recordsOfUnknownKindsAreNone()
    {
        const QByteArray record = undoRecordFor({"{}", Sha256::of("{}")}, {"[]", Sha256::of("[]")});
        for (const char kind : {'\1', '\2', '\3', '\0'}) {
            QByteArray bytes = record.chopped(Sha256::sizeBytes);
            bytes[bytes.indexOf("TRVXUNDO") + 15] = kind;
            bytes =
                QByteArray(ContainerFormat::headerAreaSize - record.size(), '\0') + bytes + Sha256::of(bytes);
            QBuffer file(&bytes);
            QVERIFY(file.open(QIODevice::ReadOnly));
            QCOMPARE(findUndoRecord(file).has_value(), kind == 1 || kind == 2);
        }
    }

    /// Nothing tells there whether another program is at work.
    void withoutLocksAnothersWorkIsLeftAlone()
    {
        operation = operations.last();
        before = driveBefore(0);
        putFiles(drive.path(), before);
        Session opening;
        DriveTape recovery(drive.path());
        recovery.hasLocks = false;
        QVERIFY(opening.unlock(container));
        QCOMPARE(recovery.events.size(), 0);
        recovery.stop();
        QCOMPARE(contentsOf(opening.vault), stateOfCopy(before));

        operation = operations.first();
        before = driveBefore(0);
        for (const bool isBeforeTheEnd : {false, true}) {
            Session series;
            Session other;
            QVERIFY(begin(series));
            DriveTape tape(drive.path());
            tape.hasLocks = false;
            series.vault.beginImportSeries();
            QVERIFY(importing(u"small"_s, u"1.bin"_s)(series.vault, drive.path()));
            QVERIFY(other.unlock(container));
            QVERIFY(importing(u"small"_s, u"other.bin"_s)(other.vault, drive.path()));
            skippedSeconds += 3;
            QVERIFY(isBeforeTheEnd || !importing(u"small"_s, u"2.bin"_s)(series.vault, drive.path()));
            QVERIFY(!series.vault.endImportSeries());
            QCOMPARE(series.vault.lastFailure(), Failure::ChangedByOther);
            Session later;
            QVERIFY(later.unlock(container));
            QCOMPARE(contentsOf(later.vault), contentsOf(other.vault));
        }
    }

    void aSeriesEndsWithItsSession()
    {
        operation = operations.first();
        before = driveBefore(0);
        Session session;
        QVERIFY(begin(session));
        session.vault.beginImportSeries();
        QVERIFY(importing(u"small"_s, u"1.bin"_s)(session.vault, drive.path()));
        QVERIFY(!session.vault.deleteFile(u"1.bin"_s));
        QVERIFY(!session.vault.compactVault({}, nullptr));
        const QByteArray contents = contentsOf(session.vault);
        QVERIFY(session.vault.createVault(scratch.filePath(u"other.trvx"_s), password));
        QVERIFY(isTidy(container));
        QVERIFY(session.vault.unlockVault(scratch.filePath(u"other.trvx"_s), password));
        QVERIFY(importing(u"small"_s, u"2.bin"_s)(session.vault, drive.path()));
        QVERIFY(session.unlock(container));
        QCOMPARE(contentsOf(session.vault), contents);
    }

    void cleanupTestCase() { qInfo("%d trials", trials); }
};

QTEST_GUILESS_MAIN(PowerCutTest)
#include "tst_power_cut.moc"
