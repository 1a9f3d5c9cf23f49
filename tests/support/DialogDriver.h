// Sits in front of the program while an operation runs: describes every dialog that comes in one line,
// answers those that are expected, in order, and closes any other, so that nothing waits for a person.
#pragma once

#include <QtWidgets>

#include <functional>
#include <utility>

namespace Tessarin::Tests {

using namespace Qt::Literals::StringLiterals;

/// How the description of a dialog begins, and what to do: fill the fields from top to bottom and press the
/// button named last ("senha ; OK"), or name files. "do something" at its beginning tells what comes before.
struct DialogStep
{
    QString beginning;
    QString answer;
    std::function<void(QWidget &)> before = {}; ///< Done first, with the dialog on show.
};

/// "Title | texts | [fields] | buttons", with "*" at the default button and the length of a hidden field.
inline QString describe(const QWidget &shown)
{
    QStringList parts{shown.windowTitle().isEmpty() ? shown.accessibleName() : shown.windowTitle()};
    QStringList buttons;
    if (const auto *files = qobject_cast<const QFileDialog *>(&shown)) {
        parts += files->findChild<QLineEdit *>(u"fileNameEdit"_s)->text();
        return (parts + files->nameFilters()).join(u" | "_s);
    }
    for (const QAction *entry : shown.actions()) // Of a menu.
        parts += (entry->isSeparator() ? u"-"_s : entry->text()) + (entry->isEnabled() ? u""_s : u" (off)"_s);
    for (const QWidget *child : shown.findChildren<QWidget *>()) {
        const auto *label = qobject_cast<const QLabel *>(child);
        const auto *edit = qobject_cast<const QLineEdit *>(child);
        if (label && !label->isHidden() && !label->text().isEmpty()) {
            const bool isRich = label->textFormat() != Qt::PlainText && Qt::mightBeRichText(label->text());
            parts += (isRich ? u"<rich>"_s : QString()) + label->text().replace(u'\n', u'¶');
        } else if (edit) {
            const bool isHidden = edit->echoMode() == QLineEdit::Password;
            QString text = isHidden ? u"hidden %1"_s.arg(edit->text().size()) : edit->text();
            if (edit->hasSelectedText() && shown.focusWidget() == edit)
                text = isHidden ? u"chosen "_s + text : text.insert(edit->selectionEnd(), u'|');
            parts += u'[' + text + u']';
        } else if (const auto *box = qobject_cast<const QComboBox *>(child))
            parts += u'[' + box->currentText() + u']';
        else if (const auto *button = qobject_cast<const QPushButton *>(child))
            buttons += button->text().remove(u'&') + (button->isDefault() ? u"*"_s : QString());
    }
    buttons.sort();
    return (parts << buttons.join(u' ')).join(u" | "_s) + (shown.width() > 1000 ? u" (wide)"_s : QString());
}

class DialogDriver : public QObject
{
public:
    explicit DialogDriver(const QList<DialogStep> &expected) : steps(expected)
    {
        // Interval 0: an operation lets events run only now and then, and each time counts.
        QObject::connect(&timer, &QTimer::timeout, this, &DialogDriver::look);
        timer.start(0);
    }

    QList<DialogStep> steps; ///< Those that did not come yet.
    QStringList seen;        ///< Every dialog, described, with its answer.

private:
    void look()
    {
        if (deadline.hasExpired())
            qFatal("a dialog does not close: %s", qPrintable(seen.join(u'\n')));
        QWidget *const menu = QApplication::activePopupWidget();
        QWidget *const shown = menu ? menu : QApplication::activeModalWidget();
        if (!shown && !QApplication::activeWindow()) {
            for (QWidget *window : QApplication::topLevelWidgets())
                window->activateWindow();
        }
        if (!shown || shown == answered)
            return;
        const QString description = describe(*shown);
        const bool isExpected = !steps.isEmpty() && description.startsWith(steps.first().beginning);
        if (qobject_cast<QProgressDialog *>(shown) && !(isExpected && steps.first().before)) {
            if (seen.filter(description).isEmpty())
                seen += description;
            return;
        }
        if (!isExpected) {
            seen += description + u" <- nobody expected this"_s;
            shown->close();
            return;
        }
        seen += description + (steps.first().answer.isEmpty() ? QString() : u" <- "_s + steps.first().answer);
        // Out of the timer's own slot: the answer may open the next dialog, and the timer must go on.
        const auto reply = [this, shown, step = steps.takeFirst(), below = std::exchange(answered, shown)] {
            if (step.before)
                step.before(*shown);
            if (!step.answer.isEmpty())
                answer(*shown, step.answer);
            answered = below;
        };
        QMetaObject::invokeMethod(this, reply, Qt::QueuedConnection);
    }

    static void answer(QWidget &dialog, const QString &text)
    {
        if (text == u"close"_s)
            return static_cast<void>(dialog.close());
        if (auto *files = qobject_cast<QFileDialog *>(&dialog)) {
            const QString paths = u'"' + QString(text).replace(u", "_s, u"\" \""_s) + u'"';
            files->findChild<QLineEdit *>(u"fileNameEdit"_s)->setText(paths);
            return static_cast<QDialog *>(files)->accept();
        }
        QStringList parts = text.split(u" ; "_s);
        if (parts.constFirst().startsWith(u"do "_s))
            parts.removeFirst();
        const QString buttonText = parts.isEmpty() ? QString() : parts.takeLast();
        const QList<QLineEdit *> edits = dialog.findChildren<QLineEdit *>();
        if (auto *box = dialog.findChild<QComboBox *>(); box && !parts.isEmpty())
            box->setCurrentText(parts.takeFirst());
        for (qsizetype i = 0; i < parts.size(); ++i)
            edits.at(i)->setText(QString(parts.at(i)).replace(u'¶', u'\n'));
        for (QAbstractButton *button : dialog.findChildren<QAbstractButton *>()) {
            if (button->isVisible() && button->text().remove(u'&') == buttonText)
                return button->click();
        }
    }

    QTimer timer;
    const QDeadlineTimer deadline{std::max(20000, qEnvironmentVariableIntValue("QTEST_FUNCTION_TIMEOUT"))};
    QWidget *answered = nullptr; ///< Whose answer is on its way or runs, maybe with dialogs above it.
};

} // namespace Tessarin::Tests
