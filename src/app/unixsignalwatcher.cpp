// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/unixsignalwatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int g_pipe[2] = { -1, -1 };
constexpr std::array<int, 3> kSignals { SIGTERM, SIGINT, SIGHUP };

void handleSignal(int signalNumber)
{
    // Only async-signal-safe work here: hand the number to the event loop.
    const auto byte = static_cast<char>(signalNumber);
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[1], &byte, 1);
}

} // namespace

UnixSignalWatcher::UnixSignalWatcher(QObject* parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, g_pipe) != 0)
        return;
    m_notifier = new QSocketNotifier(g_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &UnixSignalWatcher::onReadable);

    struct sigaction action = {};
    action.sa_handler = handleSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signalNumber : kSignals)
        ::sigaction(signalNumber, &action, nullptr);
}

UnixSignalWatcher::~UnixSignalWatcher()
{
    for (int signalNumber : kSignals)
        ::signal(signalNumber, SIG_DFL);
    for (int& fd : g_pipe) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
}

void UnixSignalWatcher::onReadable()
{
    char byte = 0;
    while (::read(g_pipe[0], &byte, 1) == 1)
        emit terminationRequested(static_cast<unsigned char>(byte));
}
