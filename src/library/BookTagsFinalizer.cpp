#include "library/BookTagsFinalizer.h"

#include "import/BookTagMerger.h"

namespace folivox {

void BookTagsFinalizer::finalize(const std::vector<Track>& tracks, bool firstImport)
{
    if (firstImport)
        metadata_ = tagsOf(tracks, fallbackTitle_);
}

BookMetadata BookTagsFinalizer::tagsOf(const std::vector<Track>& tracks, const QString& fallbackTitle)
{
    return BookTagMerger::merge({}, tracks, fallbackTitle);
}

} // namespace folivox
