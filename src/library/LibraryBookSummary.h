#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

namespace folivox {

struct BookStateDTO;

// One book as the library list shows it, kept in index.json so that the
// list needs no book's own file. JSON keys are the field names.
struct LibraryBookSummary {
    QUuid id;
    QString title;
    std::optional<QString> author;
    std::optional<QString> narrator;
    int revision = 0;
    int builtRevision = 0;              // the revision the last build made; 0 when never built
    std::optional<QDateTime> builtAt;
    QDateTime createdAt;
    QDateTime editedAt;
    bool hasThumb = false;
    QString sourceHint;                 // the folder or file the book was added from
    bool needsAttention = false;        // record unreadable, or source files gone
    std::optional<QStringList> sourceFormats;  // file extensions of the tracks, lower case, sorted
    std::optional<bool> hasArtwork;
    std::optional<QStringList> missingTags;    // of author, narrator, year, genre, language, description
    std::optional<double> totalDuration;       // seconds
    std::optional<QString> settingsFingerprint;
    std::optional<QString> lastBuildFormat;
    std::optional<QString> lastBuildOutputPath;
    std::optional<QString> lastBuildSettingsFingerprint;

    // The tags whose absence missingTags reports, in this order.
    static const QStringList& watchedTags();

    // The summary of a state. sourcesMissing: some track's file is gone.
    static LibraryBookSummary from(const BookStateDTO& state, bool hasThumb, bool sourcesMissing);
    // True when a track's file (or the source the book came from) is gone.
    static bool sourcesMissing(const BookStateDTO& state);
    // A book whose record can't be read: only what is known without it.
    static LibraryBookSummary unreadable(const QUuid& id, const QDateTime& seen);

    // True when the book differs from what its last build made: never
    // built, edited since, or built with other settings.
    bool changedSinceBuild() const;

    QJsonObject toJson() const;
    static LibraryBookSummary fromJson(const QJsonObject& json);
    bool operator==(const LibraryBookSummary&) const = default;
};

} // namespace folivox
