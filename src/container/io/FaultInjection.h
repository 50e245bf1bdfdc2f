#pragma once

#include <QString>

#include <functional>

namespace folivox {

// Named points inside multi-step file edits. Tests install a hook that
// throws (or ends the process) at a chosen point to stand in for a crash
// there, then check what a reader finds on disk. Without a hook, reaching a
// point does nothing.
//
// The moov rewriter reaches, in order, those of these that its plan needs:
// "rewrite.pinned", "rewrite.leadMerged", "rewrite.grown", "rewrite.wrapped",
// "rewrite.copyWritten", "rewrite.switched", "rewrite.trimmed",
// "rewrite.zeroed", "rewrite.cleaned". The whole-file rewrite reaches
// "copyRewrite.piece" after each piece and "copyRewrite.written" before the
// swap; relocation "relocate.piece", "relocate.moovWritten",
// "relocate.synced"; the put-back "safeReplace.sibling.piece" and
// "safeReplace.inplace.piece".
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
