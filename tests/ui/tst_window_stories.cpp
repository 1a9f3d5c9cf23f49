// Plays the stories of stories.txt, each on a window and a vault of its own: what people press, the dialogs
// that come with their answers, and everything on the window that changes. What is told here must be what is
// written there.
#include "WindowHarness.h"
#include "support/VaultFixture.h"

#include <QHeaderView>
#include <QMenuBar>
#include <QMetaEnum>
#include <QProcess>

using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

class Stage
{
public:
    explicit Stage(bool isOpen)
    {
        for (const QString &path : {u"Docs/carta.txt"_s, u"Foto.JPG"_s, u"nota.txt"_s})
            QVERIFY(vault.put(path, path.toUtf8() + '\n'));
        QVERIFY(vault.vault.createDirectory(u"Docs/2024"_s));
        QVERIFY(vault.vault.lockVault());
        if (isOpen) {
            Q_EMIT w.deviceList.itemDoubleClicked(w.deviceList.item(0));
            w.act(u"unlock"_s, {{u"Senha do cofre"_s, QString::fromUtf8(vault.password) + u" ; OK"_s}});
        }
        tellChanges();
        told.clear();
        outcome.clear();
    }

    QStringList told;

    /// Plays a line up to its outcome, and tells it anew.
    void act(const QString &line)
    {
        QStringList dialogs = line.section(u" = "_s, 0, 0).split(u" ? "_s);
        const QString action = dialogs.takeFirst();
        QList<DialogStep> steps;
        for (const QString &dialog : dialogs.filter(u" <- "_s))
            steps += {dialog.section(u" | "_s, 0, 0), inPlace(dialog.section(u" <- "_s, -1))};
        DialogDriver driver(steps);
        told += action;
        const qsizetype at = told.size() - 1;
        w.window.statusBar()->clearMessage();
        if (action.startsWith(u"$ "_s))
            shell(action.mid(2));
        else
            perform(action.section(u' ', 1, 1), action.section(u' ', 2));
        QApplication::processEvents();
        told[at] = (QStringList(action) + driver.seen).join(u" ? "_s);
        for (const DialogStep &step : driver.steps)
            outcome += u"missing: "_s + step.beginning;
        tellChanges();
        if (!outcome.isEmpty())
            told[at] += u" = "_s + outcome.join(u" || "_s);
        outcome.clear();
        static const QList<std::pair<QRegularExpression, QString>> names{
            {QRegularExpression(u"/[^ ¶]*/Tessarin/[-0-9a-f]{36}"_s), u"COPIES"_s},
            {QRegularExpression(u"Container: [^(]*…[^(]*"_s), u"Container: … "_s},
            {QRegularExpression(u"disponível: [^¶]*|execução¶[^|]*"_s), u"N"_s},
            {QRegularExpression(
                 u"[0-9]+\\.[0-9]+\\.[0-9]+|[0-9]+/[0-9]+/[0-9]+( [0-9:]+)?|[0-9]+-[0-9-]+_[0-9]+"_s),
             u"N"_s}};
        told.replaceInStrings(host.path(), u"HOST"_s).replaceInStrings(stick.path(), u"STICK"_s);
        told.replaceInStrings(longName, u"LONG"_s);
        for (const auto &[pattern, name] : names)
            told.replaceInStrings(pattern, name);
    }

