// What the benchmarks share: stopwatch, medians, what the kernel counts for this process, made-up files.
#pragma once

#include "core/ContainerFormat.h"
#include "core/SecureFileIndex.h"
#include "core/VaultManager.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QUuid>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <malloc.h>
#include <sys/resource.h>

namespace Tessarin::Bench {

/// A step that fails leaves nothing to measure.
inline void require(bool done, const char *what)
{
    if (done)
        return;
    std::fprintf(stderr, "bench: failed: %s\n", what);
    std::exit(1);
}

/// Seconds by the clock, and of the processor: on a busy machine only the latter tell much.
struct Spent
{
    double clock = 0;
    double processor = 0;

    Spent &operator+=(const Spent &other)
    {
        clock += other.clock;
        processor += other.processor;
        return *this;
    }
};

/// Of this process, or of those it has started and waited for.
inline double processorSeconds(int who)
{
    rusage usage = {};
    require(::getrusage(who, &usage) == 0, "ask for the processor time");
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

template <typename Work>
Spent timeOf(const Work &work)
{
    const double before = processorSeconds(RUSAGE_SELF);
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> clock = std::chrono::steady_clock::now() - start;
    return {clock.count(), processorSeconds(RUSAGE_SELF) - before};
}

inline double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

/// Collects what each iteration found, and hands the medians to the report.
class Samples
{
public:
    void add(const std::string &name, double value) { values[name].push_back(value); }

    /// Two times that were measured right after each other, and their ratio.
    void addPair(const std::string &name, const Spent &ours, const Spent &bare)
    {
        add(name + "_seconds", ours.clock);
        add(name + "_ratio", ours.clock / bare.clock);
        add(name + "_processor_ratio", ours.processor / bare.processor);
    }

    void addMilliseconds(const std::string &name, const Spent &spent)
    {
        add(name + "_ms", 1000 * spent.clock);
        add(name + "_processor_ms", 1000 * spent.processor);
    }

    [[nodiscard]] double least(const std::string &name) const
    {
        return *std::ranges::min_element(values.at(name));
    }

    void reportTo(benchmark::State &state) const
    {
        for (const auto &[name, found] : values)
            state.counters[name] = median(found);
    }

private:
    std::map<std::string, std::vector<double>> values;
};

/// A number from one of the kernel's tables of this process.
inline qint64 kernelFigure(const char *table, const QByteArray &key)
{
    QFile file(QString::fromLatin1(table));
    require(file.open(QIODevice::ReadOnly), table);
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith(key + ':'))
            return line.mid(key.size() + 1).simplified().split(' ').first().toLongLong();
    }
    require(false, key.constData());
    return 0;
}

/// MiB of memory that the work needs at its peak above what is in use before.
template <typename Work>
double peakMiBOf(const Work &work)
{
    ::malloc_trim(0); // What the work before has freed would be used again, and not be seen.
    QFile peak(QStringLiteral("/proc/self/clear_refs"));
    require(peak.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && peak.write("5") == 1,
            "reset the peak");
    const qint64 idle = kernelFigure("/proc/self/status", "VmRSS");
    work();
    return static_cast<double>(kernelFigure("/proc/self/status", "VmHWM") - idle) / 1024;
}

/// Bytes that the work hands to the kernel for writing.
template <typename Work>
qint64 bytesWrittenBy(const Work &work)
{
    const qint64 before = kernelFigure("/proc/self/io", "wchar");
    work();
    return kernelFigure("/proc/self/io", "wchar") - before;
}

/// Where everything is kept; scripts/bench makes it a directory in memory.
inline QString inWorkFolder(const QString &name)
{
    return QDir(QDir::tempPath()).filePath(name);
}

inline void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    require(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(), "write a file");
}

/// Lists files of one byte in folders of the given names and sizes. Their blocks do not exist.
inline Core::SecureFileIndex madeUpIndex(const std::vector<std::pair<QString, int>> &folders)
{
    static const char *const suffixes[] = {"txt", "pdf", "jpg", "odt", "tar.gz", "mp3", "ods", "xyz"};
    const QDateTime now = QDateTime::currentDateTimeUtc();
    Core::SecureFileIndex index;
    qint64 offset = 8388636;
    for (const auto &[folder, count] : folders) {
        index.addDirectory({folder, now, now});
        for (int i = 0; i < count; ++i) {
            // Neither by name nor by date in order.
            const int number = static_cast<int>(i * 7919LL % count);
            Core::VaultFileEntry entry;
            entry.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
            entry.vaultPath = QStringLiteral("%1/documento %2.%3")
                                  .arg(folder, QString::number(number), QLatin1String(suffixes[i % 8]));
            entry.sizeBytes = 1;
            entry.lastModifiedUtc = now.addSecs(-i * 3571LL % 100'000'000);
            entry.sha256 = QByteArray(32, static_cast<char>(i));
            entry.blocks = {{offset, 1, 17, QByteArray(24, static_cast<char>(i))}};
            offset += 17;
            index.addOrReplace(entry);
        }
    }
    return index;
}

inline const QByteArray password = "uma senha bem longa";

/// A new, open vault, gone at the end.
class OpenVault
{
public:
    explicit OpenVault(const Core::SecureFileIndex &index = {},
                       const QString &containerPath = inWorkFolder(QStringLiteral("cofre.trvx")))
        : path(containerPath)
    {
        require(vault.createVault(path, password) && vault.unlockVault(path, password), "open a vault");
        require(index.entries().isEmpty() || vault.saveIndex(index), "save an index");
    }
    ~OpenVault()
    {
        static_cast<void>(vault.lockVault());
        QFile::remove(path);
    }
    Q_DISABLE_COPY_MOVE(OpenVault)

    /// Bytes of the header's JSON, from the line before it.
    qint64 headerSize() const
    {
        QFile container(path);
        require(container.open(QIODevice::ReadOnly) && container.seek(Core::ContainerFormat::fileMagicSize),
                "open the container");
        return container.readLine().trimmed().toLongLong();
    }

    const QString path;
    Core::VaultManager vault;
};

/// Runs the benchmarks with the usual options.
inline int runBenchmarks(int argc, char *argv[])
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace Tessarin::Bench
