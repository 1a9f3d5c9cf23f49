// The signals that ask the program to end, brought into the event loop: decrypted copies must not stay behind
// because a terminal was closed or the machine is shutting down.
#pragma once

#include <QObject>

namespace Tessarin::Platform {

/// While it lives, SIGTERM, SIGINT and SIGHUP no longer end the process. At most one at a time.
class TerminationSignals : public QObject
{
    Q_OBJECT

public:
    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;

Q_SIGNALS:
    /// One of them came; perhaps several.
    void requested();
};

} // namespace Tessarin::Platform
