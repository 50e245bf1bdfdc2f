#pragma once

#include <QString>

#include <functional>

namespace folivox {

// Named points inside multi-step file edits (after each write of an append
// rewrite, a relocation or a put-back). Tests install a hook that throws at a
// chosen point to stand in for a crash there, then check what a reader finds
// on disk. Without a hook, reaching a point does nothing.
class FaultInjection {
public:
    using Hook = std::function<void(const QString& point)>;

    static void reach(const char* point);

    // Installs a hook for its lifetime.
    class Scope {
    public:
        explicit Scope(Hook hook);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };
};

} // namespace folivox
