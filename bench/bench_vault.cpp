// How the vault compares with what it cannot do without: reading, hashing, encrypting and writing the same
// bytes in a bare loop, and copying them. Every pair is timed one right after the other.
#include "Measuring.h"

#include "core/ContainerFormat.h"
#include "core/Sha256.h"
#include "core/VaultManager.h"

#include <QCoreApplication>

#include <nettle/sha2.h>
#include <sodium.h>

#include <array>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

using namespace Tessarin;
using namespace Tessarin::Bench;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 GiB = 1024 * 1024 * 1024;
constexpr size_t blockSize = 16 * 1024 * 1024;
constexpr size_t tagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;

// The bare loops --------------------------------------------------------------------------------------------

using Buffer = std::unique_ptr<unsigned char[]>;

Buffer makeBuffer(size_t size)
{
    return std::make_unique_for_overwrite<unsigned char[]>(size);
}

class BareFile
{
public:
    BareFile(const QString &path, int flags)
        : descriptor(::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC, 0600))
    {
        require(descriptor >= 0, "open a file");
    }
    ~BareFile() { ::close(descriptor); }
    Q_DISABLE_COPY_MOVE(BareFile)

    size_t read(unsigned char *bytes, size_t size) const
    {
        const ssize_t count = ::read(descriptor, bytes, size);
        require(count >= 0, "read");
        return static_cast<size_t>(count);
    }
    void write(const unsigned char *bytes, size_t size) const
    {
        require(::write(descriptor, bytes, size) == static_cast<ssize_t>(size), "write");
    }
    void sync() const { require(::fsync(descriptor) == 0, "sync"); }
    void dropCachedPages() const { ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_DONTNEED); }

private:
    int descriptor;
};

constexpr int forNewFile = O_WRONLY | O_CREAT | O_TRUNC;
constexpr unsigned char bareKey[crypto_aead_xchacha20poly1305_ietf_KEYBYTES] = {1};
constexpr unsigned char bareNonce[crypto_aead_xchacha20poly1305_ietf_NPUBBYTES] = {2};

void encryptBarely(const QString &sourcePath, const QString &targetPath)
{
    const Buffer plain = makeBuffer(blockSize);
    const Buffer stored = makeBuffer(blockSize + tagSize);
    const BareFile source(sourcePath, O_RDONLY);
    const BareFile target(targetPath, forNewFile);
    sha256_ctx hash;
    sha256_init(&hash);
    while (const size_t count = source.read(plain.get(), blockSize)) {
        sha256_update(&hash, count, plain.get());
        crypto_aead_xchacha20poly1305_ietf_encrypt(stored.get(), nullptr, plain.get(), count, nullptr, 0,
                                                   nullptr, bareNonce, bareKey);
        target.write(stored.get(), count + tagSize);
    }
    target.sync();
}

void decryptBarely(const QString &sourcePath, const QString &targetPath)
{
    const Buffer plain = makeBuffer(blockSize);
    const Buffer stored = makeBuffer(blockSize + tagSize);
    const BareFile source(sourcePath, O_RDONLY);
    const BareFile target(targetPath, forNewFile);
    while (const size_t count = source.read(stored.get(), blockSize + tagSize)) {
        require(crypto_aead_xchacha20poly1305_ietf_decrypt(plain.get(), nullptr, nullptr, stored.get(), count,
                                                           nullptr, 0, bareNonce, bareKey) == 0,
                "decrypt");
        target.write(plain.get(), count - tagSize);
    }
}

constexpr size_t copySize = blockSize / 2;

void copyBarely(const QString &sourcePath, const QString &targetPath)
{
    const Buffer buffer = makeBuffer(copySize);
    const BareFile source(sourcePath, O_RDONLY);
    const BareFile target(targetPath, forNewFile);
    while (const size_t count = source.read(buffer.get(), copySize))
        target.write(buffer.get(), count);
    target.sync();
}

void compareBarely(const QString &firstPath, const QString &secondPath)
{
    const Buffer firstBuffer = makeBuffer(copySize);
    const Buffer secondBuffer = makeBuffer(copySize);
    const BareFile first(firstPath, O_RDONLY);
    const BareFile second(secondPath, O_RDONLY);
    first.dropCachedPages();
    second.dropCachedPages();
    while (const size_t count = first.read(firstBuffer.get(), copySize)) {
        require(second.read(secondBuffer.get(), copySize) == count &&
                    std::memcmp(firstBuffer.get(), secondBuffer.get(), count) == 0,
                "compare");
    }
}

