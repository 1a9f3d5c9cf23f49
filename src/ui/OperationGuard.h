// Sees to it that one operation runs at a time. While one runs, its dialogs and its progress display let
// events through, and events could start a second one in the middle of it.
#pragma once

#include <QObject>

#include <functional>

namespace Tessarin::UI {

class OperationGuard : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    [[nodiscard]] bool isRunning() const { return running; }

    /// Runs the operation, unless one is running already; then nothing happens.
    void run(const std::function<void()> &operation);

Q_SIGNALS:
    /// The operation has done its work, and still keeps others from starting.
    void finishing();

    /// An operation is over and control is back in the event loop: the time for what had to wait. The next
    /// one may have started already.
    void over();

private:
    bool running = false;
};

} // namespace Tessarin::UI
