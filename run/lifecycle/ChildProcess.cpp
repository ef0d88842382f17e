// fork/waitpid supervision with async-signal-safe handlers: a handler only
// records the signal and kills the child.
#include "ChildProcess.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>

namespace isodata_run {
namespace {

constexpr int kWatched[] = {SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t g_received = 0;
volatile pid_t g_child = 0;
struct sigaction g_previous[3];

void OnSignal(int signal) {
    if (g_received == 0) g_received = signal;
    const pid_t child = g_child;
    if (child > 0) kill(child, SIGKILL);
}

sigset_t WatchedSet() {
    sigset_t set;
    sigemptyset(&set);
    for (int s : kWatched) sigaddset(&set, s);
    return set;
}

// The status of a child whose body returned; any other comes from outside
// the run's own code, such as a sanitizer that caught a fault in the plug-in.
constexpr int kFinished = 0;

[[noreturn]] void BecomeChild(pid_t parent, const sigset_t& mask, const std::function<void()>& body) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);  // the parent is already gone
    for (int s : kWatched) signal(s, SIG_DFL);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    body();
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    _exit(kFinished);  // nothing of the parent's state may be torn down twice
}

} // namespace

InterruptWatch::InterruptWatch() {
    g_received = 0;
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    for (int i = 0; i < 3; ++i) sigaction(kWatched[i], &action, &g_previous[i]);
}

InterruptWatch::~InterruptWatch() {
    for (int i = 0; i < 3; ++i) sigaction(kWatched[i], &g_previous[i], nullptr);
}

int InterruptWatch::Received() const { return g_received; }

SignalsHeld::SignalsHeld() {
    const sigset_t set = WatchedSet();
    sigprocmask(SIG_BLOCK, &set, &previous_);
}

SignalsHeld::~SignalsHeld() { sigprocmask(SIG_SETMASK, &previous_, nullptr); }

ChildEnd RunInChild(const InterruptWatch& watch, const std::function<void()>& body) {
    ChildEnd end;
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    const sigset_t set = WatchedSet();
    sigset_t mask;
    sigprocmask(SIG_BLOCK, &set, &mask);
    const pid_t parent = getpid();
    const pid_t child = watch.Received() ? -1 : fork();
    if (child == 0) BecomeChild(parent, mask, body);
    const int forkError = errno;
    if (child > 0) g_child = child;
    sigprocmask(SIG_SETMASK, &mask, nullptr);  // a signal held back meanwhile lands now
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    g_child = 0;
    if (watch.Received()) {
        end.kind = ChildEnd::Kind::Interrupted;
        end.signal = watch.Received();
    } else if (child < 0) {
        end.kind = ChildEnd::Kind::ForkFailed;
        end.error = forkError;
    } else if (WIFSIGNALED(status)) {
        const int s = WTERMSIG(status);
        end.kind = (s == SIGINT || s == SIGTERM || s == SIGHUP) ? ChildEnd::Kind::Interrupted : ChildEnd::Kind::Crashed;
        end.signal = s;
    } else if (WEXITSTATUS(status) != kFinished) {
        end.kind = ChildEnd::Kind::ExitedStrangely;
        end.status = WEXITSTATUS(status);
    }
    return end;
}

} // namespace isodata_run
