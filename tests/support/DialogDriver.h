// Sits in front of the program while an operation runs: answers the dialogs it opens, in order, and notes
// every one that did not come, or that nobody expected.
#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QFileDialog>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QProgressDialog>
#include <QScopedValueRollback>
#include <QTest>
#include <QTimer>

#include <functional>

namespace Tessarin::Tests {

/// One dialog, menu or progress display, and what to do with it.
struct DialogStep
{
    QString title;
    QString text; ///< The whole text of a box, or a label's in another dialog; empty: any.
    std::function<void(QWidget &)> answer;
    bool isProgress = false;
};

/// Clicks the button with this text; false when there is none.
inline bool clickButton(QWidget &dialog, const QString &text)
{
    for (QAbstractButton *button : dialog.findChildren<QAbstractButton *>()) {
        if (button->isVisible() && button->text().remove(u'&') == text) {
            button->click();
            return true;
        }
    }
    return false;
}

inline DialogStep press(const QString &title, const QString &text, const QString &button)
{
    return {title, text, [button](QWidget &dialog) { clickButton(dialog, button); }};
}

/// A warning or information box.
inline DialogStep told(const QString &text, const QString &title = QStringLiteral("Tessarin"))
{
    return press(title, text, QStringLiteral("OK"));
}

inline DialogStep type(const QString &title, const QString &text, const QString &input)
{
    return {title, text, [input](QWidget &dialog) {
                dialog.findChild<QLineEdit *>()->setText(input);
                static_cast<QDialog &>(dialog).accept();
            }};
}

/// A file dialog: absolute paths, or none to cancel.
inline DialogStep pick(const QString &title, const QStringList &paths)
{
    return {title, {}, [paths](QWidget &dialog) {
                auto &fileDialog = static_cast<QDialog &>(dialog);
                if (paths.isEmpty())
                    return fileDialog.reject();
                const QString names =
                    paths.size() == 1 ? paths.first() : u'"' + paths.join(QStringLiteral("\" \"")) + u'"';
                dialog.findChild<QLineEdit *>(QStringLiteral("fileNameEdit"))->setText(names);
                fileDialog.accept();
            }};
}

class DialogDriver : public QObject
{
public:
    explicit DialogDriver(QList<DialogStep> expected) : steps(std::move(expected))
    {
        // Interval 0: an operation lets events run only now and then, and each time counts.
        QObject::connect(&timer, &QTimer::timeout, this, &DialogDriver::look);
        timer.start(0);
    }

    /// What went wrong, or an empty text.
    QString verdict()
    {
        timer.stop();
        for (const DialogStep &step : steps)
            faults += QStringLiteral("missing: [%1] %2\n").arg(step.title, step.text);
        return faults;
    }

private:
    void look()
    {
        QWidget *shown = QApplication::activePopupWidget();
        if (!shown)
            shown = QApplication::activeModalWidget();
        const bool isProgress = qobject_cast<QProgressDialog *>(shown) != nullptr;
        if (!shown || shown == answered || answering ||
            (isProgress && (steps.isEmpty() || !steps.first().isProgress)))
            return;
        if (steps.isEmpty() || steps.first().isProgress != isProgress || !matches(*shown, steps.first())) {
            faults +=
                QStringLiteral("unexpected: [%1] %2\n").arg(shown->windowTitle(), textsOf(*shown).join(u'|'));
            steps.clear();
            shown->close();
            return;
        }
        // Out of the timer's own slot: the answer may open the next dialog, and the timer must go on.
        answering = true;
        const DialogStep step = steps.takeFirst();
        QMetaObject::invokeMethod(
            this,
            [this, shown, step] {
                answering = false;
                const QScopedValueRollback<QWidget *> guard(answered, shown);
                step.answer(*shown);
            },
            Qt::QueuedConnection);
    }

    static QStringList textsOf(const QWidget &dialog)
    {
        if (const auto *box = qobject_cast<const QMessageBox *>(&dialog))
            return {box->text()};
        QStringList texts;
        for (const QLabel *label : dialog.findChildren<QLabel *>())
            texts += label->text();
        return texts;
    }

    static bool matches(const QWidget &shown, const DialogStep &step)
    {
        return shown.windowTitle() == step.title &&
               (step.text.isEmpty() || textsOf(shown).contains(step.text));
    }

    QList<DialogStep> steps;
    QString faults;
    QTimer timer;
    bool answering = false;      ///< An answer is on its way.
    QWidget *answered = nullptr; ///< Whose answer runs just now, maybe with dialogs above it.
};

/// Runs the operation while the dialogs are answered.
inline void drive(const std::function<void()> &operation, const QList<DialogStep> &steps)
{
    DialogDriver driver(steps);
    operation();
    const QString verdict = driver.verdict();
    QVERIFY2(verdict.isEmpty(), qPrintable(verdict));
}

} // namespace Tessarin::Tests
