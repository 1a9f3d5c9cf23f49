// The program is asked to end, by a signal, at moments good and bad: no edit is lost and nothing decrypted
// stays behind.
#include "WindowHarness.h"
#include "platform/TerminationSignals.h"
#include "support/VaultFixture.h"

#include <QCloseEvent>
#include <QDir>
#include <QThread>
#include <QWindow>

#include <csignal>

#include <sys/stat.h>

using namespace Tessarin::Tests;
using Tessarin::Platform::TerminationSignals;
using Tessarin::UI::MainWindow;
using namespace Qt::Literals::StringLiterals;

class TerminationTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(vault.createAndUnlock() && vault.put(u"carta.txt"_s, "antes") &&
                vault.put(u"video.mp4"_s, video) && vault.vault.lockVault());
        // Only now, for the test library has handlers of its own.
        connect(new TerminationSignals(this), &TerminationSignals::requested, &w.window,
                &MainWindow::closeSoon);
    }

    void init()
    {
        w.window.show();
        Q_EMIT w.deviceList.itemDoubleClicked(w.deviceList.item(0));
        w.act(u"unlock"_s, {type(u"Senha do cofre"_s, {QString::fromUtf8(vault.password)})});
        w.enter(u"carta.txt"_s);
        QTest::qWait(20); // The edit is to be newer than the copy.
    }

    void everySignalClosesAfterWritingBack_data()
    {
        QTest::addColumn<int>("number");
        QTest::newRow("SIGTERM") << SIGTERM;
        QTest::newRow("SIGINT") << SIGINT;
        QTest::newRow("SIGHUP") << SIGHUP;
    }

    void everySignalClosesAfterWritingBack()
    {
        QFETCH(const int, number);
        const QByteArray edited = "editada " + QByteArray::number(number);
        writeFile(opened.path, edited);
        std::raise(number);
        verifyClosed(edited);
    }

    void anOperationFinishesAndItsQuestionsAreDeclined()
    {
        const QString other = vault.folder.filePath(u"carta.txt"_s);
        const QString photo = vault.folder.filePath(u"foto.jpg"_s);
        writeFile(other, "de fora");
        writeFile(photo, noise(300000, 1));
        writeFile(opened.path, "de dentro");
        const auto ask = [this](QWidget &question) {
            w.window.close();
            QTRY_VERIFY(!question.isVisible());
        };
        w.act(u"import"_s, {pick(u"Importar arquivos para o cofre"_s, {other, photo}),
                            {u"Substituir arquivo"_s, {}, ask}});
        verifyClosed("de dentro");
        QCOMPARE(vault.filePaths(), (QStringList{u"video.mp4"_s, u"foto.jpg"_s, u"carta.txt"_s}));
    }

    void longWorkFinishesFirst()
    {
        // A pipe that nobody reads from for a while is as slow as a drive can be.
        const QString slow = vault.folder.filePath(u"lento"_s);
        QVERIFY(::mkfifo(slow.toLocal8Bit(), 0600) == 0);
        QByteArray received;
        const std::unique_ptr<QThread> reader(QThread::create([&] {
            QFile pipe(slow);
            const bool isOpen = pipe.open(QIODevice::ReadOnly);
            QThread::msleep(600);
            received = isOpen ? pipe.readAll() : QByteArray();
        }));
        reader->start();

        writeFile(opened.path, "editada");
        const QString title = u"Exportar arquivo"_s;
        const auto ask = [&](QWidget &progress) {
            std::raise(SIGTERM);
            QTest::qWait(100);
            QVERIFY(progress.isVisible() && w.window.isVisible());
        };
        w.click(u"video.mp4"_s);
        w.act(u"export"_s, {press(title, {}, u"Continuar"_s),
                            pick(title, {slow}),
                            press(title, {}, u"Yes"_s),
                            {title, u"Exportando video.mp4..."_s, ask}});
        QVERIFY(reader->wait(10000) && received == video);
        verifyClosed("editada");
    }

    void aVaultThatCannotBeLockedKeepsItsWindow()
    {
        QVERIFY(QFile::remove(opened.path) && QDir().mkpath(opened.path));
        const auto askAgain = [this](QWidget &warning) {
            // As Qt sends it when the window's frame is clicked just now.
            QCloseEvent again;
            QCoreApplication::sendEvent(w.window.windowHandle(), &again);
            QTest::qWait(100);
            QVERIFY(warning.isVisible() && w.window.isVisible());
            QVERIFY(QDir().rmdir(opened.path));
            writeFile(opened.path, "afinal");
            std::raise(SIGTERM);
            QTRY_VERIFY(!warning.isVisible());
        };
        drive(
            [] {
                std::raise(SIGTERM);
                QTest::qWait(200);
            },
            {{u"Tessarin"_s, u"Não foi possível bloquear o cofre."_s, askAgain}});
        verifyClosed("afinal");
    }

private:
    void verifyClosed(const QByteArray &expected)
    {
        QTRY_VERIFY(!w.window.isVisible());
        QVERIFY(!w.padlock.isChecked() && !QFileInfo::exists(QFileInfo(opened.path).path()));
        QVERIFY(vault.unlock());
        QCOMPARE(vault.get(u"carta.txt"_s), expected);
        QVERIFY(vault.vault.lockVault());
    }

    VaultFixture vault;
    const QByteArray video = noise(40000000, 2); ///< Three blocks.
    OpenedFile opened;
    WindowHarness w{{usbDrive(u"PENDRIVE"_s, vault.folder.path(), u"/dev/x1"_s)}};
};

QTEST_MAIN(TerminationTest)
#include "tst_termination.moc"
