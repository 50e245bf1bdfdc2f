#include "queue/records/CandidatePayload.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject CandidatePayload::toJson() const
{
    return JsonWriter().set("inputs", inputs).set("book", book).set("bookFile", bookFile).set("coverFile", coverFile).object();
}

CandidatePayload CandidatePayload::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    CandidatePayload p;
    const QJsonArray inputs = JsonReader::asArray(r.object().value(QStringLiteral("inputs")), QStringLiteral("inputs"));
    for (qsizetype i = 0; i < inputs.size(); ++i)
        p.inputs << JsonReader::asString(inputs.at(i), JsonReader::indexPath(QStringLiteral("inputs"), i));
    p.book = r.optionalValue<ImportedBook>("book");
    p.bookFile = r.optionalString("bookFile");
    if (!p.book && !p.bookFile)
        throw DecodingError::keyNotFound(QStringLiteral("book"));
    p.coverFile = r.optionalString("coverFile");
    return p;
}

} // namespace folivox
