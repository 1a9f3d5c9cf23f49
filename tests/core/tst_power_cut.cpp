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

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/syscall.h>
#include <unistd.h>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

/// A clock that can skip the time between two syncs of a series.
static time_t skippedSeconds = 0;

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    const long result = ::syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && clock == CLOCK_MONOTONIC)
        now->tv_sec += skippedSeconds;
    return int(result);
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

const QList<Operation> operations = {
    {"rename", 0, {[](auto &vault, auto &) { return vault.renameFile(u"old.bin"_s, u"new.bin"_s); }}},
    {"delete", 0, {[](auto &vault, auto &) { return vault.deleteFile(u"old.bin"_s); }}},
    {"folder", 600, {[](auto &vault, auto &) { return vault.createDirectory(u"x/y"_s); }}},
    {"import", 900, {importing(u"small"_s, u"in/new.bin"_s)}},
    {"importBlocks", 1200, {importing(u"blocks"_s, u"new.bin"_s)}},
    {"replace", 900, {importing(u"small"_s, u"old.bin"_s)}},
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
    return items.join('\n');
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
    return file.open(QIODevice::ReadOnly) ? ContainerUpdate::headerOf(file).size() : 0;
}

/// The container's bytes are those of a finished operation.
bool isTidy(const QString &container)
{
    QFile file(container);
    if (!file.open(QIODevice::ReadOnly) || findUndoRecord(file) || !file.seek(0))
        return false;
    const QByteArray area = file.read(ContainerFormat::blockAreaOffset);
    const qsizetype end = ContainerFormat::headerAreaOffset + headerLength(container);
    return area.sliced(end).count('\0') == area.size() - end;
}

/// A change that every vault must allow, and that needs no room.
bool change(VaultManager &vault)
{
    return vault.renameFile(u"keep.bin"_s, u"kept.bin"_s) || vault.renameFile(u"kept.bin"_s, u"keep.bin"_s);
}

/// What opening a container shows, and by which password; empty when the vault is lost, or cannot be used.
QByteArray stateOf(const QString &container)
{
    Session session;
    const bool isOldPassword = session.vault.unlockVault(container, password);
    const QByteArray state = isOldPassword || session.unlock(container) ? contentsOf(session.vault) : "";
    if (state.isEmpty() || !change(session.vault) || !isTidy(container))
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
    for (const QString &name : present)
        QFile::remove(folder + u'/' + name);
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        writeFile(folder + u'/' + file.key(), *file);
}

/// A vault whose header has this many bytes, or three less; 0 for a small one.
QByteArray containerWithHeader(qint64 headerSize)
{
    VaultFixture fixture;
    bool isMade = fixture.createAndUnlock() && fixture.put(u"gone.bin"_s, noise(3000, 1)) &&
                  fixture.put(u"keep.bin"_s, noise(700, 2)) && fixture.put(u"old.bin"_s, noise(5000, 3)) &&
                  fixture.vault.deleteFile(u"gone.bin"_s) && fixture.vault.createDirectory(u"x"_s);
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

class PowerCutTest : public QObject
{
    Q_OBJECT

private:
    using States = QList<QByteArray>;

    QTemporaryDir drive;
    QTemporaryDir scratch;
    const QString container = containerIn(drive.path());
    const bool isThorough = qEnvironmentVariableIsSet("TESSARIN_CUTS");
    const int randomCuts = isThorough ? qEnvironmentVariableIntValue("TESSARIN_CUTS") : 4;
    const quint32 seed = static_cast<quint32>(qEnvironmentVariableIntValue("TESSARIN_SEED"));
    int trials = 0;
    int losses = 0;

    // Of the row that is played:
    Operation operation;
    DriveFiles before;
    States states; ///< Before, and after each step.

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
        return operation.name == "recover" || session.unlock(container);
    }

    /// Runs the operation up to the first step that fails.
    bool run(Session &session, const std::function<void()> &afterStep)
    {
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
        putFiles(scratch.path(), files);
        QByteArray state;
        for (auto file = files.cbegin(); state.isEmpty() && file != files.cend(); ++file)
            state = stateOf(scratch.filePath(file.key()));
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

        const QString when = QString::asprintf("call %d fails with %d%s, result %d", failure.call,
                                               failure.error, failure.isForEver ? " for ever" : "", isDone);
        States allowed{isDone ? states.last() : states.first()};
        if (!isDone && (failure.isForEver || states.size() > 2))
            allowed = states;
        const QByteArray state = stateOfCopy(filesIn(drive.path()));
        check(allowed.contains(state), when, "not the state that the result tells of");
        for (const auto loss : {DriveTape::Everything, DriveTape::AnySectors})
            cut(tape, tape.events.size(), loss, seed + quint32(failure.call), allowed);
        // A compaction that fails past the deletion leaves the container elsewhere, for the user to take.
        if (operation.name == "compact" && !isDone)
            return true;
        const bool isOpen = session.vault.state() == VaultManager::Unlocked;
        check(!isOpen || failure.isForEver || state.startsWith(contentsOf(session.vault)), when,
              "the session knows another state");
        check(isOpen || session.unlock(container), when, "no unlocking afterwards");
        check(change(session.vault), when, "nothing can be done afterwards");
        const QByteArray last = stateOfCopy({{u"tessarin.trvx"_s, readFile(container)}});
        check(!last.isEmpty() && last.startsWith(contentsOf(session.vault)), when,
              "wrong after the next operation");
        return true;
    }

private Q_SLOTS:
    void initTestCase()
    {
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
                if (isThorough || size == "small" || (row.name == "rename" && size != "half"))
                    QTest::addRow("%s %s", row.name.constData(), size.constData()) << row << size;
            }
        }
    }
    void everyCutAndFailingCallLeavesAVault()
    {
        QFETCH(Operation, row);
        QFETCH(QByteArray, size);
        operation = row;
        before = driveBefore(headerSizes.value(size));
        states = {stateOfCopy(before)};
        losses = 0;
        const bool isWhole = isThorough || size == "small";

        Session session;
        QVERIFY(!states.first().isEmpty() && begin(session));
        DriveTape tape(drive.path());
        QList<DriveFiles> seen;
        QVERIFY(run(session, [&] { seen << filesIn(drive.path()); }));
        tape.stop();
        for (const DriveFiles &files : std::as_const(seen))
            states << stateOfCopy(files);
        QVERIFY2(!states.contains(QByteArray()) && states.size() > 1, "not even without a cut");
        QVERIFY(isTidy(container) && filesIn(drive.path()).size() == 1);
        const qsizetype last = tape.events.size();
        QVERIFY2(tape.cutAfter(last, DriveTape::Nothing, 0) == filesIn(drive.path()),
                 "changes came about by calls that the tape does not know");

        const auto syncs = std::ranges::count(tape.events, DriveTape::Sync, &DriveTape::Event::kind);
        if (operation.steps.size() == 1 && operation.name != "compact")
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
        const int stride = !isThorough ? 6 : size == "small" ? 1 : 3;
        bool isReached = isWhole;
        for (int call = 1; isReached; ++call) {
            for (int variant = call % stride; variant < 6; variant += stride) {
                const int error = std::array{EIO, ENOSPC, EFBIG}[size_t(variant % 3)];
                isReached = fail({call, error, variant >= 3});
            }
        }
        QCOMPARE(losses, 0);
    }

    void cleanupTestCase() { qInfo("%d trials", trials); }
};

QTEST_GUILESS_MAIN(PowerCutTest)
#include "tst_power_cut.moc"
