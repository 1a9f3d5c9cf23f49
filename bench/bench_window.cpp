// How soon the window shows: the program from its start, and a folder of 10,000 files in the open window.
#include "Measuring.h"

#include "ui/WindowHarness.h"

#include <QHeaderView>
#include <QProcess>
#include <QProcessEnvironment>

using namespace Tessarin::Bench;
using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

/// From starting the process until its window is painted.
Spent timeToFirstPaint(const char *program)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LD_PRELOAD"_s, QString::fromLocal8Bit(FIRST_PAINT_LIBRARY));
    QProcess process;
    process.setProcessEnvironment(environment);
    const double processorBefore = processorSeconds(RUSAGE_CHILDREN);
    const auto start = std::chrono::steady_clock::now().time_since_epoch();
    process.start(QString::fromLocal8Bit(program), QStringList());
    require(process.waitForFinished() && process.exitCode() == 0, program);
    const std::chrono::nanoseconds painted(process.readAllStandardOutput().trimmed().toLongLong());
    return {std::chrono::duration<double>(painted - start).count(),
            processorSeconds(RUSAGE_CHILDREN) - processorBefore};
}

void start(benchmark::State &state)
{
    Samples samples;
    for ([[maybe_unused]] auto iteration : state) {
        const Spent bare = timeToFirstPaint(BARE_WINDOW_PROGRAM);
        samples.addPair("start", timeToFirstPaint(TESSARIN_PROGRAM), bare);
    }
    samples.reportTo(state);
}

/// The window on a vault in which one folder of two holds 10,000 files.
struct LargeFolder
{
    LargeFolder()
    {
        const QString path = inWorkFolder(u"tessarin.trvx"_s);
        Tessarin::Core::VaultManager vault;
        require(vault.createVault(path, password) && vault.unlockVault(path, password) &&
                    vault.saveIndex(madeUpIndex({{u"grande"_s, 10000}, {u"outra"_s, 4000}})) &&
                    vault.lockVault(),
                "make a vault");
        w.act(u"chooseContainer"_s, {{u"Escolher container Tessarin"_s, path}});
        w.act(u"unlock"_s, {{u"Senha do cofre"_s, QString::fromUtf8(password) + u" ; OK"_s}});
        settle();
    }

    /// Everything that was asked for is on the screen.
    static void settle()
    {
        QApplication::sendPostedEvents();
        QApplication::processEvents();
    }

    void click(const QString &name)
    {
        QTest::mouseClick(w.table.viewport(), Qt::LeftButton, {}, w.placeOf(name));
    }
    void enter(const QString &name)
    {
        click(name);
        QTest::mouseDClick(w.table.viewport(), Qt::LeftButton, {}, w.placeOf(name));
    }

    WindowHarness w{
        std::make_unique<MadeUpDrives>(QList{usbDrive(u"PENDRIVE"_s, QDir::tempPath(), u"/dev/sdz1"_s)})};
};

void largeFolder(benchmark::State &state)
{
    LargeFolder folder;
    WindowHarness &w = folder.w;
    QHeaderView &header = *w.table.horizontalHeader();
    Samples samples;
    const auto time = [&samples](const std::string &name, const auto &work) {
        samples.addMilliseconds(name, timeOf([&] {
                                    work();
                                    LargeFolder::settle();
                                }));
    };
    const auto sortBy = [&](int column) {
        QTest::mouseClick(header.viewport(), Qt::LeftButton, {},
                          QPoint(header.sectionViewportPosition(column) + header.sectionSize(column) / 2,
                                 header.height() / 2));
    };
    for ([[maybe_unused]] auto iteration : state) {
        time("show", [&] { folder.enter(u"grande"_s); });
        require(w.table.rowCount() == 10001, "show the folder");
        time("sort_name", [&] { sortBy(1); });
        time("sort_size", [&] { sortBy(2); });
        time("sort_type", [&] { sortBy(3); });
        time("sort_date", [&] { sortBy(4); });
        sortBy(1);
        // A new folder is written to the vault, and then all rows are.
        const QString name = u"nova"_s;
        time("refresh", [&] { w.act(u"createDirectory"_s, {{u"Nova pasta"_s, name + u" ; OK"_s}}); });
        require(w.table.rowCount() == 10002, "create a folder");
        folder.click(name);
        w.act(u"deleteDirectory"_s, {{u"Excluir pasta"_s, u"Sim"_s}});
        time("leave", [&] { folder.enter(u".."_s); });
        require(w.table.rowCount() == 2, "leave the folder");
    }
    samples.reportTo(state);
}

BENCHMARK(start)->Iterations(60);
BENCHMARK(largeFolder)->Iterations(7);

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    return runBenchmarks(argc, argv);
}
