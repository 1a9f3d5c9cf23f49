// Tries again every few milliseconds while a close request waits: dialogs may come and go until the operation
// ends.
#include "ui/WindowCloser.h"

#include "ui/OperationGuard.h"
#include "ui/ProgressDialog.h"

#include <QApplication>
#include <QEvent>
#include <QWindow>

namespace Tessarin::UI {

namespace {

constexpr int retryIntervalMs = 20;

} // namespace

WindowCloser::WindowCloser(QWidget *windowToClose, const OperationGuard &operations)
    : window(windowToClose), guard(operations)
{
    retryTimer.setInterval(retryIntervalMs);
    connect(&retryTimer, &QTimer::timeout, this, &WindowCloser::closeSoon);
}

void WindowCloser::requestFromFrame()
{
    const QWidget *dialog = QApplication::activeModalWidget();
    if (dialog == nullptr || qobject_cast<const ProgressDialog *>(dialog) != nullptr)
        wait();
}

void WindowCloser::closeSoon()
{
    wait();
    QWidget *waiting = QApplication::activePopupWidget();
    if (waiting == nullptr)
        waiting = QApplication::activeModalWidget();
    if (waiting != nullptr) {
        waiting->close(); // Progress dialogs refuse.
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
    requestFromFrame();
    return true;
}

} // namespace Tessarin::UI
