#pragma once

#include "core/json/EnumNames.h"
#include "process/CancellationToken.h"

#include <exception>

namespace folivox {

// What kind of failure ended a build step, read from the error's type and
// kind, never from its text: the driver retries a damaged source, stops on a
// cancel and rewrites a full disk into a message naming the folder.
class ExportFailureClassifier {
public:
    enum class Kind {
        // The user (or the program's shutdown) stopped the build.
        cancelled,
        // A disk being written filled up.
        outOfSpace,
        // A copy path met a source whose container is damaged: an encode can still read it.
        corruptedSource,
        // Anything else: the error is reported as it stands.
        other,
    };

    // Any error counts as a cancel once the token is cancelled: a child
    // stopped by the cancel fails in its own words.
    static Kind classify(const std::exception_ptr& error, const CancellationToken& token);
};

template<>
struct EnumNames<ExportFailureClassifier::Kind> {
    static constexpr const char* typeName = "ExportFailureClassifier.Kind";
    static constexpr std::array items{
        std::pair{ExportFailureClassifier::Kind::cancelled, "cancelled"},
        std::pair{ExportFailureClassifier::Kind::outOfSpace, "outOfSpace"},
        std::pair{ExportFailureClassifier::Kind::corruptedSource, "corruptedSource"},
        std::pair{ExportFailureClassifier::Kind::other, "other"},
    };
};

} // namespace folivox
