#pragma once

#include <functional>

namespace folivox::cli {

// Turns SIGINT and SIGTERM into cancellation. The signal handler only writes
// to a pipe; a watcher thread then runs the registered callbacks (which
// cancel tokens and so stop child processes) outside signal context.
// A second signal while the first is being handled ends the program at once
// with status 130, after the callbacks of the first had their chance.
class SignalCancellation {
public:
    static void install();
    static bool cancelled();
    // Runs f on cancellation (at once if already cancelled). Returns an id.
    static int onCancel(std::function<void()> f);
    static void removeCallback(int id);
};

} // namespace folivox::cli
