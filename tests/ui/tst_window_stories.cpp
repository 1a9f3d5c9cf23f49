// Plays the stories of stories.txt, each on a window and a vault of its own. What people press, dialogs with
// their answers, what changes on the window or goes to stderr must be told here as it is written there.
#include "Look.h"
#include "WindowHarness.h"
#include "platform/TerminationSignals.h"
#include "support/VaultFixture.h"

#include <csignal>
#include <cstdlib>

using namespace Tessarin::Tests;
using Tessarin::Platform::TerminationSignals;

namespace {

using Names = QList<std::pair<QRegularExpression, QString>>;

class Stage
{
public:
    Stage(bool isOpen, const Names &commonTexts) : names(commonTexts)
    {
        std::setbuf(stderr = std::fopen(qPrintable(host.filePath(u".stderr"_s)), "w"), nullptr);
        for (const QString &path : {u"Docs/carta.txt"_s, u"Foto.JPG"_s, u"nota.txt"_s})
            QVERIFY(vault.put(path, path.toUtf8() + '\n'));
        vault.play(u"mkdir Docs/2024; lock"_s);
        for (const QString &scheme : {u"file"_s, u"https"_s})
            QDesktopServices::setUrlHandler(scheme, &opened, "setSource");
        QObject::connect(&signalsToEnd, &TerminationSignals::requested, &w.window,
                         &Tessarin::UI::MainWindow::closeSoon);
        if (isOpen) {
            point(u"enter"_s, u"drive 0"_s);
            w.act(u"unlock"_s, {{u"Senha do cofre"_s, QString::fromUtf8(vault.password) + u" ; OK"_s}});
        }
        tellChanges();
        QVERIFY(isOpen || outcome.first() == u"Pronto"_s);
        outcome.clear();
        QCOMPARE(w.window.size(), w.window.sizeHint());
    }

    QStringList told;

    /// Plays a line up to its outcome, and tells it anew.
    void act(const QString &line)
    {
        QStringList dialogs = line.section(u" = "_s, 0, 0).split(u" ? "_s);
        const QString action = dialogs.takeFirst();
        QList<DialogStep> steps;
        for (const QString &dialog : dialogs.filter(u" <- "_s)) {
            const QString answer = dialog.section(u" <- "_s, 1);
            steps += {dialog.section(u" <- "_s, 0, 0).section(u" | "_s, 0, 0), inPlace(answer)};
            if (answer.startsWith(u"do "_s))
                steps.last().before = [this, answer](QWidget &box) { meddle(answer, box); };
        }
        w.window.statusBar()->clearMessage();
        DialogDriver driver(steps);
        perform(action);
        if (line.contains(u"! raise"_s))
            QVERIFY(QTest::qWaitFor([this] { return !w.window.isVisible(); }));
        else
            QTest::qWait(line.contains(u"do !"_s) ? 100 : 1); // It must not close.
        for (const DialogStep &step : driver.steps)
            outcome += u"missing: "_s + step.beginning;
        tellChanges();
        told += (QStringList(action) + driver.seen).join(u" ? "_s);
        if (!outcome.isEmpty())
            told.last() += u" = "_s + std::exchange(outcome, {}).join(u" || "_s);
        told += std::exchange(looks, {});
        for (const auto &[name, place] : places.asKeyValueRange())
            told.replaceInStrings(place, name);
        for (const auto &[pattern, name] : names)
            told.replaceInStrings(pattern, name);
    }

private:
    void meddle(const QString &answer, QWidget &dialog)
    {
        for (const QString &line : answer.section(u" ; "_s, 0, 0).mid(3).split(u", "_s)) {
            if (line == u"look"_s) {
                looks += u"> "_s + look(dialog);
                continue;
            }
            perform(line);
            QTest::qWait(50);
            outcome += dialog.isVisible() ? u"still there"_s : u"gone"_s;
        }
    }

