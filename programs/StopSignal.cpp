#include "StopSignal.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

volatile std::sig_atomic_t g_stop = 0;
// A socket pair carries the signal into an event loop: a handler may do no
// more than set a flag and write a byte.
int g_wake[2] = {-1, -1};

void onSignal(int)
{
    g_stop = 1;
    if (g_wake[0] >= 0) {
        const char byte = 1;
        [[maybe_unused]] const ssize_t ignored = ::write(g_wake[0], &byte, 1);
    }
}

} // namespace

bool StopSignal::install()
{
    struct sigaction action {
    };
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND | SA_RESTART; // the second signal takes its default way
    return ::sigaction(SIGINT, &action, nullptr) == 0 && ::sigaction(SIGTERM, &action, nullptr) == 0;
}

bool StopSignal::install(QObject *context, std::function<void()> onStop)
{
    if (g_wake[0] < 0 && ::socketpair(AF_UNIX, SOCK_STREAM, 0, g_wake) != 0)
        return false;
    auto *notifier = new QSocketNotifier(g_wake[1], QSocketNotifier::Read, context);
    QObject::connect(notifier, &QSocketNotifier::activated, context, [notifier, onStop = std::move(onStop)] {
        notifier->setEnabled(false); // once: the byte stays unread
        onStop();
    });
    return install();
}

bool StopSignal::requested()
{
    return g_stop != 0;
}
