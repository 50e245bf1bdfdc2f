#include "queue/run/LibraryQueueBookSource.h"

#include "build/LibraryBookBuild.h"
#include "library/BookBuildInputs.h"
#include "library/files/LibraryPersistence.h"
#include "library/LibraryStore.h"
#include "queue/records/QueueRunError.h"

namespace folivox {

LibraryQueueBookSource::LibraryQueueBookSource(QString libraryRoot)
    : root_(std::move(libraryRoot))
{
}

QueueBuildInput LibraryQueueBookSource::input(const QUuid& bookID)
{
    auto persistence = std::make_shared<LibraryPersistence>(root_);
    LibraryStore store(persistence);
    store.load();
    if (!store.summary(bookID))
        throw QueueRunError::bookRemoved();
    BookBuildInputs inputs;
    try {
        inputs = store.buildInputs(bookID);
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

void LibraryQueueBookSource::recordBuild(const QUuid& bookID, int revision, const QStringList& outputFiles,
                                         const ExportSettings& settings)
{
    BookBuildInputs inputs;
    inputs.bookID = bookID;
    inputs.revision = revision;
    inputs.settings = settings;
    LibraryBookBuild::record(root_, bookID, inputs.record(outputFiles));
}

} // namespace folivox
