#include "core/chapters/ChapterInput.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject ChapterInput::toJson() const
{
    return JsonWriter()
        .set("title", title)
        .set("files", files)
        .set("timeRange", timeRange)
        .set("segmentRanges", segmentRanges)
        .set("segmentFullTrack", segmentFullTrack)
        .set("wholeFileCandidate", wholeFileCandidate)
        .object();
}

ChapterInput ChapterInput::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    ChapterInput c;
    c.title = r.string("title");
    c.files = r.urlList("files");
    c.timeRange = r.optionalValue<MediaTimeRange>("timeRange");
    c.segmentRanges = r.optionalList<MediaTimeRange>("segmentRanges");
    if (r.contains("segmentFullTrack")) {
        const QList<bool> flags = JsonReader::listOf<bool>(r.object().value(QLatin1StringView("segmentFullTrack")),
                                                           QStringLiteral("segmentFullTrack"), &JsonReader::asBool);
        c.segmentFullTrack = std::vector<bool>(flags.begin(), flags.end());
    }
    c.wholeFileCandidate = r.boolean("wholeFileCandidate");
    return c;
}

} // namespace folivox
