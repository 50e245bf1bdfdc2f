#pragma once

#include "chapters/FindReplaceConfig.h"
#include "chapters/FindReplaceResult.h"

#include <chrono>

namespace folivox {

// Find and replace over chapter titles, as plain text or as a regular
// expression, with or without regard to case. In regular-expression mode the
// replacement may refer to groups as $1 or \1 ($0 is the whole match, "$$" a
// dollar sign); plain text replaces literally.
//
// A pattern that doesn't compile gives invalidPattern. A run that takes
// longer than the time limit (250 ms unless set otherwise) gives tooSlow; this
// guards the live preview against patterns with catastrophic backtracking. In
// both cases the titles come back unchanged.
class FindReplaceService {
public:
    static constexpr std::chrono::milliseconds kDefaultTimeLimit{250};

    explicit FindReplaceService(std::chrono::milliseconds timeLimit = kDefaultTimeLimit) : timeLimit_(timeLimit) {}

    FindReplaceResult apply(const QStringList& titles, const FindReplaceConfig& config) const;

private:
    std::chrono::milliseconds timeLimit_;
};

} // namespace folivox
