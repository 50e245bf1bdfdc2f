#pragma once

#include "build/BuildUseCase.h"
#include "queue/records/QueueBuildFailure.h"
#include "queue/run/QueueJobBuilder.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace folivox {

// What a build worker process says to the queue: one JSON object a line on
// its standard output, each with an "event":
//   {"event": "progress", "phase", "fraction"}
//   {"event": "note", "text"}
//   {"event": "started", "seconds"}
//   {"event": "built", "outputPath", "outputFiles", "logFile"}
//   {"event": "failed", "failure": QueueBuildFailure}
// The last two end a build. Orders go the other way, one QueueBuildOrder
// JSON object a line on the worker's standard input; the worker builds them
// one after the other and ends when its input ends.
class QueueWorkerProtocol {
public:
    static QByteArray progress(const QString& phase, double fraction);
    static QByteArray note(const QString& text);
    static QByteArray started(double seconds);
    static QByteArray built(const QueueJobBuilder::Built& built);
    static QByteArray failed(const QueueBuildFailure& failure);

    // What one line ends with, for the reader.
    struct Ending {
        std::optional<QueueJobBuilder::Built> built;
        std::optional<QueueBuildFailure> failure;
    };
    // Hands progress, notes and the start to the sinks; keeps the ending.
    // A line that is not a known event is ignored.
    static void read(const QByteArray& line, const BuildUseCase::Sinks& sinks, Ending& ending);
};

} // namespace folivox
