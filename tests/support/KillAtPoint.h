#pragma once

#include "container/io/FaultInjection.h"

#include <QString>

#include <functional>

#include <sys/wait.h>
#include <unistd.h>

namespace folivox::test {

// Runs op in a child process that dies on the spot (as by kill -9: no
// destructors, no clean-up) when it reaches the fault point `point` for the
// `occurrence`-th time. True when the child died there, false when op
// finished (or threw) without reaching it. Header-only, for the test
// programs that link the container library.
inline bool killedAt(const QString& point, int occurrence, const std::function<void()>& op)
{
    const pid_t pid = ::fork();
    if (pid == 0) {
        int seen = 0;
        FaultInjection::Scope hook([&](const QString& reached) {
            if (reached == point && ++seen == occurrence)
                ::_exit(42);
        });
        try {
            op();
        } catch (...) {
            ::_exit(2);
        }
        ::_exit(3);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 42;
}

inline bool killedAt(const QString& point, const std::function<void()>& op)
{
    return killedAt(point, 1, op);
}

} // namespace folivox::test
