#include "core/book/BookStateDTO.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

#include <QCryptographicHash>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>

#include <cstring>

namespace folivox {

namespace {

// The bookmark's JSON, with its tracks by id when every one of them is a
// book track.
QJsonObject bookmarkJson(const Bookmark& b, const QHash<QUuid, const Track*>& bookTracks)
{
    QJsonObject o = b.toJson();
    if (b.tracks.empty())
        return o;
    QJsonArray ids;
    for (const Track& t : b.tracks) {
        const Track* own = bookTracks.value(t.id);
        if (!own || !(*own == t))
            return o;
        ids.append(JsonWriter::uuidText(t.id));
    }
    o.remove(QStringLiteral("tracks"));
    o.insert(QStringLiteral("trackIDs"), ids);
    return o;
}

Bookmark bookmarkFrom(const QJsonValue& value, const QString& where, const QHash<QUuid, const Track*>& bookTracks)
{
    QJsonObject o = JsonReader::asObject(value, where);
    const QJsonValue ids = o.value(QStringLiteral("trackIDs"));
    if (ids.isUndefined() || ids.isNull())
        return JsonReader::decode<Bookmark>(o, where);
    const QString idsWhere = where + QStringLiteral(".trackIDs");
    const QJsonArray array = JsonReader::asArray(ids, idsWhere);
    std::vector<Track> tracks;
    for (qsizetype i = 0; i < array.size(); ++i) {
        const QString at = JsonReader::indexPath(idsWhere, i);
        const QUuid id = JsonReader::asUuid(array.at(i), at);
        const Track* own = bookTracks.value(id);
        if (!own)
            throw DecodingError::dataCorrupted(at, QStringLiteral("No book track with id %1").arg(JsonWriter::uuidText(id)));
        tracks.push_back(*own);
    }
    o.remove(QStringLiteral("trackIDs"));
    o.insert(QStringLiteral("tracks"), QJsonArray());
    Bookmark b = JsonReader::decode<Bookmark>(o, where);
    b.tracks = std::move(tracks);
    return b;
}

QHash<QUuid, const Track*> byId(const std::vector<Track>& tracks)
{
    QHash<QUuid, const Track*> map;
    for (const Track& t : tracks)
        map.insert(t.id, &t);
    return map;
}

} // namespace

BookStateDTO BookStateDTO::makeNew()
{
    BookStateDTO s;
    s.createdAt = QDateTime::currentDateTimeUtc();
    s.editedAt = s.createdAt;
    return s;
}

quint64 BookStateDTO::contentFingerprint() const
{
    QJsonObject o = toJson();
    for (const char* key : {"id", "revision", "createdAt", "editedAt", "sources", "lastBuild"})
        o.remove(QLatin1StringView(key));
    const QByteArray hash = QCryptographicHash::hash(QJsonDocument(o).toJson(QJsonDocument::Compact),
                                                     QCryptographicHash::Sha256);
    quint64 value = 0;
    std::memcpy(&value, hash.constData(), sizeof value);
    return value;
}

QJsonObject BookStateDTO::toJson() const
{
    const auto own = byId(tracks);
    QJsonArray marks;
    for (const Bookmark& b : bookmarks)
        marks.append(bookmarkJson(b, own));
    QJsonObject refs;
    for (auto it = artworkRefs.constBegin(); it != artworkRefs.constEnd(); ++it)
        refs.insert(JsonWriter::uuidText(it.key()), it.value());
    JsonWriter w;
    w.set("id", id)
        .set("revision", revision)
        .set("createdAt", createdAt)
        .set("editedAt", editedAt)
        .set("sources", sources)
        .set("tracks", tracks)
        .set("metadata", metadata)
        .set("settings", settings)
        .set("coverRef", coverRef)
        .set("lastBuild", lastBuild);
    QJsonObject o = w.object();
    o.insert(QStringLiteral("bookmarks"), marks);
    if (!refs.isEmpty())
        o.insert(QStringLiteral("artworkRefs"), refs);
    return o;
}

BookStateDTO BookStateDTO::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    BookStateDTO s;
    s.id = r.uuid("id");
    s.revision = r.integer("revision");
    s.createdAt = r.date("createdAt");
    s.editedAt = r.date("editedAt");
    s.sources = r.urlList("sources");
    s.tracks = r.list<Track>("tracks");
    const auto own = byId(s.tracks);
    if (!r.contains("bookmarks"))
        throw DecodingError::keyNotFound(QStringLiteral("bookmarks"));
    const QJsonArray marks = JsonReader::asArray(json.value(QStringLiteral("bookmarks")), QStringLiteral("bookmarks"));
    for (qsizetype i = 0; i < marks.size(); ++i)
        s.bookmarks.push_back(bookmarkFrom(marks.at(i), JsonReader::indexPath(QStringLiteral("bookmarks"), i), own));
    s.metadata = r.value<BookMetadata>("metadata");
    s.settings = r.value<ExportSettings>("settings");
    s.coverRef = r.optionalString("coverRef");
    if (r.contains("artworkRefs")) {
        const QJsonObject refs = JsonReader::asObject(json.value(QStringLiteral("artworkRefs")), QStringLiteral("artworkRefs"));
        for (auto it = refs.constBegin(); it != refs.constEnd(); ++it) {
            const QString where = QStringLiteral("artworkRefs.") + it.key();
            const QUuid id = JsonReader::asUuid(QJsonValue(it.key()), where);
            s.artworkRefs.insert(id, JsonReader::asString(it.value(), where));
        }
    }
    s.lastBuild = r.optionalValue<BuildRecord>("lastBuild");
    return s;
}

} // namespace folivox
