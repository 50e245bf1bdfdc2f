#pragma once

#include <functional>

namespace folivox::cli {

// Turns SIGINT, SIGTERM and SIGHUP (a closed terminal) into cancellation.
// The signal handler only notes the signal and writes to a pipe; a watcher
// thread then runs the registered callbacks (which cancel tokens and so stop
// child processes) outside signal context. A third signal ends the program
// at once with status 130, after the callbacks of the first had their chance.
//
// For tests of the program as a whole, FOLIVOX_FAULT_SIGNAL="<point>:<signal>"
// (a signal name such as INT, TERM, HUP or KILL, or its number) makes the
// program send itself that signal when its work reaches the named fault point
// (FaultInjection), for example "export.outputPlaced:INT".
class SignalCancellation {
public:
    static void install();
    // Whether a third signal ends the program at once (the default, for a
    // user pressing Ctrl-C again). A build worker turns it off: its parent's
    // death signal arrives once for each thread of the parent that ends
    // after the one that started it (the kernel sends it again at each
    // re-parenting), so a kill -9 of its parent can bring several at once,
    // and the worker must still stop its children and remove its work.
    static void setRepeatsEndProgram(bool end);
    // A cancelling signal has arrived (true from the moment its handler ran).
    static bool cancelled();
    // Runs f on cancellation (at once if already cancelled). Returns an id.
    static int onCancel(std::function<void()> f);
    static void removeCallback(int id);
};

} // namespace folivox::cli
