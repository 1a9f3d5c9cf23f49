// Tells when a file system was mounted or unmounted: a drive came or went. The kernel says so by itself;
// nothing is asked for again and again.
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
    /// Changes from now on are told, once the event loop runs. Where there is no mount table, none ever is.
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