    /// "$" and a command of the shell, or "!", what to do and with what.
    void perform(const QString &line)
    {
        const QString verb = line.section(u' ', 1, 1);
        const QString what = inPlace(line.section(u' ', 2));
        if (line.startsWith(u'$'))
            shell(inPlace(line.mid(2)));
        else if (QStringList{u"click"_s, u"ctrl-click"_s, u"enter"_s, u"middle"_s}.contains(verb))
            point(verb, what);
        else if (verb == u"menu"_s)
            Q_EMIT w.table.customContextMenuRequested(w.placeOf(what));
        else if (verb == u"drop"_s)
            outcome += w.drop(what.section(u" > "_s, 0, 0).split(u"; "_s), what.section(u" > "_s, 1));
        else if (verb == u"key"_s)
            press(what.split(u' '));
        else if (verb == u"close-frame"_s) { // As Qt sends it when the window's frame is clicked.
            QCloseEvent event;
            QCoreApplication::sendEvent(w.window.windowHandle(), &event);
        } else if (verb == u"dismiss"_s) {
            QTest::keyClick(QApplication::activeModalWidget(), Qt::Key_Escape);
            QApplication::activeModalWidget()->close();
        } else if (verb == u"raise"_s)
            std::raise(what.toInt());
        else if (verb == u"plug"_s)
            drives->drives.prepend(usbDrive(what.section(u' ', 0, 0), what.section(u' ', 1), u"/dev/x2"_s)),
                drives->tell();
        else if (verb == u"pull"_s)
            drives->drives.removeAt(what.toInt()), drives->tell();
        else if (verb == u"look"_s)
            lookAt(what);
        else if (verb == u"play"_s)
            vault.play(QString(what).replace(u'¶', u'\n'));
        else if (verb == u"toggle"_s)
            w.padlock.toggle();
        else if (verb == u"nothing-opens"_s)
            w.window.reportFailedOpening();
        else {
            QVERIFY2(w.action(verb), qPrintable(line));
            if (!what.isEmpty())
                point(u"click"_s, what);
            w.action(verb)->trigger();
        }
    }

    /// At a row of the table, "drive N", "column N" or the "padlock".
    void point(const QString &verb, const QString &what)
    {
        const int number = what.section(u' ', 1).toInt();
        QWidget *on = w.table.viewport();
        QPoint place = w.placeOf(what);
        if (what.startsWith(u"drive "_s)) {
            on = w.deviceList.viewport();
            place = w.deviceList.visualItemRect(w.deviceList.item(number)).center();
        } else if (what.startsWith(u"column "_s)) {
            on = w.table.horizontalHeader()->viewport();
            place = {w.table.horizontalHeader()->sectionViewportPosition(number) + 5, 5};
        } else if (what == u"padlock"_s) {
            on = &w.padlock;
            place = w.padlock.rect().center();
        }
        const Qt::MouseButton button = verb == u"middle"_s ? Qt::MiddleButton : Qt::LeftButton;
        QTest::mouseClick(on, button, verb == u"ctrl-click"_s ? Qt::ControlModifier : Qt::NoModifier, place);
        if (!verb.endsWith(u"click"_s))
            QTest::mouseDClick(on, button, {}, place);
    }

    /// One key after the other; Return is held down.
    void press(const QStringList &keys)
    {
        for (const QString &key : keys) {
            const QKeyCombination pressed = QKeySequence(key)[0];
            QTest::keyClick(&w.deviceList, pressed.key(), pressed.keyboardModifiers());
            QKeyEvent again(QEvent::KeyPress, pressed.key(), {}, {}, true);
            QKeyEvent release(QEvent::KeyRelease, pressed.key(), {});
            QKeyEvent press(QEvent::KeyPress, pressed.key(), {});
            release.setTimestamp(1000);
            press.setTimestamp(1001);
            for (QKeyEvent *event : {&again, &release, &press}) {
                if (key == u"Return"_s)
                    QApplication::sendEvent(&w.deviceList, event);
            }
        }
    }

