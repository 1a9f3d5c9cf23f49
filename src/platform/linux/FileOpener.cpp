// The opener is started here instead of by Qt, so that its end can be seen.
#include "platform/FileOpener.h"

#include <QDeadlineTimer>
#include <QDesktopServices>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::Platform {

namespace {

/// On some desktops the opener lasts as long as the program that it found. How that one ends is its own
/// affair.
constexpr int openingMs = 10'000;

} // namespace

FileOpener::FileOpener(QObject *parent) : QObject(parent)
{
    QDesktopServices::setUrlHandler(u"file"_s, this, "open");
}

FileOpener::~FileOpener()
{
    QDesktopServices::unsetUrlHandler(u"file"_s);
}

void FileOpener::open(const QUrl &url)
{
    const QString program = QStandardPaths::findExecutable(u"xdg-open"_s);
    if (program.isEmpty()) {
        // Within a handler this is Qt's own way, which knows of other openers.
        if (!QDesktopServices::openUrl(url))
            Q_EMIT failed();
        return;
    }
    // Without a parent, for it would take with it what is being edited when the window closes.
    auto *opener = new QProcess;
    opener->setProcessChannelMode(QProcess::ForwardedChannels);
    opener->setStandardInputFile(QProcess::nullDevice());
    opener->setChildProcessModifier([] { ::setsid(); }); // nor does the terminal
    connect(opener, &QProcess::finished, this,
            [this, deadline = QDeadlineTimer(openingMs)](int exitCode, QProcess::ExitStatus status) {
                if (!deadline.hasExpired() && (exitCode != 0 || status == QProcess::CrashExit))
                    Q_EMIT failed();
            });
    connect(opener, &QProcess::finished, opener, &QObject::deleteLater);
    connect(opener, &QProcess::errorOccurred, this, [this, opener](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        opener->deleteLater();
        Q_EMIT failed();
    });
    opener->start(program, {url.toString(QUrl::FullyEncoded)});
}

} // namespace Tessarin::Platform
