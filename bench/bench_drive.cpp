// What operations of a vault give to the drive that it lies on, counted: the same on every machine, and what
// people wait for with a slow drive.
#include "CountedDrive.h"
#include "Measuring.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <sodium.h>

using namespace Tessarin;
using namespace Tessarin::Bench;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 MiB = 1024 * 1024;

/// In the folder whose files are counted.
struct VaultOnDrive : OpenVault
{
    explicit VaultOnDrive(int fileCount = 0)
        : OpenVault(fileCount == 0 ? Core::SecureFileIndex() : madeUpIndex({{u"pasta"_s, fileCount}}),
                    inWorkFolder(u"unidade/cofre.trvx"_s))
    {
    }
};

QString sourceOf(qint64 sizeBytes)
{
    const QString path = inWorkFolder(u"origem-%1"_s.arg(sizeBytes));
    QByteArray bytes(sizeBytes, Qt::Uninitialized);
    randombytes_buf(bytes.data(), static_cast<size_t>(bytes.size()));
    writeFile(path, bytes);
    return path;
}

template <typename Work>
DriveTraffic trafficOf(const char *what, const Work &work)
{
    static_cast<void>(takeTraffic());
    require(work(), what);
    return takeTraffic();
}

bool importSeries(Core::VaultManager &vault, const QString &source, int count)
{
    vault.beginImportSeries();
    for (int i = 0; i < count; ++i)
        require(vault.importFile(source, u"pasta/foto %1"_s.arg(i)), "import of a series");
    return vault.endImportSeries();
}

void report(benchmark::State &state, const DriveTraffic &traffic, double wantedBytes)
{
    state.counters["bytes_ratio"] = static_cast<double>(traffic.writtenBytes) / wantedBytes;
    state.counters["written_KiB"] = static_cast<double>(traffic.writtenBytes) / 1024;
    state.counters["writes"] = static_cast<double>(traffic.writes);
    state.counters["waits"] = static_cast<double>(traffic.waits);
}

void oneImport(benchmark::State &state)
{
    const QString source = sourceOf(64 * MiB);
    for ([[maybe_unused]] auto iteration : state) {
        VaultOnDrive v;
        report(state, trafficOf("import", [&] { return v.vault.importFile(source, u"f"_s); }), 64 * MiB);
    }
    QFile::remove(source);
}

void seriesOf300(benchmark::State &state)
{
    const QString source = sourceOf(4096);
    for ([[maybe_unused]] auto iteration : state) {
        VaultOnDrive v;
        report(state, trafficOf("series", [&] { return importSeries(v.vault, source, 300); }), 300 * 4096);
    }
}

/// In bytes of one rename there.
void seriesAmong5000(benchmark::State &state)
{
    const QString source = sourceOf(4096);
    for ([[maybe_unused]] auto iteration : state) {
        VaultOnDrive v(5000);
        const DriveTraffic series = trafficOf("series", [&] { return importSeries(v.vault, source, 20); });
        const DriveTraffic rename =
            trafficOf("rename", [&] { return v.vault.renameFile(u"pasta/foto 1"_s, u"pasta/outro nome"_s); });
        report(state, series, static_cast<double>(rename.writtenBytes));
        state.counters["rename_KiB"] = static_cast<double>(rename.writtenBytes) / 1024;
        state.counters["rename_headers"] =
            static_cast<double>(rename.writtenBytes) / static_cast<double>(v.headerSize());
        state.counters["rename_waits"] = static_cast<double>(rename.waits);
    }
}

/// In copies of the compacted container.
void compactionOnDrive(benchmark::State &state)
{
    const QString source = sourceOf(32 * MiB);
    for ([[maybe_unused]] auto iteration : state) {
        VaultOnDrive v;
        require(v.vault.importFile(source, u"a"_s) && v.vault.importFile(source, u"b"_s) &&
                    v.vault.deleteFile(u"a"_s),
                "fill the vault");
        const DriveTraffic traffic =
            trafficOf("compaction", [&] { return v.vault.compactVault({}, nullptr); });
        report(state, traffic, 2.0 * static_cast<double>(QFileInfo(v.path).size()));
    }
    QFile::remove(source);
}

void lockAndUnlock(benchmark::State &state)
{
    for ([[maybe_unused]] auto iteration : state) {
        VaultOnDrive v(1000);
        const DriveTraffic lock = trafficOf("lock", [&] { return v.vault.lockVault(); });
        const DriveTraffic unlock =
            trafficOf("unlock", [&] { return v.vault.unlockVault(v.path, password); });
        state.counters["lock_written_KiB"] = static_cast<double>(lock.writtenBytes) / 1024;
        state.counters["unlock_written_KiB"] = static_cast<double>(unlock.writtenBytes) / 1024;
        state.counters["unlock_beyond_header_KiB"] =
            static_cast<double>(unlock.readBytes - v.headerSize()) / 1024;
    }
}

// Counted, so once is enough.
BENCHMARK(oneImport)->Iterations(1);
BENCHMARK(seriesOf300)->Iterations(1);
BENCHMARK(seriesAmong5000)->Iterations(1);
BENCHMARK(compactionOnDrive)->Iterations(1);
BENCHMARK(lockAndUnlock)->Iterations(1);

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    require(sodium_init() >= 0, "start libsodium");
    require(QDir().mkpath(inWorkFolder(u"unidade"_s)), "make a folder");
    countDrive(QFile::encodeName(inWorkFolder(u"unidade"_s)).constData());
    return runBenchmarks(argc, argv);
}