    void shell(const QString &command)
    {
        // Not by QProcess, whose way of starting programs an emulated processor may lack.
        QTemporaryFile output;
        QVERIFY(output.open());
        QVERIFY(qputenv("STEP", command.toUtf8()));
        const QByteArray to = QFile::encodeName(output.fileName());
        QVERIFY(std::system("timeout 60 bash -c \"$STEP\" >" + to + " 2>&1") != 124 << 8);
        outcome += QString::fromUtf8(output.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }

    QString inPlace(QString text) const
    {
        for (const auto &[name, place] : places.asKeyValueRange())
            text.replace(name, place);
        return text;
    }

    void lookAt(const QString &what)
    {
        if (what == u"table"_s) {
            for (int row = -1; row < w.table.rowCount(); ++row)
                looks += u"> "_s + look(w.table, row);
            return;
        }
        const QWidgetList parts{&w.window, w.window.menuBar(), w.table.horizontalHeader()};
        for (const QWidget *part : parts)
            looks += u"> "_s + look(*part);
        for (const QAction *menu : w.window.menuBar()->actions())
            looks += u"> "_s + look(*menu);
        shown.clear();
    }

    QString devices() const
    {
        QStringList rows;
        for (int row = 0; row < w.deviceList.count(); ++row) {
            const QListWidgetItem &item = *w.deviceList.item(row);
            rows += (item.isSelected() ? u"[%1]"_s : u"%1"_s).arg(item.text());
            const QString colour = item.foreground().color().name();
            rows.last() += item.flags() & Qt::ItemIsSelectable ? u" "_s : u" (off %1) "_s.arg(colour);
            rows.last() += item.data(Qt::AccessibleDescriptionRole).toString();
        }
        static const QRegularExpression room(u"[0-9,.]+ .B livres"_s);
        return rows.join(u" || "_s).replace(room, u"N livres"_s);
    }

    QString row(int number) const
    {
        const QTableWidgetItem &icon = *w.table.item(number, 0);
        const QString text = w.table.item(number, 1)->text() + u' ' + w.table.item(number, 2)->text();
        const QString state = icon.data(Qt::AccessibleTextRole).toString().section(u',', 1);
        if (state.isEmpty())
            return text.trimmed();
        // The mark over the icon: its middle, and a place near its rim.
        const QImage image = w.table.viewport()->grab(w.table.visualItemRect(&icon)).toImage();
        const QPoint middle = image.rect().bottomRight() - QPoint(7, 8);
        return text + u"%1 %2 %3"_s.arg(state, image.pixelColor(middle).name(),
                                        image.pixelColor(middle - QPoint(3, 0)).name());
    }

    void tellChanges()
    {
        QStringList enabled;
        for (const QAction *action : w.window.findChildren<QAction *>()) {
            if (action->objectName().endsWith(u"Action"_s) && action->isEnabled())
                enabled += action->objectName().chopped(6);
        }
        enabled.sort();
        if (opened.source().isLocalFile())
            places[u"OPENED"_s] = opened.source().toLocalFile();
        QStringList rows;
        for (int number = 0; number < w.table.rowCount(); ++number)
            rows += row(number);
        const QHeaderView &header = *w.table.horizontalHeader();
        const QList<QTableWidgetItem *> chosen = w.table.selectedItems();
        const auto *files = w.window.findChild<QLabel *>(u"protectedFilesLabel"_s);
        const auto *container = w.window.findChild<QLabel *>(u"containerLabel"_s);
        const auto *state = w.window.findChild<QLabel *>(u"vaultIndicatorLabel"_s);
        const QStringList now{
            w.window.statusBar()->currentMessage(),
            w.window.isVisible() ? u"open"_s : u"closed"_s,
            opened.source().isLocalFile() ? QString() : opened.source().toString(),
            u"rows: "_s + rows.join(u", "_s),
            u"sorted: %1 %2"_s.arg(header.sortIndicatorSection()).arg(header.sortIndicatorOrder()),
            u"chosen: "_s + (chosen.isEmpty() ? QString() : chosen.value(1)->text()),
            w.table.rowAt(9) > 0 ? u"at the top: "_s + w.table.item(w.table.rowAt(9), 1)->text() : QString(),
            u"can: "_s + enabled.join(u' '),
            u"padlock: %1 %2 %3 %4"_s.arg(look(w.padlock.icon().pixmap(60)),
                                          w.padlock.isChecked() ? u"down"_s : u"up"_s, w.padlock.toolTip(),
                                          state->styleSheet().section(u';', 0, 0).right(7)),
            u"container: %1 (%2)"_s.arg(container->text(), container->toolTip()),
            files->text() + QString(files->accessibleName() + files->toolTip()).remove(files->text()),
            u"hint: "_s + w.table.accessibleDescription().mid(files->accessibleName().size()),
            u"drives: "_s + devices(),
            QString::fromUtf8(readFile(host.filePath(u".stderr"_s))).replace(u'\n', u'¶')};
        for (const QString &text : now) {
            if (!text.isEmpty() && (&text == &now.first() || !shown.contains(text)))
                outcome += text;
        }
        shown = now;
    }

    const Names &names;
    QTemporaryDir host;
    QTemporaryDir stick;
    QMap<QString, QString> places{///< What words in capital letters stand for.
                                  {u"HOST"_s, host.path()},
                                  {u"STICK"_s, stick.path()},
                                  {u"LONG"_s, QString(251, u'w') + u".txt"_s}};
    VaultFixture vault{stick.path()};
    QTextBrowser opened; ///< Stands in for the programs that show files and web pages.
    QStringList outcome; ///< What an action leads to, besides dialogs.
    QStringList looks;
    QStringList shown;
    TerminationSignals signalsToEnd;
    MadeUpDrives *drives = new MadeUpDrives({usbDrive(u"PENDRIVE"_s, stick.path(), u"/dev/x1"_s)});
    WindowHarness w{std::unique_ptr<Tessarin::Platform::DeviceManager>(drives)};
};

const QTemporaryDir settings;
const bool isSet = qputenv("XDG_CONFIG_HOME", settings.path().toLocal8Bit());

} // namespace

class WindowStoriesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QLocale::setDefault(QLocale::c()); }
    void cleanupTestCase() { QVERIFY(QDir(settings.path()).isEmpty()); }

    void everyStoryIsAsWritten_data()
    {
        QTest::addColumn<QStringList>("story");
        const QString all = QString::fromUtf8(readFile(TESSARIN_SOURCE_DIR u"/tests/ui/stories.txt"_s));
        QStringList stories = all.split(u"\n\n"_s, Qt::SkipEmptyParts);
        for (const QString &line : stories.takeFirst().split(u'\n').filter(u" = "_s)) {
            const QString text = line.section(u" = "_s, 1);
            const bool isPattern = text.startsWith(u'/');
            names += {QRegularExpression(isPattern ? text.mid(1) : QRegularExpression::escape(text)),
                      line.section(u" = "_s, 0, 0)};
        }
        for (const QString &text : stories)
            QTest::newRow(text.section(u'\n', 0, 0).mid(3).toUtf8()) << text.split(u'\n', Qt::SkipEmptyParts);
    }
    void everyStoryIsAsWritten()
    {
        QFETCH(const QStringList, story);
        Stage stage(story.first().startsWith(u"== "_s), names);
        for (const QString &line : story.filter(QRegularExpression(u"^[!$]"_s)))
            stage.act(line);
        if (stage.told != story.mid(1))
            std::puts(qPrintable(stage.told.join(u'\n')));
        QCOMPARE(stage.told, story.mid(1));
    }

private:
    Names names;
};

QTEST_MAIN(WindowStoriesTest)
#include "tst_window_stories.moc"
