#include "build/LibraryBookBuild.h"

#include "library/files/LibraryPersistence.h"
#include "library/LibraryStore.h"

namespace folivox {

BookBuildInputs LibraryBookBuild::inputs(const QString& libraryRoot, const QString& idText)
{
    auto persistence = std::make_shared<LibraryPersistence>(libraryRoot);
    LibraryStore store(persistence);
    store.load();
    return store.buildInputs(store.resolve(idText));
}

void LibraryBookBuild::record(const QString& libraryRoot, const QUuid& id, const BuildRecord& record)
{
    auto persistence = std::make_shared<LibraryPersistence>(libraryRoot);
    LibraryStore store(persistence);
    store.load();
    store.recordBuild(id, record);
}

} // namespace folivox
