// Notices when a file system is mounted or unmounted, since a drive may have come or gone. The kernel
// notifies; nothing is polled.
#pragma once

#include <QFile>
#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <memory>

namespace Tessarin::Platform::Linux {

class MountWatcher : public QObject
{
    Q_OBJECT

public:
    /// Changes from now on are signalled from the event loop. Without a mount table there are none.
    explicit MountWatcher(QObject *parent = nullptr);

Q_SIGNALS:
    /// The mount table has changed, and has been still for a moment since.
    void changed();

private:
    QFile mountTable;
    std::unique_ptr<QSocketNotifier> notifier; ///< Goes before the file that it watches.
    QTimer settling;                           ///< Runs from a change until changed().
};

} // namespace Tessarin::Platform::Linux
