#pragma once

#include "process/CancellationToken.h"
#include "library/LibraryScanner.h"

#include <QString>
#include <QStringList>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace folivox {

class AudioMetadataService;
class FFmpegWrapper;
class LibraryStore;

// Adds books to a library: each folder or file given is scanned into books
// (LibraryScanner), and each book is imported as a build would import it
// (ImportCoordinator: refusals, loading, order, chapters from embedded marks),
// with a chapter file beside the audio applied when discovery is confident
// of it, tags from the tracks, and a cover from the folder or the files.
// A book whose source is already in the library is skipped. Each book is
// written as soon as it is imported; the index is saved every few seconds
// and at the end.
class LibraryAdder {
public:
    struct Outcome {
        enum class Kind { added, skipped, refused };
        Kind kind = Kind::refused;
        QString source;              // the folder or file
        std::optional<QUuid> bookID; // added: the new book; skipped: the book already there
        QString title;
        QString reason;              // skipped and refused: why
        int tracks = 0;
        double duration = 0;
        QString chapterSource;       // added: "audio" or the chapter file's name
    };

    explicit LibraryAdder(LibraryStore& store);
    ~LibraryAdder();

    // Each outcome as it happens.
    std::function<void(const Outcome&)> onOutcome;
    // Books done of books found so far, and the one being imported.
    std::function<void(int done, int total, const QString& current)> onProgress;

    std::vector<Outcome> add(const QStringList& paths, const CancellationToken& token = CancellationToken::never());

    static QString kindName(Outcome::Kind kind);

private:
    Outcome addOne(const BookCandidate& candidate, const CancellationToken& token);

    LibraryStore& store_;
    std::shared_ptr<FFmpegWrapper> ffmpeg_;
    std::shared_ptr<AudioMetadataService> metadata_;
};

} // namespace folivox