    QString inPlace(const QString &text) const
    {
        return QString(text)
            .replace(u"HOST"_s, host.path())
            .replace(u"STICK"_s, stick.path())
            .replace(u"LONG"_s, longName);
    }

private:
    void perform(const QString &verb, const QString &what)
    {
        if (verb == u"click"_s)
            w.click(inPlace(what));
        else if (verb == u"ctrl-click"_s)
            w.click(what, Qt::ControlModifier);
        else if (verb == u"enter"_s)
            w.enter(what);
        else if (verb == u"menu"_s)
            Q_EMIT w.table.customContextMenuRequested(w.placeOf(what));
        else if (verb == u"drop"_s)
            outcome += w.drop(inPlace(what.section(u" > "_s, 0, 0)).split(u", "_s), what.section(u" > "_s, 1))
                           ? u"taken"_s
                           : u"refused"_s;
        else if (verb == u"sort"_s)
            QTest::mouseClick(w.table.horizontalHeader()->viewport(), Qt::LeftButton, {},
                              {w.table.horizontalHeader()->sectionViewportPosition(what.toInt()) + 5, 5});
        else if (verb == u"key"_s)
            press(what);
        else if (verb == u"middle"_s)
            QTest::mouseDClick(w.table.viewport(), Qt::MiddleButton, {}, w.placeOf(what));
        else if (verb == u"padlock"_s)
            w.padlock.click();
        else if (verb == u"padlock-twice"_s) {
            QTest::mouseClick(&w.padlock, Qt::LeftButton);
            QTest::mouseDClick(&w.padlock, Qt::LeftButton);
        } else if (verb == u"close"_s)
            outcome += w.window.close() ? u"closed"_s : u"open"_s;
        else if (verb == u"drive"_s)
            Q_EMIT w.deviceList.itemDoubleClicked(w.deviceList.item(what.toInt()));
        else if (verb == u"click-drive"_s)
            QTest::mouseClick(w.deviceList.viewport(), Qt::LeftButton, {},
                              w.deviceList.visualItemRect(w.deviceList.item(what.toInt())).center());
        else if (verb == u"plug"_s)
            w.drives->insert(
                what.section(u' ', 0, 0).toInt(),
                usbDrive(what.section(u' ', 1, 1), inPlace(what.section(u' ', 2)), u"/dev/x2"_s));
        else if (verb == u"pull"_s)
            w.drives->removeAt(what.toInt());
        else if (verb == u"look"_s)
            look();
        else if (verb == u"old-line-break"_s)
            QVERIFY(vault.vault.changePassword(vault.container, vault.password, vault.password + '\n'));
        else if (verb == u"wait"_s)
            QTest::qWait(200);
        else if (w.action(verb))
            w.action(verb)->trigger();
        else
            outcome += u"there is no such thing to do"_s;
    }

    /// One key after the other; the last one is held down.
    void press(const QString &keys)
    {
        for (const QString &key : keys.split(u' ')) {
            const Qt::Key code = QKeySequence(key)[0].key();
            QTest::keyClick(&w.deviceList, code);
            QKeyEvent again(QEvent::KeyPress, code, {}, {}, true);
            if (key == u"Return"_s)
                QApplication::sendEvent(&w.deviceList, &again);
        }
    }

