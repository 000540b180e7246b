#include "cli/SignalWatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kestrova::cli {

namespace {
int g_pipe[2] = {-1, -1};

void onSignal(int sig)
{
    const char c = static_cast<char>(sig);
    [[maybe_unused]] const ssize_t n = ::write(g_pipe[0], &c, 1);
}
} // namespace

SignalWatcher::SignalWatcher(std::function<void(int)> handler, QObject* parent)
    : QObject(parent), m_onSignal(std::move(handler))
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, g_pipe) != 0) {
        return;
    }
    m_notifier = new QSocketNotifier(g_pipe[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char c = 0;
        while (::read(g_pipe[1], &c, 1) == 1) {
            if (m_received == 0) {
                m_received = static_cast<unsigned char>(c);
            }
            m_onSignal(static_cast<unsigned char>(c));
        }
    });
    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &sa, nullptr);
    ::sigaction(SIGTERM, &sa, nullptr);
}

SignalWatcher::~SignalWatcher()
{
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    delete m_notifier;
    m_notifier = nullptr;
    for (int& fd : g_pipe) {
        if (fd >= 0) {
            ::close(fd);
            fd = -1;
        }
    }
}

} // namespace kestrova::cli
