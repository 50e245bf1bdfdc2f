#include "library/LibraryAttention.h"

#include "library/files/LibraryPersistenceError.h"
#include "library/LibraryStore.h"
#include "platform/L10n.h"

#include <QFileInfo>

namespace folivox {

QString LibraryAttention::text() const
{
    switch (kind) {
    case Kind::quarantined:
        return L10n::format(L10n::text("library.attention.quarantined",
                                       "The book's record could not be read and was set aside as %@. Its folder and "
                                       "images are kept; add the book again to rebuild its record."),
                            {file});
    case Kind::newerLibrary:
        return L10n::format(L10n::text("library.attention.newerLibrary",
                                       "The book was saved by a newer version of Folivox (record version %d). This "
                                       "version leaves it untouched; open it with the newer version."),
                            {QString::number(version)});
    case Kind::unreadable:
        return L10n::format(L10n::text("library.attention.unreadable", "The book's record could not be read: %@"), {detail});
    case Kind::sourcesGone: {
        QStringList shown = missing.mid(0, 3);
        if (missing.size() > 3)
            shown << L10n::format(L10n::text("library.attention.more", "and %d more"), {QString::number(missing.size() - 3)});
        return L10n::format(L10n::text("library.attention.sourcesGone",
                                       "%d source file(s) of the book are missing: %@. Reconnect the drive they are on, or "
                                       "put them back."),
                            {QString::number(missing.size()), shown.join(QStringLiteral(", "))});
    }
    }
    return {};
}

std::optional<LibraryAttention> LibraryAttention::find(LibraryStore& store, const QUuid& id)
{
    const std::optional<LibraryBookSummary> summary = store.summary(id);
    if (!summary || !summary->needsAttention)
        return std::nullopt;
    LibraryAttention a;
    BookStateDTO state;
    try {
        state = store.loadState(id);
    } catch (const LibraryPersistenceError& e) {
        switch (e.kind()) {
        case LibraryPersistenceError::Kind::quarantined:
            a.kind = Kind::quarantined;
            a.file = e.file();
            return a;
        case LibraryPersistenceError::Kind::newerLibrary:
            a.kind = Kind::newerLibrary;
            a.file = e.file();
            a.version = e.version();
            return a;
        default:
            a.kind = Kind::unreadable;
            a.detail = e.description();
            return a;
        }
    } catch (const Error& e) {
        a.kind = Kind::unreadable;
        a.detail = e.description();
        return a;
    }
    for (const Track& t : state.tracks)
        if (!QFileInfo::exists(t.url.toLocalFile()))
            a.missing << t.url.toLocalFile();
    if (a.missing.isEmpty()) {
        store.refreshAttention(id, false);
        return std::nullopt;
    }
    a.kind = Kind::sourcesGone;
    return a;
}

} // namespace folivox
