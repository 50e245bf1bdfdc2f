#pragma once

#include "core/book/Track.h"

#include <vector>

namespace folivox {

// Receives the tracks of a finished import so that the book's tags can be
// filled from them. firstImport is true for the first import into a book.
class ImportFinalizing {
public:
    virtual ~ImportFinalizing() = default;
    virtual void finalize(const std::vector<Track>& tracks, bool firstImport) = 0;
};

} // namespace folivox
