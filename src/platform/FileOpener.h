// Opens files with the desktop's program for them, and hears when there is none.
#pragma once

#include <QObject>

class QUrl;

namespace Tessarin::Platform {

/// While it lives, QDesktopServices::openUrl() opens local files by way of it. By itself that starts the
/// desktop's opener and never learns how it ended, but it is the opener that finds no program for a kind of
/// file. At most one at a time.
class FileOpener : public QObject
{
    Q_OBJECT

public:
    explicit FileOpener(QObject *parent = nullptr);
    ~FileOpener() override;

public Q_SLOTS:
    void open(const QUrl &url);

Q_SIGNALS:
    /// Nothing has opened a file that was to be opened a moment ago.
    void failed();
};

} // namespace Tessarin::Platform
