// Closes the main window at a moment when it can close: close requests come from the frame's button, the X
// server, termination signals and the end of the desktop session, whatever the window is doing just then.
#pragma once

#include <QObject>
#include <QTimer>

class QWidget;
class QWindow;

namespace Tessarin::UI {

class OperationGuard;

class WindowCloser : public QObject
{
    Q_OBJECT

public:
    /// Both outlive the closer.
    WindowCloser(QWidget *windowToClose, const OperationGuard &operations);

    /// Whether a close request waits for the end of the operation.
    [[nodiscard]] bool isWaiting() const { return retryTimer.isActive(); }

    /// Keeps the request until no operation runs. Dialogs are declined meanwhile.
    void wait() { retryTimer.start(); }

    /// Forgets the request: the user has been told why the window stays.
    void cancel() { retryTimer.stop(); }

    /// The request of a window manager. While a question waits for its answer it counts for nothing, as with
    /// any window that a dialog blocks; long work cannot be answered, so there it waits.
    void requestFromFrame();

    /// Once the window has begun to close, Qt would take it away at the next request without asking it. Until
    /// release(), such a request is one like any other.
    void hold();
    void release();

public Q_SLOTS:
    /// Closes the window as soon as no operation runs. What waits for an answer meanwhile is answered with
    /// what closing it means.
    void closeSoon();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *window;
    const OperationGuard &guard;
    QWindow *heldFrame = nullptr; ///< From hold() to release().
    QTimer retryTimer;            ///< Runs while a request waits.
};

} // namespace Tessarin::UI
