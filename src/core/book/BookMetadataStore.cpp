#include "core/book/BookMetadataStore.h"

namespace folivox {

void BookMetadataStore::setMetadata(BookMetadata metadata)
{
    metadata_ = std::move(metadata);
    if (onChange)
        onChange();
}

void BookMetadataStore::reset()
{
    setMetadata(BookMetadata());
}

} // namespace folivox
