#include "import/TrackOrdering.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <limits>
#include <numeric>

namespace folivox {

namespace {

constexpr qint64 kNone = std::numeric_limits<qint64>::max();

std::optional<qint64> firstCapture(const QString& text, const QList<QRegularExpression>& patterns)
{
    for (const auto& re : patterns) {
        const auto m = re.match(text);
        if (m.hasMatch())
            return m.captured(1).toLongLong();
    }
    return std::nullopt;
}

QString localPath(const Track& t)
{
    return t.url.isLocalFile() ? t.url.toLocalFile() : t.url.path();
}

template <typename T>
int threeWay(const T& a, const T& b)
{
    return a < b ? -1 : (b < a ? 1 : 0);
}

} // namespace

QCollator TrackOrdering::makeCollator()
{
    QLocale locale = QLocale::system();
    if (locale.language() == QLocale::C)
        locale = QLocale(QLocale::English);
    QCollator c(locale);
    c.setNumericMode(true);
    c.setCaseSensitivity(Qt::CaseInsensitive);
    return c;
}

std::optional<qint64> TrackOrdering::discNumberInName(const QString& name)
{
    static const QList<QRegularExpression> patterns{
        QRegularExpression(QStringLiteral("(?i)cd\\s*([0-9]{1,2})")),
        QRegularExpression(QStringLiteral("(?i)disc\\s*([0-9]{1,2})")),
        QRegularExpression(QStringLiteral("(?i)disk\\s*([0-9]{1,2})")),
        QRegularExpression(QStringLiteral("(?i)диск\\s*([0-9]{1,2})")),
        QRegularExpression(QStringLiteral("(?i)часть\\s*([0-9]{1,2})")),
        QRegularExpression(QStringLiteral("(?i)книга\\s*([0-9]{1,2})")),
        QRegularExpression(QStringLiteral("(?i)том\\s*([0-9]{1,2})")),
    };
    return firstCapture(name, patterns);
}

std::optional<qint64> TrackOrdering::leadingNumber(const QString& text)
{
    static const QList<QRegularExpression> patterns{
        QRegularExpression(QStringLiteral("^\\s*([0-9]{1,4})[\\s._)-]")),
    };
    return firstCapture(text, patterns);
}

std::optional<qint64> TrackOrdering::trackNumberInName(const QString& name)
{
    if (const auto n = leadingNumber(name))
        return n;
    static const QList<QRegularExpression> patterns{
        QRegularExpression(QStringLiteral("(?i)track\\s*([0-9]{1,4})")),
        QRegularExpression(QStringLiteral("(?i)trk\\s*([0-9]{1,4})")),
        QRegularExpression(QStringLiteral("(?i)pt\\s*([0-9]{1,4})")),
    };
    return firstCapture(name, patterns);
}

TrackOrdering::OrderKey TrackOrdering::key(const Track& t)
{
    const QFileInfo info(localPath(t));
    OrderKey k;
    k.folder = info.path();
    k.seriesName = t.seriesName.value_or(QString());
    k.seriesIndex = t.seriesIndex ? t.seriesIndex->value()
                                  : SeriesIndex::Value{std::numeric_limits<quint64>::max(), 999};
    k.name = info.fileName();

    if (t.discNumber) {
        k.disc = *t.discNumber;
    } else {
        std::optional<qint64> disc;
        // The nearest folder that names a disc wins.
        const QStringList folders = info.path().split(u'/', Qt::SkipEmptyParts);
        for (auto it = folders.crbegin(); it != folders.crend() && !disc; ++it)
            disc = discNumberInName(*it);
        if (!disc)
            disc = discNumberInName(k.name);
        k.disc = disc.value_or(kNone);
    }

    if (t.trackNumber) {
        k.track = *t.trackNumber;
    } else {
        std::optional<qint64> track = trackNumberInName(k.name);
        // Titles and sort titles such as "03 - The Storm" carry the number
        // when the file name does not.
        if (!track)
            track = leadingNumber(t.title);
        if (!track && t.sortTitleOverride)
            track = leadingNumber(*t.sortTitleOverride);
        k.track = track.value_or(kNone);
    }
    return k;
}

TrackOrdering::Comparator::Comparator(SortOrder order)
    : order_(order)
    , collator_(makeCollator())
{
}

int TrackOrdering::Comparator::compare(const OrderKey& a, const OrderKey& b) const
{
    int c = collator_.compare(a.folder, b.folder);
    if (c == 0)
        c = collator_.compare(a.seriesName, b.seriesName);
    if (c == 0)
        c = threeWay(a.seriesIndex, b.seriesIndex);
    if (c == 0)
        c = threeWay(a.disc, b.disc);
    if (c == 0)
        c = threeWay(a.track, b.track);
    if (c == 0)
        c = collator_.compare(a.name, b.name);
    c = c < 0 ? -1 : (c > 0 ? 1 : 0);
    return order_ == SortOrder::reverse ? -c : c;
}

bool TrackOrdering::Comparator::operator()(const OrderKey& a, const OrderKey& b) const
{
    return compare(a, b) < 0;
}

namespace {

// Sorts indexes stably by a three-way comparison, and returns the tracks in
// that order.
std::vector<Track> sortBy(const std::vector<Track>& tracks, const std::function<int(size_t, size_t)>& cmp)
{
    std::vector<size_t> order(tracks.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return cmp(a, b) < 0; });
    std::vector<Track> out;
    out.reserve(tracks.size());
    for (size_t i : order)
        out.push_back(tracks[i]);
    return out;
}

} // namespace

