#pragma once

#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <cstdint>
#include <optional>

namespace folivox {

// A chapter from a chapter file or a catalogue, after cleaning. Times are whole
// milliseconds from the start of the audio. The title is never empty: make()
// cleans the raw title (TagTextRepair, chapter-title kind) and an empty result
// becomes "Untitled".
struct NormalizedChapter {
    QUuid id;
    QString title;
    std::int64_t startMs = 0;
    std::optional<std::int64_t> endMs;

    // A new chapter with a fresh id.
    static NormalizedChapter make(const QString& rawTitle, std::int64_t startMs,
                                  std::optional<std::int64_t> endMs = std::nullopt);
    // The same chapter (same id) with new times; the title is cleaned again.
    NormalizedChapter rebuilt(std::int64_t newStartMs, std::optional<std::int64_t> newEndMs) const;

    // The cleaned form of a raw title: repaired text, or "Untitled".
    static QString finishTitle(const QString& rawTitle);

    // Keys: id, title, startMs, endMs (left out when absent).
    QJsonObject toJson() const;
    // Throws DecodingError.
    static NormalizedChapter fromJson(const QJsonObject& json);

    bool operator==(const NormalizedChapter&) const = default;
};

} // namespace folivox
