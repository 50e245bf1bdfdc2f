#pragma once

#include "core/chapters/NormalizedChapter.h"
#include "sidecars/discovery/SidecarMatchResult.h"
#include "sidecars/parsers/SidecarParseResult.h"

#include <QList>
#include <QUrl>

#include <cstdint>
#include <optional>

namespace folivox {

// Scores how well a parsed chapter file fits each audio file and keeps the
// best. Points: exact name 40, referenced file 35, duration 25, same folder 15,
// partial name 10. Confidence: high for an exact name, a score of 70 or more,
// or a referenced file whose span fits; medium from 40 points (or, in the same
// folder, with a fitting span or a partial name); low from 1 point. Stateless.
class SidecarMatchingService {
public:
    static constexpr std::int64_t kSpanToleranceFloorMs = 2000;

    // The names of one audio file, worked out once per discovery.
    struct AudioName {
        QUrl url;
        QString fileNameLower; // "book.mp3"
        QString stem;          // "book"
        QString folder;        // absolute, cleaned
    };
    static AudioName describe(const QUrl& audioURL);

    SidecarMatchResult bestMatch(const SidecarParseResult& parseResult, const QList<NormalizedChapter>& chapters,
                                 const QList<QUrl>& audioURLs, std::int64_t totalDurationMs) const;
    SidecarMatchResult bestMatch(const SidecarParseResult& parseResult, const QList<NormalizedChapter>& chapters,
                                 const QList<AudioName>& audio, std::int64_t totalDurationMs) const;

    // The layers one chapter file earns against one audio file.
    SidecarMatchLayers layers(const SidecarParseResult& parseResult, const QList<NormalizedChapter>& chapters,
                              const AudioName& audio, std::int64_t totalDurationMs) const;

    static SidecarMatchConfidence confidence(int score, const SidecarMatchLayers& layers);

    // The chapters' own length: the last row's end, or, with two rows or more,
    // the last start plus the mean gap between starts.
    static std::optional<std::int64_t> span(const QList<NormalizedChapter>& chapters);
    // Lower-cased last path component without its extension; for a chapter
    // file, a trailing ".chapters" is cut too.
    static QString audioStem(const QString& pathOrName);
    static QString sidecarStem(const QString& pathOrName);
    static QString folderOf(const QString& path);
};

} // namespace folivox