std::vector<Track> TrackOrdering::sorted(const std::vector<Track>& tracks, SortOrder order)
{
    std::vector<OrderKey> keys;
    keys.reserve(tracks.size());
    for (const Track& t : tracks)
        keys.push_back(key(t));
    const Comparator comparator(order);
    return sortBy(tracks, [&](size_t a, size_t b) { return comparator.compare(keys[a], keys[b]); });
}

std::vector<Track> TrackOrdering::sorted(const std::vector<Track>& tracks, TrackSortMode mode)
{
    std::vector<OrderKey> keys;
    keys.reserve(tracks.size());
    for (const Track& t : tracks)
        keys.push_back(key(t));
    const Comparator comparator;
    const QCollator collator = makeCollator();
    auto byKey = [&](size_t a, size_t b) { return comparator.compare(keys[a], keys[b]); };

    switch (mode) {
    case TrackSortMode::auto_:
        return sortBy(tracks, byKey);
    case TrackSortMode::filename:
        return sortBy(tracks, [&](size_t a, size_t b) {
            const int c = collator.compare(keys[a].name, keys[b].name);
            return c != 0 ? c : collator.compare(keys[a].folder, keys[b].folder);
        });
    case TrackSortMode::trackNumber:
        return sortBy(tracks, [&](size_t a, size_t b) {
            const qint64 da = tracks[a].discNumber.value_or(kNone), db = tracks[b].discNumber.value_or(kNone);
            if (da != db)
                return threeWay(da, db);
            const qint64 ta = tracks[a].trackNumber.value_or(kNone), tb = tracks[b].trackNumber.value_or(kNone);
            if (ta != tb)
                return threeWay(ta, tb);
            return byKey(a, b);
        });
    case TrackSortMode::title:
        return sortBy(tracks, [&](size_t a, size_t b) {
            const int c = collator.compare(tracks[a].title, tracks[b].title);
            return c != 0 ? c : byKey(a, b);
        });
    case TrackSortMode::given:
        return tracks;
    case TrackSortMode::dateModified: {
        std::vector<qint64> times;
        times.reserve(tracks.size());
        for (const Track& t : tracks) {
            const QFileInfo info(localPath(t));
            times.push_back(info.exists() ? info.lastModified().toMSecsSinceEpoch() : kNone);
        }
        return sortBy(tracks, [&](size_t a, size_t b) {
            return times[a] != times[b] ? threeWay(times[a], times[b]) : byKey(a, b);
        });
    }
    }
    return tracks;
}

} // namespace folivox
