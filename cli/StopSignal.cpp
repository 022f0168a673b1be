#include "StopSignal.h"

#include <csignal>

namespace {

volatile std::sig_atomic_t g_stop = 0;

void onSignal(int)
{
    g_stop = 1;
}

} // namespace

void StopSignal::install()
{
    struct sigaction action {
    };
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND | SA_RESTART; // the second signal takes its default way
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool StopSignal::requested()
{
    return g_stop != 0;
}