// Vaults ----------------------------------------------------------------------------------------------------

QString sourceOf1GiB()
{
    const QString path = inWorkFolder(u"origem"_s);
    if (QFile::exists(path))
        return path;
    QFile file(path);
    QByteArray bytes(blockSize, Qt::Uninitialized);
    require(file.open(QIODevice::WriteOnly), "write 1 GiB");
    for (qint64 done = 0; done < GiB; done += bytes.size()) {
        randombytes_buf(bytes.data(), blockSize);
        require(file.write(bytes) == bytes.size(), "write 1 GiB");
    }
    return path;
}

const Core::SecureFileIndex &fourteenThousandFiles()
{
    static const Core::SecureFileIndex index =
        madeUpIndex({{u"pasta a"_s, 5000}, {u"pasta b"_s, 4500}, {u"pasta c"_s, 4500}});
    return index;
}

// The benchmarks --------------------------------------------------------------------------------------------

void bulk(benchmark::State &state)
{
    const QString source = sourceOf1GiB();
    const QString bare = inWorkFolder(u"direto"_s);
    const QString exported = inWorkFolder(u"exportado"_s);
    Samples samples;
    for ([[maybe_unused]] auto iteration : state) {
        OpenVault v;
        Spent importTime;
        Spent exportTime;
        samples.add("import_MiB", peakMiBOf([&] {
                        importTime = timeOf([&] { require(v.vault.importFile(source, u"f"_s), "import"); });
                    }));
        samples.addPair("import", importTime, timeOf([&] { encryptBarely(source, bare); }));
        samples.add("export_MiB", peakMiBOf([&] {
                        exportTime = timeOf([&] { require(v.vault.exportFile(u"f"_s, exported), "export"); });
                    }));
        QFile::remove(exported);
        samples.addPair("export", exportTime, timeOf([&] { decryptBarely(bare, exported); }));
        QFile::remove(exported);
        QFile::remove(bare);
        state.SetIterationTime(importTime.clock + exportTime.clock);
    }
    samples.reportTo(state);
}

/// Copies the bytes as often as a compaction must: out of the old container into a new one, from there beside
/// the old one and into its place, each with a comparison. Three files go: the old one and both helpers.
Spent copyLikeCompaction(const QString &containerPath)
{
    const QString built = inWorkFolder(u"novo"_s);
    const QString twin = inWorkFolder(u"ao lado"_s);
    const QString target = inWorkFolder(u"no lugar"_s);
    return timeOf([&] {
        copyBarely(containerPath, built);
        copyBarely(built, twin);
        compareBarely(built, twin);
        copyBarely(built, target);
        compareBarely(built, target);
        QFile::remove(built);
        QFile::remove(twin);
        QFile::remove(target);
    });
}

void compaction(benchmark::State &state)
{
    OpenVault v;
    require(v.vault.importFile(sourceOf1GiB(), u"f"_s), "import");
    Samples samples;
    for ([[maybe_unused]] auto iteration : state) {
        const Spent bare = copyLikeCompaction(v.path);
        const Spent time = timeOf([&] { require(v.vault.compactVault({}, nullptr), "compact"); });
        samples.addPair("compaction", time, bare);
        state.SetIterationTime(time.clock);
    }
    samples.reportTo(state);
    QFile::remove(sourceOf1GiB());
}

/// What is written beside the block and the 64 KiB that are always allowed, in sizes of the header.
void writtenBytes(benchmark::State &state, int fileCount)
{
    OpenVault v(madeUpIndex({{u"pasta"_s, fileCount}}));
    const QString source = inWorkFolder(u"byte"_s);
    writeFile(source, "a");
    const auto inHeaders = [&v](qint64 bytes, qint64 blockBytes) {
        constexpr qint64 allowance = 64 * 1024;
        return static_cast<double>(std::max<qint64>(0, bytes - blockBytes - allowance)) /
               static_cast<double>(v.headerSize());
    };
    Samples samples;
    for ([[maybe_unused]] auto iteration : state) {
        const QString name = u"novo"_s;
        const qint64 byImport =
            bytesWrittenBy([&] { require(v.vault.importFile(source, name), "import one byte"); });
        samples.add("import_headers", inHeaders(byImport, 17));
        const qint64 byRename =
            bytesWrittenBy([&] { require(v.vault.renameFile(name, u"um nome mais longo"_s), "rename"); });
        samples.add("rename_headers", inHeaders(byRename, 0));
        require(v.vault.deleteFile(u"um nome mais longo"_s), "delete");
    }
    samples.reportTo(state);
}

