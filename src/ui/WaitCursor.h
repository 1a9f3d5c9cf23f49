// Shows the wait cursor while the engine works without a progress display: it derives a key, which takes
// about a second, or has begun what may be over before a progress display is worth while.
#pragma once

#include <QCoreApplication>
#include <QCursor>
#include <QGuiApplication>

namespace Tessarin::UI {

class WaitCursor
{
public:
    WaitCursor()
    {
        QGuiApplication::setOverrideCursor(Qt::WaitCursor);
        // The dialog that was closed just now must not stay on the screen meanwhile.
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    }
    ~WaitCursor() { QGuiApplication::restoreOverrideCursor(); }
    Q_DISABLE_COPY_MOVE(WaitCursor)
};

} // namespace Tessarin::UI
