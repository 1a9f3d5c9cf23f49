// A handler may do next to nothing. It writes one byte into a socket whose other end the event loop watches.
#include "platform/TerminationSignals.h"

#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>

#include <sys/socket.h>
#include <unistd.h>

namespace Tessarin::Platform {

namespace {

constexpr std::array handledSignals{SIGTERM, SIGINT, SIGHUP};

struct Sockets
{
    int handler = -1;
    int loop = -1;
};
Sockets sockets;

void handleSignal(int)
{
    const int formerError = errno;
    const char byte = 0;
    // When the socket is full, the loop has enough to wake up for.
    [[maybe_unused]] const ssize_t written = ::write(sockets.handler, &byte, sizeof byte);
    errno = formerError;
}

} // namespace

TerminationSignals::TerminationSignals(QObject *parent) : QObject(parent)
{
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return;
    sockets = {ends[0], ends[1]};
    auto *notifier = new QSocketNotifier(sockets.loop, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        std::array<char, 64> bytes;
        while (::read(sockets.loop, bytes.data(), bytes.size()) > 0) {
        }
        Q_EMIT requested();
    });

    struct sigaction action = {};
    action.sa_handler = handleSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : handledSignals) {
        // Started by nohup, for one, the program is to outlive its terminal.
        struct sigaction former = {};
        if (::sigaction(number, nullptr, &former) == 0 && former.sa_handler != SIG_IGN)
            ::sigaction(number, &action, nullptr);
    }
}

TerminationSignals::~TerminationSignals()
{
    for (const int number : handledSignals) {
        struct sigaction current = {};
        if (::sigaction(number, nullptr, &current) == 0 && current.sa_handler == handleSignal)
            ::signal(number, SIG_DFL);
    }
    ::close(sockets.handler);
    ::close(sockets.loop);
    sockets = {};
}

} // namespace Tessarin::Platform