    void shell(const QString &command)
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"HOST"_s, host.path());
        environment.insert(u"STICK"_s, stick.path());
        environment.insert(u"LONG"_s, longName);
        environment.insert(u"OPENED"_s, opened.path);
        process.setProcessEnvironment(environment);
        process.start(u"bash"_s, {u"-c"_s, command});
        QVERIFY(process.waitForFinished());
        for (const QString &line : QString::fromUtf8(process.readAll()).split(u'\n', Qt::SkipEmptyParts))
            outcome += line;
    }

    /// The drives in the list, the chosen one in brackets and with its hint.
    QString devices() const
    {
        QStringList names;
        for (int row = 0; row < w.deviceList.count(); ++row) {
            const QListWidgetItem *item = w.deviceList.item(row);
            const QString text =
                item->isSelected() ? u"[%1] %2"_s.arg(item->text(), item->toolTip()) : item->text();
            names += text + (item->flags() & Qt::ItemIsSelectable ? QString() : u" (off)"_s);
        }
        return names.join(u" || "_s);
    }

    void tellChanges()
    {
        QStringList enabled;
        for (const QAction *action : w.window.findChildren<QAction *>()) {
            if (action->objectName().endsWith(u"Action"_s) && action->isEnabled())
                enabled += action->objectName().chopped(6);
        }
        enabled.sort();
        QStringList cells;
        for (int row = 0; row < w.table.rowCount(); ++row) {
            for (int column = 1; column < 4; ++column)
                cells += w.table.item(row, column)->text() + (column < 3 ? u","_s : QString());
            cells.last() += w.table.item(row, 0)->data(Qt::AccessibleTextRole).toString().section(u',', 1);
        }
        const QString heard = w.table.accessibleDescription();
        const QList<QTableWidgetItem *> chosen = w.table.selectedItems();
        static const QRegularExpression room(u"[0-9,.]+ .B livres"_s);
        const QImage image = w.padlock.icon().pixmap(48, 48).toImage();
        const auto *container = w.window.findChild<QLabel *>(u"containerLabel"_s);
        const auto *state = w.window.findChild<QLabel *>(u"vaultIndicatorLabel"_s);
        const QStringList now{
            w.window.statusBar()->currentMessage(),
            u"rows: "_s + cells.join(u' '),
            u"chosen: "_s + (chosen.isEmpty() ? QString() : chosen.value(1)->text()),
            u"can: "_s + enabled.join(u' '),
            u"padlock: %1 %2 %3 %4 %5"_s.arg(image.pixelColor(24, 32).name(),
                                             image.pixelColor(40, 15).alpha() > 0 ? u"open"_s : u"shut"_s,
                                             w.padlock.isChecked() ? u"down"_s : u"up"_s, w.padlock.toolTip(),
                                             state->styleSheet().section(u';', 0, 0).right(7)),
            u"labels: %1 (%2) %3"_s.arg(container->text(), container->toolTip(),
                                        w.label(u"protectedFiles"_s)),
            u"hint: "_s + heard.mid(w.label(u"protectedFiles"_s).size()),
            u"drives: "_s + devices().replace(room, u"N livres"_s)};
        for (const QString &text : now) {
            if (!text.isEmpty() && (&text == &now.first() || !shown.contains(text)))
                outcome += text;
        }
        shown = now;
    }

    /// What of the window's parts is not as every such part is made, as far as people or assistive programs
    /// meet it.
    void look()
    {
        static const QList<std::shared_ptr<QObject>> plainOnes{
            std::make_shared<QWidget>(),     std::make_shared<QFrame>(),
            std::make_shared<QLabel>(),      std::make_shared<QToolButton>(),
            std::make_shared<QListWidget>(), std::make_shared<QTableWidget>(),
            std::make_shared<QStatusBar>(),  std::make_shared<QMenuBar>()};
        for (const QObject *part : w.window.findChildren<QObject *>()) {
            if (const auto *menu = qobject_cast<const QMenu *>(part)) {
                told += u"> %1 %2:"_s.arg(menu->objectName(), menu->accessibleName());
                for (const QAction *action : menu->actions())
                    told.last() += u" [%1] %2 %3"_s.arg(
                        action->text(), action->shortcut().toString(),
                        action->isSeparator() || action->menuRole() == QAction::NoRole ? QString()
                                                                                       : u"role"_s);
            }
            const QObject *plain = nullptr;
            for (const auto &candidate : plainOnes)
                plain = part->inherits(candidate->metaObject()->className()) ? candidate.get() : plain;
            if (!plain || part->objectName().isEmpty() || part->inherits("QMenu") ||
                part->objectName().startsWith(u"qt_"_s))
                continue;
            QString line = u"> "_s + part->objectName();
            for (const char *name :
                 {"accessibleName", "accessibleDescription", "text", "toolTip", "textFormat", "alignment",
                  "focusPolicy", "contextMenuPolicy", "selectionMode", "selectionBehavior", "editTriggers",
                  "alternatingRowColors", "showGrid", "wordWrap", "acceptDrops", "checkable", "autoRaise",
                  "sizeGripEnabled"}) {
                const QMetaProperty property =
                    part->metaObject()->property(part->metaObject()->indexOfProperty(name));
                const QVariant value = part->property(name);
                if (value != plain->property(name))
                    line += u" %1=%2"_s.arg(
                        QLatin1String(name),
                        property.isEnumType()
                            ? QString::fromLatin1(property.enumerator().valueToKeys(value.toInt()))
                            : value.toString());
            }
            if (line.contains(u'='))
                told += line;
        }
        shown.clear();
    }

    const QString longName = QString(251, u'w') + u".txt"_s;
    QTemporaryDir host;
    QTemporaryDir stick;
    VaultFixture vault{stick.path()};
    OpenedFile opened;
    QStringList outcome; ///< What an action leads to, besides dialogs.
    QStringList shown;
    WindowHarness w{{usbDrive(u"PENDRIVE"_s, stick.path(), u"/dev/x1"_s)}};
};

/// Where Qt would keep settings; set before Qt asks.
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
        const QString all =
            QString::fromUtf8(readFile(QStringLiteral(TESSARIN_SOURCE_DIR "/tests/ui/stories.txt")));
        for (const QString &story : all.split(u"\n\n"_s, Qt::SkipEmptyParts)) {
            const QStringList lines = story.split(u'\n', Qt::SkipEmptyParts);
            QTest::newRow(lines.first().mid(3).toUtf8()) << lines;
        }
    }
    void everyStoryIsAsWritten()
    {
        QFETCH(const QStringList, story);
        Stage stage(story.first().startsWith(u"== "_s));
        for (const QString &line : story.mid(1)) {
            if (!line.startsWith(u"> "_s))
                stage.act(line);
        }
        if (stage.told == story.mid(1))
            return;
        for (const QString &line : stage.told)
            fprintf(stderr, "%s\n", qPrintable(line));
        for (qsizetype i = 0; i < stage.told.size(); ++i)
            QCOMPARE(stage.told.at(i), story.value(i + 1));
        QCOMPARE(stage.told.size(), story.size() - 1);
    }
};

QTEST_MAIN(WindowStoriesTest)
#include "tst_window_stories.moc"
