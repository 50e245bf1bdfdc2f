#pragma once

#include "core/book/BookMetadata.h"

#include <functional>

namespace folivox {

// The open book's tags, as the views show and edit them. A reset puts every
// published field back to an empty book's. Used on one thread.
class BookMetadataStore {
public:
    const BookMetadata& metadata() const { return metadata_; }
    void setMetadata(BookMetadata metadata);
    // Back to an empty book: no tags, no cover.
    void reset();

    // Called after every change.
    std::function<void()> onChange;

private:
    BookMetadata metadata_;
};

} // namespace folivox
