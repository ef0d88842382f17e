// Runs the classification in a child process while this process watches.
// The child holds nothing that this process cannot clean up, so an
// interruption simply ends it at once; a crash of the plug-in ends only the
// child and is reported instead of taking its host down with it.
#pragma once

#include <csignal>
#include <functional>

namespace isodata_run {

// Catches SIGINT, SIGTERM and SIGHUP from construction to destruction: the
// first one received is remembered and ends a running child at once.
class InterruptWatch {
public:
    InterruptWatch();
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    // The signal received so far, or 0.
    int Received() const;
};

// Holds the watched signals back for its lifetime, so that a step such as
// publishing the result is never cut in half; they arrive afterwards.
class SignalsHeld {
public:
    SignalsHeld();
    ~SignalsHeld();
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t previous_;
};

struct ChildEnd {
    enum class Kind {
        Finished,         // body returned and the child exited normally
        ExitedStrangely,  // the child exited with a status of its own (status)
        Crashed,          // a signal other than the watched ones killed it (signal)
        Interrupted,      // a watched signal ended the run (signal)
        ForkFailed,       // no child was started (error holds errno)
    } kind = Kind::Finished;
    int status = 0;
    int signal = 0;
    int error = 0;
};

// Runs body in a forked child and returns how it ended. The child dies with
// this process and takes the default action for the watched signals.
ChildEnd RunInChild(const InterruptWatch& watch, const std::function<void()>& body);

} // namespace isodata_run
