// Sets the flag while an operation runs, and tells when it is over.
#include "ui/OperationGuard.h"

#include <QScopedValueRollback>

namespace Tessarin::UI {

void OperationGuard::run(const std::function<void()> &operation)
{
    if (running)
        return;
    {
        const QScopedValueRollback<bool> guard(running, true);
        operation();
        Q_EMIT finishing();
    }
    // Not at once: a row of a list may be what this operation was started from, and a refresh deletes it.
    QMetaObject::invokeMethod(this, &OperationGuard::over, Qt::QueuedConnection);
}

} // namespace Tessarin::UI
