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

/// Stands in for Argon2id in this executable: vaults are opened thousands of times here.
extern "C" int crypto_pwhash(unsigned char *const key, unsigned long long keySize, const char *const password,
                             unsigned long long passwordSize, const unsigned char *const salt,
                             unsigned long long, size_t, int)
{
    return crypto_generichash(key, keySize, reinterpret_cast<const unsigned char *>(password), passwordSize,
                              salt, crypto_pwhash_SALTBYTES);
}

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
const QString keep = u"keep.bin"_s;
const QString kept = u"kept.bin"_s;

using Step = std::function<bool(VaultManager &, const QString &folder)>;

/// What a user does, in steps that each may be the last to be seen.
struct Operation
{
    const char *name;
    qint64 headerGrowth; ///< Room in the header that it needs, in bytes.
    QList<Step> steps;
};

QString containerIn(const QString &folder)
{
    return folder + u"/tessarin.trvx"_s;
}

Step importing(const char *source, const char *vaultPath)
{
    return [=](VaultManager &vault, const QString &folder) {
        return vault.importFile(folder + u"/sources/"_s + QLatin1String(source), QLatin1String(vaultPath));
    };
}

bool beginSeries(VaultManager &vault, const QString &)
{
    vault.beginImportSeries();
    return true;
}

bool waitForRenewal(VaultManager &, const QString &)
{
    skippedSeconds += 3;
    return true;
}

bool endSeries(VaultManager &vault, const QString &)
{
    return vault.endImportSeries();
}

