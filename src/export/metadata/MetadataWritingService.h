#pragma once

#include "core/book/BookMetadata.h"
#include "export/engine/FilePlacement.h"
#include "core/chapters/ChapterInfo.h"
#include "process/CancellationToken.h"

#include <QList>
#include <QString>

namespace folivox {

// What the export strategies hand to metadata writing once the audio of an
// output file is finished.
struct BookFinishRequest {
    // The output file (M4B/M4A: tags, cover, chapters; MP3: ID3 tags).
    QString file;
    BookMetadata metadata;
    // Chapter starts measured on the encoded audio, in order. May be empty.
    QList<ChapterInfo> chapters;
    // Cover bytes already processed for the chosen size and quality (JPEG or
    // PNG); empty for no cover.
    QByteArray coverImage;
    // The file's own title and number in a book of several files.
    FilePlacement placement;
    // True for a file this build has just written (no old cover to remove).
    bool freshOutput = true;
};

// Puts tags, the cover and chapters into a finished book, then finishes the
// container (chapter-track language, channel layout, language atoms, the
// "M4B " brand for .m4b files, and moov ahead of mdat). The book file is only
// replaced when everything succeeded. Throws on failure: MetadataWritingError
// for a tool failure, ExportError::corruptedSourceRequiresTranscode when a
// tool leaves the file unreadable, FFmpegWrapperError for a missing tool.
class MetadataWritingService {
public:
    virtual ~MetadataWritingService() = default;

    virtual void finishBook(const BookFinishRequest& request, const CancellationToken& token) = 0;
};

} // namespace folivox
