#pragma once

#include "build/ImportedBook.h"
#include "core/book/BuildRecord.h"
#include "core/settings/ExportSettings.h"

#include <optional>
#include <vector>

namespace folivox {

// What a job of a library book builds from, read from the library when the
// job runs: the book as saved (tracks, chapters, tags with the cover), its
// own settings, the revision being built, and the files its last build made.
struct QueueBuildInput {
    ImportedBook book;
    std::optional<ExportSettings> settings;
    int revision = 0;
    std::vector<BuildRecord::Output> previousBuildOutputs;
};

} // namespace folivox
