#include "queue/run/LibraryStoreBookSource.h"

#include "library/BookBuildInputs.h"
#include "library/files/LibraryPersistenceError.h"
#include "library/LibraryStore.h"
#include "queue/records/QueueRunError.h"

namespace folivox {

LibraryStoreBookSource::LibraryStoreBookSource(LibraryStore& store)
    : store_(store)
{
}

QueueBuildInput LibraryStoreBookSource::input(const QUuid& bookID)
{
    if (!store_.summary(bookID))
        throw QueueRunError::bookRemoved();
    BookBuildInputs inputs;
    try {
        inputs = store_.buildInputs(bookID);
    } catch (const LibraryPersistenceError& e) {
        if (e.kind() == LibraryPersistenceError::Kind::bookNotFound)
            throw QueueRunError::bookRemoved();
        throw;
    }
    QueueBuildInput input;
    input.book = ImportedBook{inputs.tracks, inputs.bookmarks, inputs.metadata};
    input.settings = inputs.settings;
    input.revision = inputs.revision;
    return input;
}

} // namespace folivox
