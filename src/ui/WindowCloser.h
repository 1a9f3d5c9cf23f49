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

    /// The request of somebody at the window. While a question waits for its answer it counts for nothing, as
    /// with any window that a dialog blocks. Long work cannot be answered, so there it waits for the end, and
    /// for the answers to all that is asked or told until then.
    void requestFromUser();

    /// Forgets what requestFromUser() has asked for: something failed, and its user is about to be told.
    void takeBack();

    /// Forgets every request: the window has been asked to close, and stays.
    void cancel();

    /// Once the window has begun to close, Qt would take it away at the next request without asking it. Until
    /// release(), such a request is one like any other.
    void hold();
    void release();

public Q_SLOTS:
    /// Closes the window as soon as no operation runs, whoever sits in front of it. What waits for an answer
    /// meanwhile is answered with what closing it means; what it told goes to standard error.
    void closeSoon();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void tryToClose();

    QWidget *window;
    const OperationGuard &guard;
    QWindow *heldFrame = nullptr; ///< From hold() to release().
    QTimer retryTimer;            ///< Runs while a request waits.
    bool isUrgent = false;        ///< The waiting request does not come from the user.
};

} // namespace Tessarin::UI
