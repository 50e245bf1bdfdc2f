#include "queue/run/LibraryQueueBookSource.h"

#include "build/LibraryBookBuild.h"
#include "library/BookBuildInputs.h"
#include "library/files/LibraryPersistence.h"
#include "library/LibraryStore.h"
#include "queue/run/LibraryStoreBookSource.h"

namespace folivox {

LibraryQueueBookSource::LibraryQueueBookSource(QString libraryRoot)
    : root_(std::move(libraryRoot))
{
}

QueueBuildInput LibraryQueueBookSource::input(const QUuid& bookID)
{
    // The library read afresh for each job, then asked as an open one is.
    auto persistence = std::make_shared<LibraryPersistence>(root_);
    LibraryStore store(persistence);
    store.load();
    return LibraryStoreBookSource(store).input(bookID);
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
