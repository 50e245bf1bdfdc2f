#include "library/files/LibraryPersistenceError.h"

#include "platform/L10n.h"

namespace folivox {

namespace {
QString idText(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}
} // namespace

LibraryPersistenceError::LibraryPersistenceError(Kind kind, QUuid id, int version, QString file, QString detail)
    : kind_(kind)
    , bookID_(id)
    , version_(version)
    , file_(std::move(file))
    , detail_(std::move(detail))
{
}

LibraryPersistenceError LibraryPersistenceError::bookNotFound(const QUuid& id)
{
    return {Kind::bookNotFound, id, 0, {}, {}};
}

LibraryPersistenceError LibraryPersistenceError::quarantined(const QUuid& id, const QString& file, const QString& detail)
{
    return {Kind::quarantined, id, 0, file, detail};
}

LibraryPersistenceError LibraryPersistenceError::unsupportedSchema(int version, const QString& file)
{
    return {Kind::unsupportedSchema, {}, version, file, {}};
}

LibraryPersistenceError LibraryPersistenceError::newerLibrary(int version, const QString& file)
{
    return {Kind::newerLibrary, {}, version, file, {}};
}

LibraryPersistenceError LibraryPersistenceError::rootUnavailable(const QString& root, const QString& detail)
{
    return {Kind::rootUnavailable, {}, 0, root, detail};
}

QString LibraryPersistenceError::description() const
{
    switch (kind_) {
    case Kind::bookNotFound:
        return L10n::format(L10n::text("library.error.bookNotFound", "There is no book %@ in the library."),
                            {idText(bookID_)});
    case Kind::quarantined:
        return L10n::format(L10n::text("library.error.quarantined",
                                       "The record of book %@ could not be read (%@). It was set aside as %@; "
                                       "the book's folder and images were kept."),
                            {idText(bookID_), detail_, file_});
    case Kind::unsupportedSchema:
        return L10n::format(L10n::text("library.error.unsupportedSchema",
                                       "%@ names schema version %d, which no version of Folivox writes. "
                                       "The file was left as it is."),
                            {file_, QString::number(version_)});
    case Kind::newerLibrary:
        return L10n::format(L10n::text("library.error.newerLibrary",
                                       "%@ was written by a newer version of Folivox (schema %d). Update Folivox "
                                       "to open it; the file was left as it is."),
                            {file_, QString::number(version_)});
    case Kind::rootUnavailable:
        return L10n::format(L10n::text("library.error.rootUnavailable", "The library folder %@ can't be used: %@"),
                            {file_, detail_});
    }
    return {};
}

} // namespace folivox
