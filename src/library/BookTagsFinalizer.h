#pragma once

#include "core/book/BookMetadata.h"
#include "import/ImportFinalizing.h"

#include <QString>

namespace folivox {

// Fills a new book's tags from its tracks as an import finishes, the way a
// build from the command line does: the title from the first album tag, the
// author from the album artist (or the artist) when every track that has one
// agrees, likewise narrator, year, genre, language, publisher, copyright,
// series and sort names; the description from the first long (or short)
// description. A book without an album tag takes `fallbackTitle`.
class BookTagsFinalizer : public ImportFinalizing {
public:
    explicit BookTagsFinalizer(QString fallbackTitle) : fallbackTitle_(std::move(fallbackTitle)) {}

    void finalize(const std::vector<Track>& tracks, bool firstImport) override;

    const BookMetadata& metadata() const { return metadata_; }

    static BookMetadata tagsOf(const std::vector<Track>& tracks, const QString& fallbackTitle);

private:
    QString fallbackTitle_;
    BookMetadata metadata_;
};

} // namespace folivox
