// Shows long work that cannot be cancelled.
#include "ui/ProgressDialog.h"

#include "ui/Formatting.h"
#include "ui/Translated.h"
#include "ui/WrappingLabel.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QGuiApplication>
#include <QProgressBar>
#include <QThread>
#include <QWindow>

#include <limits>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr int dialogWidth = 460;
constexpr int barSteps = 1000;
constexpr int windowManagerTimeoutMs = 300;
constexpr int longWorkMs = 500;

QString closingNote()
{
    return translated("A janela será fechada assim que o trabalho terminar.");
}

/// Lets events run until the window manager has done its part, or takes too long.
template <typename Condition>
void await(Condition isMet)
{
    const QDeadlineTimer deadline(windowManagerTimeoutMs);
    while (!isMet() && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
        QThread::msleep(1);
    }
}

} // namespace

ProgressDialog::ProgressDialog(QWidget *parent, const QString &title, const QString &text,
                               Qt::WindowModality modality)
    : QProgressDialog(parent)
{
    build(title, modality);
    begin(text);
}

ProgressDialog::ProgressDialog(QWidget *parent, const QString &title) : QProgressDialog(parent)
{
    build(title, Qt::ApplicationModal);
    waitCursor.emplace();
    sinceStart.start();
}

void ProgressDialog::build(const QString &title, Qt::WindowModality modality)
{
    setObjectName(QStringLiteral("progressDialog"));
    setWindowTitle(title);
    setWindowModality(modality);
    setLabel(new WrappingLabel(this));
    findChild<QProgressBar *>()->setAccessibleName(title);
    setCancelButton(nullptr);
    setRange(0, barSteps);
    // Not by itself: it would guess how long the work takes, and show sooner.
    setMinimumDuration(std::numeric_limits<int>::max());
    setAutoClose(false);
    setAutoReset(false);
    setFixedWidth(dialogWidth);
}

void ProgressDialog::begin(const QString &text)
{
    waitCursor.reset();
    // A file dialog may have closed just now, and the keyboard be on its way back. A modal window that comes
    // and goes meanwhile makes Qt miss it: the window would look active with dead shortcuts.
    await([this] { return parentWidget() == nullptr || parentWidget()->isActiveWindow(); });
    setMinimumDuration(0);
    showText(text);
    setValue(0);
    show();
    // Else a slow drive would leave the dialog blank until its first block is through.
    await([this] { return windowHandle()->isExposed(); });
    QCoreApplication::processEvents();
}

void ProgressDialog::report(qint64 doneBytes, qint64 totalBytes, const QString &text)
{
    if (!isVisible()) {
        if (sinceStart.elapsed() < longWorkMs || doneBytes >= totalBytes)
            return;
        begin(text);
    }
    showText(text);
    setValue(totalBytes > 0 ? static_cast<int>(doneBytes * barSteps / totalBytes) : 0);
    // setValue() lets events run only when the bar moves.
    QCoreApplication::processEvents();
}

std::function<void(qint64, qint64, const QString &)> ProgressDialog::reporter(const QString &text)
{
    struct Pass
    {
        QString subject;
        qint64 doneBytes = 0;
        int number = 1;
    };
    // What is gone through several times would seem to lose ground: each time goes by its number.
    return [this, text, last = Pass()](qint64 doneBytes, qint64 totalBytes, const QString &subject) mutable {
        if (subject != last.subject)
            last = {.subject = subject};
        else if (doneBytes < last.doneBytes)
            ++last.number;
        last.doneBytes = doneBytes;
        const QString name = shownName(subject);
        report(doneBytes, totalBytes,
               text.arg(last.number == 1 ? name
                                         : translated("%1, etapa %2").arg(name, QString::number(last.number)),
                        formatFileSize(doneBytes), formatFileSize(totalBytes)));
    };
}

void ProgressDialog::announceClosing()
{
    if (closesAfterwards)
        return;
    closesAfterwards = true;
    showText(workText);
    findChild<QProgressBar *>()->setAccessibleDescription(closingNote());
}

void ProgressDialog::showText(const QString &text)
{
    workText = text;
    setLabelText(closesAfterwards ? text + u"\n\n"_s + closingNote() : text);
}

ProgressDialog::~ProgressDialog()
{
    if (!isVisible())
        return;
    setValue(maximum());
    const bool isInUse = QGuiApplication::applicationState() == Qt::ApplicationActive;
    hide();
    // A window manager that was about to hand the keyboard to this dialog, from a question just answered,
    // leaves it with nobody.
    if (isInUse && parentWidget() != nullptr)
        parentWidget()->activateWindow();
}

void ProgressDialog::reject() {}

void ProgressDialog::closeEvent(QCloseEvent *event)
{
    event->ignore();
}

} // namespace Tessarin::UI
