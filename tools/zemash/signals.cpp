#include "signals.h"

#include "qx/host.h"

#include <csignal>
#include <initializer_list>

namespace zemash {
namespace {

volatile std::sig_atomic_t gInterrupted = 0;
volatile std::sig_atomic_t gEndSignal = 0;

void abandon(int /*signal*/)
{
    gInterrupted = 1;
    QxHost_Stop();
}

void end(int signal)
{
    gEndSignal = signal;
    QxHost_Stop();
}

} // namespace

void catchSignals(bool attended)
{
    struct sigaction action {};
    action.sa_handler = end;
    action.sa_flags = SA_RESTART; // output goes on; waits end all the same
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
    if (attended) {
        action.sa_handler = abandon;
        sigaction(SIGINT, &action, nullptr);
    }
    action.sa_handler = SIG_IGN;
    sigaction(SIGTSTP, &action, nullptr);
}

bool takeInterrupt()
{
    const bool came = gInterrupted != 0;
    gInterrupted = 0;
    return came;
}

int endSignal()
{
    return gEndSignal;
}

void dieBy(int signal)
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
    raise(signal);
}

} // namespace zemash
