#include "queue/records/QueueRunSummary.h"

#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject QueueRunSummary::toJson() const
{
    return JsonWriter().set("built", built).set("failed", failed).set("skipped", skipped).set("cancelled", cancelled).object();
}

} // namespace folivox
