#pragma once

#include "build/BuildFailure.h"
#include "build/BuildPlan.h"
#include "build/BuildResult.h"

namespace folivox::cli {

// How `folivox build` shows its outcome: lines for a person, or one JSON
// document on stdout for a script, for a success and for every failure.
class BuildResultPrinter {
public:
    static void printSuccess(const BuildResult& result, bool json);
    static void printPlan(const BuildPlan& plan, bool json);
    // Prints the failure (the message always on stderr; with json also an
    // error document on stdout) and returns the exit status it stands for.
    static int printFailure(const BuildFailure& failure, bool json, bool quiet = false);
    static int exitStatus(const BuildFailure& failure);
};

} // namespace folivox::cli
