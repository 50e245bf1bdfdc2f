#pragma once

#include "queue/run/QueueBookSource.h"

namespace folivox {

class LibraryStore;

// A library that the process holds open as the queue's book source (the
// desktop application, whose window keeps the library's lock): a job reads
// its book from the store, pending edits of the open book included.
// LibraryStore is thread-safe, so the queue's run thread may ask.
class LibraryStoreBookSource final : public QueueBookSource {
public:
    explicit LibraryStoreBookSource(LibraryStore& store);

    QueueBuildInput input(const QUuid& bookID) override;

private:
    LibraryStore& store_;
};

} // namespace folivox
