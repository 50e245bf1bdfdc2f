#pragma once

#include "container/mp3/ChapterDamageHole.h"
#include "container/mp3/MP3IntegrityReport.h"
#include "core/book/Bookmark.h"
#include "core/book/Track.h"
#include "process/CancellationToken.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace folivox {

// Damage found in a build's MP3 sources: each damaged file with its holes,
// and where the holes land in the book's chapters.
struct SourceDamage {
    struct ChapterHoles {
        QString title;
        std::vector<ChapterDamageHole> holes;
    };
    struct File {
        MP3IntegrityReport report;
        std::vector<ChapterHoles> chapters;
        // The clean copy the build used instead, with --repair-damaged.
        QString repairedCopy;
    };

    std::vector<File> files;

    bool isEmpty() const { return files.empty(); }

    // Scans the MP3 tracks (a cheap pass over their frames). Nothing when
    // cancelled.
    static std::optional<SourceDamage> scan(const std::vector<Track>& tracks, const std::vector<Bookmark>& chapters,
                                            const CancellationToken& token);

    // One paragraph per damaged file, for the user.
    QStringList lines() const;
    QJsonObject toJson() const;
};

} // namespace folivox
