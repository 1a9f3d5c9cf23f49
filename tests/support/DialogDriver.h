// Sits in front of the program while an operation runs: answers the dialogs it opens, in order, and notes
// every one that did not come, or that nobody expected.
#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QProgressDialog>
#include <QScopedValueRollback>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <functional>

namespace Tessarin::Tests {

using namespace Qt::Literals::StringLiterals;

/// One dialog, menu or progress display, and what to do with it.
struct DialogStep
{
    QString title;
    QString text; ///< How one of its labels begins.
    std::function<void(QWidget &)> answer;
};

/// Clicks the button with this text.
inline DialogStep press(const QString &title, const QString &text, const QString &buttonText)
{
    return {title, text, [buttonText](QWidget &dialog) {
                for (QAbstractButton *button : dialog.findChildren<QAbstractButton *>()) {
                    if (button->isVisible() && button->text().remove(u'&') == buttonText)
                        return button->click();
                }
            }};
}

/// A warning or information box.
inline DialogStep told(const QString &text, const QString &title = u"Tessarin"_s)
{
    return press(title, text, u"OK"_s);
}

/// Fills the dialog's line edits, from top to bottom, and accepts it.
inline DialogStep type(const QString &title, const QStringList &inputs, const QString &button = u"OK"_s)
{
    return {title, {}, [=](QWidget &dialog) {
                const QList<QLineEdit *> edits = dialog.findChildren<QLineEdit *>();
                for (qsizetype i = 0; i < inputs.size(); ++i)
                    edits.at(i)->setText(inputs.at(i));
                press({}, {}, button).answer(dialog);
            }};
}

/// A file dialog: absolute paths.
inline DialogStep pick(const QString &title, const QStringList &paths)
{
    return {title, {}, [paths](QWidget &dialog) {
                const QString names =
                    paths.size() == 1 ? paths.first() : u'"' + paths.join(u"\" \""_s) + u'"';
                dialog.findChild<QLineEdit *>(u"fileNameEdit"_s)->setText(names);
                static_cast<QDialog &>(dialog).accept();
            }};
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
    QString faults;

private:
    void look()
    {
        QWidget *shown = QApplication::activePopupWidget();
        if (!shown)
            shown = QApplication::activeModalWidget();
        if (!shown || shown == answered || answering)
            return;
        if (steps.isEmpty() || !matches(*shown, steps.first())) {
            // Most progress displays come and go by themselves.
            if (qobject_cast<QProgressDialog *>(shown))
                return;
            faults += u"unexpected: "_s + shown->windowTitle();
            steps.clear();
            shown->close();
            return;
        }
        // Out of the timer's own slot: the answer may open the next dialog, and the timer must go on.
        answering = true;
        const auto answer = [this, shown, step = steps.takeFirst()] {
            answering = false;
            const QScopedValueRollback<QWidget *> guard(answered, shown);
            step.answer(*shown);
        };
        QMetaObject::invokeMethod(this, answer, Qt::QueuedConnection);
    }

    static bool matches(const QWidget &shown, const DialogStep &step)
    {
        const QList<QLabel *> labels = shown.findChildren<QLabel *>();
        return shown.windowTitle() == step.title &&
               (step.text.isEmpty() || std::ranges::any_of(labels, [&](const QLabel *label) {
                    return label->text().startsWith(step.text);
                }));
    }

    QTimer timer;
    bool answering = false;      ///< An answer is on its way.
    QWidget *answered = nullptr; ///< Whose answer runs just now, maybe with dialogs above it.
};

/// Runs the operation while the dialogs are answered.
inline void drive(const std::function<void()> &operation, const QList<DialogStep> &steps)
{
    DialogDriver driver(steps);
    operation();
    QVERIFY2(driver.faults.isEmpty(), qPrintable(driver.faults));
    QVERIFY2(driver.steps.isEmpty(), qPrintable(u"missing: "_s + driver.steps.value(0).title));
}

} // namespace Tessarin::Tests
