#pragma once

#include <QString>

#include <optional>

namespace folivox {

// How one run of a helper tool (mp4tags, mp4art, mp4chaps) ended. A failure
// is this value; the caller decides whether to throw.
struct ToolRunResult {
    // Exit 0, not cancelled, not timed out.
    bool success = false;
    // The text a user can act on; set on every failure.
    std::optional<QString> error;
    // Wall time in seconds.
    double duration = 0;
    QString standardOutput;
    QString standardError;
    // The exit status, or the number of the signal that ended the child.
    int terminationStatus = 0;
    bool timedOut = false;
    bool cancelled = false;
};

} // namespace folivox
