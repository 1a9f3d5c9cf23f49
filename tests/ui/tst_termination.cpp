// The program is asked to end, by a signal or the window's frame, at moments good and bad: no edit is lost
// and nothing decrypted stays behind.
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
        QVERIFY(vault.put(u"carta.txt"_s, "antes"));
        QVERIFY(vault.put(u"video.mp4"_s, video));
        QVERIFY(vault.vault.lockVault());
        // Only now, for the test library has handlers of its own.
        connect(new TerminationSignals(this), &TerminationSignals::requested, &w.window,
                &MainWindow::closeSoon);
    }

    void init()
    {
        w.window.show();
        Q_EMIT w.deviceList.itemDoubleClicked(w.deviceList.item(0));
        w.act(u"unlock"_s, {{u"Senha do cofre"_s, QString::fromUtf8(vault.password) + u" ; OK"_s}});
        w.enter(u"carta.txt"_s);
    }

    void cleanup()
    {
        w.window.close();
        QVERIFY2(!w.padlock.isChecked(), "the vault is still open");
    }

    void everySignalClosesAfterWritingBack_data()
    {
        QTest::addColumn<int>("number");
        for (const int number : {SIGTERM, SIGINT, SIGHUP})
            QTest::addRow("signal %d", number) << number;
    }
    void everySignalClosesAfterWritingBack()
    {
        QFETCH(const int, number);
        const QByteArray edited = "editada " + QByteArray::number(number);
        edit(opened.path, edited);
        std::raise(number);
        verifyClosed(edited);
    }

    void anOperationFinishesAndItsQuestionsAreDeclined()
    {
        const QStringList paths{vault.folder.filePath(u"carta.txt"_s), vault.folder.filePath(u"foto.jpg"_s)};
        for (const QString &path : paths)
            writeFile(path, noise(300000, 1));
        edit(opened.path, "de dentro");
        const auto ask = [this](QWidget &question) {
            w.window.close();
            QTest::qWait(50);
            QVERIFY(question.isVisible());
            std::raise(SIGTERM);
            QTRY_VERIFY(!question.isVisible());
        };
        w.act(u"import"_s, {{u"Importar arquivos para o cofre"_s, paths.join(u", "_s)},
                            {u"Substituir arquivo"_s, {}, ask}});
        verifyClosed("de dentro");
        QCOMPARE(vault.paths(), (QStringList{u"video.mp4"_s, u"foto.jpg"_s, u"carta.txt"_s}));
    }

    /// The way out of what failed is on the screen as long as its user needs, and the window with it.
    void aFailureTakesTheRequestToCloseBack()
    {
        const QString source = vault.folder.filePath(u"some.txt"_s);
        writeFile(source, "x");
        const auto closeAndBreak = [&](QWidget &progress) {
            w.window.close();
            QTRY_VERIFY(progress.findChild<QLabel *>()->text().contains(u"A janela será fechada"_s));
            QVERIFY(QFile::remove(source));
        };
        const auto stay = [this](QWidget &warning) {
            QTest::qWait(50);
            QVERIFY(warning.isVisible());
            w.window.close();
        };
        w.act(u"import"_s, {{u"Importar arquivos para o cofre"_s, source},
                            {u"Importar arquivos | Importando arquivos"_s, {}, closeAndBreak},
                            {u"Tessarin | Não foi possível importar some.txt."_s, u"OK"_s, stay}});
        QTest::qWait(50);
        QVERIFY(w.window.isVisible());
    }

    /// While it shows its progress, nothing else starts, and it cannot be dismissed.
    void longWorkFinishesFirst()
    {
        // A pipe that nobody reads from for a while is as slow as a drive can be.
        const QString slow = vault.folder.filePath(u"lento"_s);
        QCOMPARE(::mkfifo(slow.toLocal8Bit(), 0600), 0);
        QByteArray received;
        const std::unique_ptr<QThread> reader(QThread::create([&] {
            QFile pipe(slow);
            const bool isOpen = pipe.open(QIODevice::ReadOnly);
            QThread::msleep(600);
            received = isOpen ? pipe.readAll() : QByteArray();
        }));
        reader->start();

        edit(opened.path, "editada");
        const QString title = u"Exportar arquivo"_s;
        const auto meddle = [&](QWidget &progress) {
            for (const QString &name : {u"lock"_s, u"createDirectory"_s, u"about"_s})
                w.action(name)->trigger();
            QVERIFY(!w.drop({u"/etc/passwd"_s}));
            w.padlock.click();
            QTest::keyClick(&progress, Qt::Key_Escape);
            progress.close();
            std::raise(SIGTERM);
            for (int i = 0; i < 5; ++i)
                QTest::qWait(10);
            QVERIFY(progress.isVisible());
            QVERIFY(w.window.isVisible());
        };
        w.click(u"video.mp4"_s);
        w.act(u"export"_s, {{title, u"Continuar"_s},
                            {title, slow},
                            {title, u"Yes"_s},
                            {title + u" | Exportando video.mp4..."_s, {}, meddle}});
        QVERIFY(reader->wait(10000));
        QVERIFY(received == video);
        verifyClosed("editada");
    }

    void aVaultThatCannotBeLockedKeepsItsWindow()
    {
        QVERIFY(QFile::remove(opened.path));
        QTest::qSleep(20); // Only what is later than the copy was counts as modified.
        QVERIFY(QDir().mkpath(opened.path + u"/x"_s));
        const auto askAgain = [this](QWidget &warning) {
            // As Qt sends it when the window's frame is clicked just now.
            QCloseEvent again;
            QCoreApplication::sendEvent(w.window.windowHandle(), &again);
            QTest::qWait(50);
            QVERIFY(warning.isVisible());
            QVERIFY(w.window.isVisible());
            QVERIFY(QDir(opened.path).removeRecursively());
            edit(opened.path, "afinal");
            std::raise(SIGTERM);
            QTRY_VERIFY(!warning.isVisible());
        };
        drive(
            [] {
                std::raise(SIGTERM);
                QTest::qWait(100);
            },
            {{u"Tessarin | Não foi possível bloquear o cofre."_s, {}, askAgain}});
        verifyClosed("afinal");
    }

private:
    void verifyClosed(const QByteArray &expected)
    {
        QTRY_VERIFY(!w.window.isVisible());
        QVERIFY(!w.padlock.isChecked());
        QVERIFY(!QFileInfo::exists(QFileInfo(opened.path).path()));
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