void amongFourteenThousand(benchmark::State &state)
{
    OpenVault v(fourteenThousandFiles());
    const QString source = inWorkFolder(u"byte"_s);
    writeFile(source, "a");
    Samples samples;
    for ([[maybe_unused]] auto iteration : state) {
        const auto time = [&samples](const char *name, const auto &work) {
            samples.addMilliseconds(name, timeOf([&] { require(work(), name); }));
        };
        time("import", [&] { return v.vault.importFile(source, u"pasta b/novo"_s); });
        time("rename", [&] { return v.vault.renameFile(u"pasta b/novo"_s, u"pasta b/outro"_s); });
        time("move", [&] { return v.vault.moveFile(u"pasta b/outro"_s, u"pasta c"_s); });
        time("delete", [&] { return v.vault.deleteFile(u"pasta c/outro"_s); });
        time("folder", [&] { return v.vault.renameDirectory(u"pasta a"_s, u"pasta z"_s); });
        require(v.vault.renameDirectory(u"pasta z"_s, u"pasta a"_s), "rename back");
    }
    samples.reportTo(state);
}

/// Key derivation takes most of an unlock and varies most. Only the fastest ones tell what is beyond it.
void unlocking(benchmark::State &state)
{
    OpenVault full(fourteenThousandFiles());
    require(full.vault.lockVault(), "lock");
    const QString emptyPath = inWorkFolder(u"vazio.trvx"_s);
    Core::VaultManager empty;
    require(empty.createVault(emptyPath, password), "create an empty vault");
    Samples samples;
    for ([[maybe_unused]] auto iteration : state) {
        const auto time = [&](const char *name, Core::VaultManager &vault, const QString &path) {
            samples.addMilliseconds(name,
                                    timeOf([&] { require(vault.unlockVault(path, password), "unlock"); }));
        };
        time("empty", empty, emptyPath);
        time("full", full.vault, full.path);
        require(empty.lockVault() && full.vault.lockVault(), "lock");
    }
    for (const std::string unit : {"_ms", "_processor_ms"})
        state.counters["beyond" + unit] = samples.least("full" + unit) - samples.least("empty" + unit);
    QFile::remove(emptyPath);
}

void thousandFiles(benchmark::State &state)
{
    constexpr int fileCount = 1000;
    const QString source = inWorkFolder(u"pequeno"_s);
    writeFile(source, QByteArray(4096, 'a'));
    Samples samples;
    for ([[maybe_unused]] auto iteration : state) {
        OpenVault v;
        std::array<Spent, 4> quarters;
        v.vault.beginImportSeries();
        for (int i = 0; i < fileCount; ++i) {
            quarters.at(static_cast<size_t>(4 * i / fileCount)) += timeOf([&] {
                require(v.vault.importFile(source, u"pasta/arquivo %1"_s.arg(i)), "import of a series");
            });
        }
        Spent all = timeOf([&] { require(v.vault.endImportSeries(), "end the series"); });
        for (const Spent &quarter : quarters)
            all += quarter;
        samples.addMilliseconds("file", {all.clock / fileCount, all.processor / fileCount});
        samples.add("growth", quarters.back().clock / quarters.front().clock);
        samples.add("growth_processor", quarters.back().processor / quarters.front().processor);
        samples.add("seconds", all.clock);
        state.SetIterationTime(all.clock);
    }
    samples.reportTo(state);
}

// The first one measures memory, before others leave theirs to the allocator.
BENCHMARK(bulk)->Iterations(5)->UseManualTime();
BENCHMARK(compaction)->Iterations(3)->UseManualTime();
BENCHMARK_CAPTURE(writtenBytes, few, 1000)->Iterations(5);
BENCHMARK_CAPTURE(writtenBytes, many, 14000)->Iterations(5);
BENCHMARK(amongFourteenThousand)->Iterations(11);
BENCHMARK(unlocking)->Iterations(9);
BENCHMARK(thousandFiles)->Iterations(3)->UseManualTime();

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    require(sodium_init() >= 0, "start libsodium");
    return runBenchmarks(argc, argv);
}
