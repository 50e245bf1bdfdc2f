#pragma once

#include "core/json/EnumNames.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <array>
#include <optional>

namespace folivox {

// Why the queue stopped by itself: going on would only fail again. While a
// halt stands no run starts; retrying a job clears it. Kept in the queue's
// folder as halt.json, so that it holds across processes and restarts.
//
// JSON: reason (case name), message (the text as shown), jobID (the job that
// failed) when known, haltedAt.
struct QueueHalt {
    enum class Reason {
        outOfSpace,     // "queue.halt.outOfSpace"
        readOnlyVolume, // "queue.halt.readOnlyVolume"
        destination,    // "queue.halt.destination"
        security,       // "queue.halt.security"
        ffmpeg,         // "queue.halt.ffmpeg"
        sourcesLost,    // "queue.halt.sourcesLost"
        license,        // "queue.halt.license"
        tools,          // "queue.halt.tools"
    };

    Reason reason = Reason::destination;
    QString message;
    std::optional<QUuid> jobID;
    QDateTime haltedAt;

    // A halt with its localised message; `folderName` fills the destination's.
    static QueueHalt make(Reason reason, const QString& folderName = {}, std::optional<QUuid> jobID = std::nullopt);
    // "queue.halt.<reason>".
    static QString key(Reason reason);
    static QString text(Reason reason, const QString& folderName = {});

    QJsonObject toJson() const;
    static QueueHalt fromJson(const QJsonObject& json);
};

template<>
struct EnumNames<QueueHalt::Reason> {
    static constexpr const char* typeName = "QueueHalt.Reason";
    static constexpr std::array items{
        std::pair{QueueHalt::Reason::outOfSpace, "outOfSpace"},
        std::pair{QueueHalt::Reason::readOnlyVolume, "readOnlyVolume"},
        std::pair{QueueHalt::Reason::destination, "destination"},
        std::pair{QueueHalt::Reason::security, "security"},
        std::pair{QueueHalt::Reason::ffmpeg, "ffmpeg"},
        std::pair{QueueHalt::Reason::sourcesLost, "sourcesLost"},
        std::pair{QueueHalt::Reason::license, "license"},
        std::pair{QueueHalt::Reason::tools, "tools"},
    };
};

} // namespace folivox
