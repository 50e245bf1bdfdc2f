#include "queue/records/QueueHalt.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"
#include "platform/L10n.h"

namespace folivox {

QueueHalt QueueHalt::make(Reason reason, const QString& folderName, std::optional<QUuid> jobID)
{
    QueueHalt h;
    h.reason = reason;
    h.message = text(reason, folderName);
    h.jobID = jobID;
    h.haltedAt = QDateTime::currentDateTimeUtc();
    return h;
}

QString QueueHalt::key(Reason reason)
{
    return QStringLiteral("queue.halt.") + enumName(reason);
}

QString QueueHalt::text(Reason reason, const QString& folderName)
{
    switch (reason) {
    case Reason::outOfSpace:
        return L10n::text("queue.halt.outOfSpace", "The disk ran out of space — the queue is paused. Free up some space, "
                                                   "then retry the failed build.");
    case Reason::readOnlyVolume:
        return L10n::text("queue.halt.readOnlyVolume", "The destination volume is read-only — the queue is paused. Choose a "
                                                       "new output folder and retry.");
    case Reason::destination:
        return L10n::format(L10n::text("queue.halt.destination", "Folivox can't save into “%@” — queue paused."), {folderName});
    case Reason::security:
        return L10n::text("queue.halt.security", "Security check failed — queue paused.");
    case Reason::ffmpeg:
        return L10n::text("queue.halt.ffmpeg", "FFmpeg is not available — queue paused.");
    case Reason::sourcesLost:
        return L10n::text("queue.halt.sourcesLost", "Access to the audio files was lost — the queue is paused. Reconnect the "
                                                    "volume (or use Locate…), then retry.");
    case Reason::tools:
        return L10n::text("queue.halt.tools", "A tool Folivox needs (mp4tags, mp4art or mp4chaps) is missing — queue paused.");
    case Reason::license:
        return L10n::text("queue.halt.license", "The build was refused by the license check — queue paused.");
    }
    return {};
}

QJsonObject QueueHalt::toJson() const
{
    return JsonWriter().set("reason", reason).set("message", message).set("jobID", jobID).set("haltedAt", haltedAt).object();
}

QueueHalt QueueHalt::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    QueueHalt h;
    h.reason = r.enumeration<Reason>("reason");
    h.message = r.string("message");
    h.jobID = r.optionalUuid("jobID");
    h.haltedAt = r.date("haltedAt");
    return h;
}

} // namespace folivox