const QList<Operation> operations = {
    {"rename", 0, {[](auto &vault, auto &) { return vault.renameFile(u"old.bin"_s, u"new.bin"_s); }}},
    {"delete", 0, {[](auto &vault, auto &) { return vault.deleteFile(u"old.bin"_s); }}},
    {"folder", 600, {[](auto &vault, auto &) { return vault.createDirectory(u"x/y"_s); }}},
    {"import", 900, {importing("small", "in/new.bin")}},
    {"importBlocks", 1200, {importing("blocks", "new.bin")}},
    {"replace", 900, {importing("small", "old.bin")}},
    {"password", 0, {[](auto &vault, auto &folder) {
         return vault.lockVault() && vault.changePassword(containerIn(folder), password, newPassword);
     }}},
    {"series",
     2500,
     {beginSeries, importing("small", "1.bin"), importing("small", "old.bin"), importing("small", "3.bin"),
      importing("small", "4.bin"), endSeries}},
    {"renewedSeries",
     2500,
     {beginSeries, importing("small", "1.bin"), waitForRenewal, importing("small", "2.bin"),
      importing("small", "3.bin"), endSeries}},
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

/// What opening a container shows, and by which password; empty when the vault is lost, or cannot be used.
QByteArray stateOf(const QString &container)
{
    Session session;
    const bool isOldPassword = session.vault.unlockVault(container, password);
    const QByteArray state = isOldPassword || session.unlock(container) ? contentsOf(session.vault) : "";
    const bool isKept = session.vault.fileIndex().contains(kept);
    if (state.isEmpty() || !session.vault.renameFile(isKept ? kept : keep, isKept ? keep : kept) ||
        !isTidy(container))
        return {};

    Session again;
    if (!again.unlock(container) || contentsOf(again.vault) != contentsOf(session.vault))
        return {};
    return isOldPassword ? state : state + "\nnew password";
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

DriveFiles filesIn(const QString &folder)
{
    DriveFiles files;
    const QStringList names = QDir(folder).entryList(QDir::Files);
    for (const QString &name : names)
        files[name] = readFile(folder + u'/' + name);
    return files;
}

/// A vault whose header has this many bytes, or three less; 0 for a small one.
QByteArray containerWithHeader(qint64 headerSize)
{
    VaultFixture fixture;
    bool isMade = fixture.createAndUnlock() && fixture.put(u"gone.bin"_s, noise(3000, 1)) &&
                  fixture.put(keep, noise(700, 2)) && fixture.put(u"old.bin"_s, noise(5000, 3)) &&
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

class PowerCutTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir drive;
    QTemporaryDir scratch;
    const bool isThorough = qEnvironmentVariableIsSet("TESSARIN_CUTS");
    const int randomCuts = isThorough ? qEnvironmentVariableIntValue("TESSARIN_CUTS") : 5;
    const quint32 seed = static_cast<quint32>(qEnvironmentVariableIntValue("TESSARIN_SEED"));
    int cuts = 0;
    int lostVaults = 0;
    int faults = 0;
    int lostStates = 0;

    /// The drive before the operation: for a recovery, one on which renaming broke off.
    DriveFiles driveBefore(const Operation &operation, qint64 headerSize)
    {
        const DriveFiles whole{
            {u"tessarin.trvx"_s, containerWithHeader(headerSize - operation.headerGrowth)}};
        if (operation.name != "recover"_ba)
            return whole;
        putFiles(drive.path(), whole);
        Session session;
        if (!session.unlock(containerIn(drive.path())))
            return {};
        DriveTape tape(drive.path());
        const bool isRenamed = operations.first().steps.first()(session.vault, drive.path());
        tape.stop();
        for (qsizetype i = 0; isRenamed && i < tape.events().size(); ++i) {
            if (tape.events().at(i).kind == DriveTape::Sync)
                return tape.cutAfter(i + 2, DriveTape::EndOfLastWrite, seed + 4);
        }
        return {};
    }

    /// Runs the operation in a session of its own up to the first step that fails.
    bool run(const Operation &operation, Session &session, const std::function<void()> &afterStep = {})
    {
        for (const Step &step : operation.steps) {
            if (!step(session.vault, drive.path())) {
                static_cast<void>(session.vault.endImportSeries());
                return false;
            }
            if (afterStep)
                afterStep();
        }
        return true;
    }

    bool begin(const Operation &operation, Session &session, const DriveFiles &files)
    {
        putFiles(drive.path(), files);
        return operation.name == "recover"_ba || session.unlock(containerIn(drive.path()));
    }

    QByteArray stateOfCopy(const DriveFiles &files)
    {
        putFiles(scratch.path(), files);
        QByteArray state;
        for (auto file = files.cbegin(); state.isEmpty() && file != files.cend(); ++file)
            state = stateOf(scratch.filePath(file.key()));
        return state;
    }

    /// All sizes of header for all operations, or a quick choice.
    void addRows(const QByteArrayList &quickSizes)
    {
        QTest::addColumn<qsizetype>("number");
        QTest::addColumn<QByteArray>("size");
        for (auto size = headerSizes.cbegin(); size != headerSizes.cend(); ++size) {
            for (qsizetype i = 0; i < operations.size(); ++i) {
                const QByteArray name = operations.at(i).name;
                const bool isQuick = size.key() == "small" || name == "rename" || name == "series";
                if (isThorough || (isQuick && quickSizes.contains(size.key())))
                    QTest::addRow("%s %s", name.constData(), size.key().constData()) << i << size.key();
            }
        }
    }

    /// False when the operation has no call of this number.
    bool failsAt(const Operation &operation, const DriveFiles &before, const QList<QByteArray> &states,
                 int call, int error, bool forEver)
    {
        Session session;
        if (!begin(operation, session, before))
            return false;
        DriveTape tape(drive.path());
        tape.failAt(call, error, forEver);
        const bool isDone = run(operation, session);
        tape.stop();
        if (tape.callCount() < call)
            return false;
        ++faults;

        QList<QByteArray> allowed{isDone ? states.last() : states.first()};
        if (!isDone && (forEver || states.size() > 2))
            allowed = states;
        const auto check = [&](bool isRight, const char *what) {
            if (isRight)
                return;
            ++lostStates;
            qWarning("%s, call %d fails with %d%s, result %d: %s", QTest::currentDataTag(), call, error,
                     forEver ? " for ever" : "", isDone, what);
        };
        const QByteArray state = stateOfCopy(filesIn(drive.path()));
        check(allowed.contains(state), state.isEmpty() ? "lost" : "not the state that the result tells of");
        for (const auto loss : {DriveTape::Everything, DriveTape::AnySectors}) {
            const DriveFiles files = tape.cutAfter(tape.events().size(), loss, seed + quint32(call));
            check(allowed.contains(stateOfCopy(files)), "wrong after a power cut");
        }
        // A compaction that fails past the deletion leaves the container elsewhere, for the user to take.
        if (operation.name == "compact"_ba && !isDone)
            return true;
        const bool isOpen = session.vault.state() == VaultManager::Unlocked;
        check(!isOpen || forEver || state.startsWith(contentsOf(session.vault)),
              "the session knows another state");
        check(isOpen || session.unlock(containerIn(drive.path())), "no unlocking afterwards");
        check(session.vault.renameFile(keep, kept), "nothing can be done afterwards");
        const QByteArray last = stateOfCopy({{u"tessarin.trvx"_s, readFile(containerIn(drive.path()))}});
        check(!last.isEmpty() && last.startsWith(contentsOf(session.vault)),
              "wrong after the next operation");
        return true;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(QDir(drive.path()).mkdir(u"sources"_s));
        // Memory for whole containers is kept, not given back and fetched again each time.
        mallopt(M_MMAP_THRESHOLD, 1 << 30);
        mallopt(M_TRIM_THRESHOLD, 1 << 30);
        writeFile(drive.filePath(u"sources/small"_s), noise(900, 5));
        writeFile(drive.filePath(u"sources/blocks"_s), noise(ContainerFormat::blockPlainSize + 1000, 6));
    }

    void everyCutLeavesAVaultFromBeforeOrAfter_data() { addRows({"small", "edge", "full"}); }
    void everyCutLeavesAVaultFromBeforeOrAfter()
    {
        QFETCH(qsizetype, number);
        QFETCH(QByteArray, size);
        const Operation &operation = operations.at(number);
        const DriveFiles before = driveBefore(operation, headerSizes.value(size));
        QList<QByteArray> states{stateOfCopy(before)};
        QVERIFY(!states.first().isEmpty());

        Session session;
        QVERIFY(begin(operation, session, before));
        DriveTape tape(drive.path());
        QList<DriveFiles> seen;
        QVERIFY(run(operation, session, [&] { seen << filesIn(drive.path()); }));
        tape.stop();
        for (const DriveFiles &files : std::as_const(seen))
            states << stateOfCopy(files);
        QVERIFY2(!states.contains(QByteArray()) && states.size() > 1, "not even without a cut");
        QVERIFY(isTidy(containerIn(drive.path())));
        QCOMPARE(filesIn(drive.path()).size(), 1);
        QVERIFY2(tape.cutAfter(tape.events().size(), DriveTape::Nothing, 0) == filesIn(drive.path()),
                 "changes came about by calls that the tape does not know");
        if (operation.steps.size() == 1 && operation.name != "compact"_ba)
            QVERIFY2(tape.count(DriveTape::Sync) <= 3, "waits for the drive too often");
        if (operation.name == "rename"_ba) {
            const double most = size == "more" || size == "full" ? 1.75 : 2.75;
            QVERIFY(double(tape.writtenBytes()) <=
                    most * double(headerLength(containerIn(drive.path()))) + 65536);
        }

        const auto examine = [&](const DriveTape &cutTape, qsizetype at, DriveTape::Loss loss,
                                 quint32 cutSeed, const QList<QByteArray> &allowed) {
            ++cuts;
            const DriveFiles files = cutTape.cutAfter(at, loss, cutSeed);
            const QByteArray state = stateOfCopy(files);
            if (allowed.contains(state))
                return;
            ++lostVaults;
            qWarning("%s, %s header, after %lld of %lld events, loss %d, seed %u: %s", operation.name,
                     size.constData(), qlonglong(at), qlonglong(cutTape.events().size()), int(loss), cutSeed,
                     state.isEmpty() ? "lost" : "a state that never was");
        };
        const auto cutOnceMore = [&](const DriveFiles &files, quint32 cutSeed) {
            putFiles(drive.path(), files);
            Session second;
            DriveTape recovery(drive.path());
            const bool isOpen = second.unlock(containerIn(drive.path()));
            recovery.stop();
            if (!isOpen || recovery.events().isEmpty())
                return;
            const QByteArray shown = stateOfCopy(filesIn(drive.path()));
            const auto at = QRandomGenerator(cutSeed).bounded(recovery.events().size() + 1);
            examine(recovery, at, DriveTape::AnySectors, cutSeed, {shown});
        };

        const int lostBefore = lostVaults;
        const qsizetype last = tape.events().size();
        for (qsizetype at = 0; at <= last; ++at) {
            for (const auto loss : {DriveTape::Everything, DriveTape::Nothing, DriveTape::EndOfLastWrite}) {
                if (isThorough || size == "small")
                    examine(tape, at, loss, seed, states);
            }
        }
        examine(tape, last, DriveTape::Everything, seed, {states.last()});
        QRandomGenerator random(seed + quint32(number));
        for (int i = 0; i < randomCuts; ++i) {
            const auto at = random.bounded(last + 1);
            const quint32 cutSeed = random.generate();
            examine(tape, at, DriveTape::AnySectors, cutSeed, states);
            cutOnceMore(tape.cutAfter(at, DriveTape::AnySectors, cutSeed), cutSeed);
        }
        QCOMPARE(lostVaults, lostBefore);
    }

    void everyFailingCallLeavesTheStateThatTheResultTells_data() { addRows({"small"}); }
    void everyFailingCallLeavesTheStateThatTheResultTells()
    {
        QFETCH(qsizetype, number);
        QFETCH(QByteArray, size);
        const Operation &operation = operations.at(number);
        const DriveFiles before = driveBefore(operation, headerSizes.value(size));
        QList<QByteArray> states{stateOfCopy(before)};
        Session unharmed;
        QVERIFY(begin(operation, unharmed, before));
        QVERIFY(run(operation, unharmed, [&] { states << stateOfCopy(filesIn(drive.path())); }));
        QVERIFY(!states.contains(QByteArray()));

        const int lostBefore = lostStates;
        bool isReached = true;
        for (int call = 1; isReached; ++call) {
            for (int variant = 0; variant < 6; ++variant) {
                // Each call in all ways, or in ways that alternate from call to call.
                const int stride = !isThorough ? 6 : size == "small" ? 1 : 3;
                const int error = std::array{EIO, ENOSPC, EFBIG}[size_t(variant % 3)];
                if ((call + variant) % stride == 0)
                    isReached = failsAt(operation, before, states, call, error, variant >= 3);
            }
        }
        QCOMPARE(lostStates, lostBefore);
    }

    void cleanupTestCase()
    {
        qInfo("%d cuts, %d vaults lost; %d failing calls, %d states lost", cuts, lostVaults, faults,
              lostStates);
    }
};

QTEST_GUILESS_MAIN(PowerCutTest)
#include "tst_power_cut.moc"
