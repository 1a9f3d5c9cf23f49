// Tries again every few milliseconds while a close request waits: dialogs may come and go until the operation
// ends.
#include "ui/WindowCloser.h"

#include "ui/OperationGuard.h"
#include "ui/ProgressDialog.h"

#include <QApplication>
#include <QEvent>
#include <QMessageBox>
#include <QWindow>

#include <cstdio>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr int retryIntervalMs = 20;

/// What a box tells would be lost with it. A question tells nothing that has happened.
void writeToStandardError(const QWidget *dialog)
{
    const auto *box = qobject_cast<const QMessageBox *>(dialog);
    if (box == nullptr || box->icon() == QMessageBox::Question)
        return;
    const QString told = u"Tessarin: %1\n%2"_s.arg(box->text(), box->informativeText()).trimmed();
    std::fprintf(stderr, "%s\n", qUtf8Printable(told));
}

} // namespace

WindowCloser::WindowCloser(QWidget *windowToClose, const OperationGuard &operations)
    : window(windowToClose), guard(operations)
{
    retryTimer.setInterval(retryIntervalMs);
    connect(&retryTimer, &QTimer::timeout, this, &WindowCloser::tryToClose);
}

void WindowCloser::requestFromUser()
{
    const QWidget *dialog = QApplication::activeModalWidget();
    if (dialog == nullptr || qobject_cast<const ProgressDialog *>(dialog) != nullptr)
        retryTimer.start();
}

void WindowCloser::takeBack()
{
    if (!isUrgent)
        cancel();
}

void WindowCloser::cancel()
{
    retryTimer.stop();
    isUrgent = false;
}

void WindowCloser::closeSoon()
{
    isUrgent = true;
    retryTimer.start();
    tryToClose();
}

void WindowCloser::tryToClose()
{
    if (QWidget *popup = QApplication::activePopupWidget()) {
        popup->close();
        return;
    }
    if (QWidget *dialog = QApplication::activeModalWidget()) {
        if (auto *progress = qobject_cast<ProgressDialog *>(dialog)) {
            progress->announceClosing();
        } else if (isUrgent) {
            writeToStandardError(dialog);
            dialog->close();
        }
        return;
    }
    if (guard.isRunning())
        return;
    // Before closing: the warning that the vault stays open is not to be closed at once.
    cancel();
    window->close();
}

void WindowCloser::hold()
{
    heldFrame = window->windowHandle();
    if (heldFrame != nullptr)
        heldFrame->installEventFilter(this);
}

void WindowCloser::release()
{
    if (heldFrame != nullptr)
        heldFrame->removeEventFilter(this);
    heldFrame = nullptr;
}

bool WindowCloser::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != heldFrame || event->type() != QEvent::Close)
        return QObject::eventFilter(watched, event);
    event->ignore();
    requestFromUser();
    return true;
}

} // namespace Tessarin::UI
