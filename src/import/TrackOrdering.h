#pragma once

#include "core/book/SeriesIndex.h"
#include "core/book/Track.h"
#include "core/book/TrackSortMode.h"

#include <QCollator>
#include <QString>

#include <optional>
#include <vector>

namespace folivox {

// Orders the tracks of an import. Each track gets an OrderKey: its folder,
// series, series index, disc, track and file name, compared in that order.
// Numbers in names order by value ("2" before "10"), and a tie on every
// field keeps the input order.
class TrackOrdering {
public:
    enum class SortOrder { forward, reverse };

    struct OrderKey {
        QString folder;
        QString seriesName;
        SeriesIndex::Value seriesIndex;  // the greatest value when the track has none
        qint64 disc = 0;                 // the largest integer when none is known
        qint64 track = 0;                // the largest integer when none is known
        QString name;
    };

    // Compares keys field by field; text with a numeric, locale-aware
    // collator.
    class Comparator {
    public:
        explicit Comparator(SortOrder order = SortOrder::forward);
        // Negative, zero or positive, as a three-way comparison.
        int compare(const OrderKey& a, const OrderKey& b) const;
        bool operator()(const OrderKey& a, const OrderKey& b) const;

    private:
        SortOrder order_;
        QCollator collator_;
    };

    static OrderKey key(const Track& track);

    // The disc number found in a folder or file name ("CD2", "Disc 3",
    // "Диск 1", ...), or none.
    static std::optional<qint64> discNumberInName(const QString& name);
    // The track number found in a file name: its leading number ("07 - x",
    // "12.mp3") or a "track"/"trk"/"pt" number; or none.
    static std::optional<qint64> trackNumberInName(const QString& name);
    // Just the leading number ("07 - x"), or none.
    static std::optional<qint64> leadingNumber(const QString& text);

    // The tracks in the order of the key (stable).
    static std::vector<Track> sorted(const std::vector<Track>& tracks, SortOrder order = SortOrder::forward);
    // The tracks in the order the mode asks for (stable):
    // - auto: the full key above;
    // - filename: the file name, then the folder;
    // - trackNumber: disc and track tags (files without them after), then the key;
    // - title: the title, then the key;
    // - dateModified: the file's modification time, oldest first, then the key.
    static std::vector<Track> sorted(const std::vector<Track>& tracks, TrackSortMode mode);

    // A collator that orders numbers in text by value, in the user's locale;
    // in the C locale (where Qt ignores numeric mode) it uses English rules.
    static QCollator makeCollator();
};

} // namespace folivox
