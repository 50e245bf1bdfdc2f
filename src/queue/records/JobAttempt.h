#pragma once

#include "core/json/EnumNames.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <array>
#include <optional>

namespace folivox {

// One run of a queued job, from its start to its outcome.
//
// JSON: id, startedAt, and once it has ended endedAt and outcome; logPath
// when the attempt's log was written. An attempt without an outcome was cut
// short by a crash or a kill: its job is `interrupted`.
struct JobAttempt {
    // Why an attempt failed, which decides what the queue does next. Only
    // `transient` failures are tried again by themselves.
    enum class ErrorClass {
        licenseBlock,       // the licensing gate refused the build
        environment,        // the machine cannot build now: full disk, read-only volume, no ffmpeg, destination gone
        sourcesUnavailable, // the book's audio cannot be reached
        permanent,          // this job will fail again as it stands
        transient,          // may work on another try
    };

    // The result of an ended attempt. JSON: {"success": {"outputPath"}},
    // {"failure": {"class", "message"}} or {"cancelled": {}}.
    struct Outcome {
        enum class Kind { success, failure, cancelled };

        Kind kind = Kind::cancelled;
        QString outputPath;                        // success
        ErrorClass errorClass = ErrorClass::transient; // failure
        QString message;                           // failure

        static Outcome success(QString outputPath);
        static Outcome failure(ErrorClass errorClass, QString message);
        static Outcome cancelled();

        QJsonObject toJson() const;
        static Outcome fromJson(const QJsonObject& json);
        bool operator==(const Outcome&) const = default;
    };

    QUuid id;
    QDateTime startedAt;
    std::optional<QDateTime> endedAt;
    std::optional<Outcome> outcome;
    std::optional<QString> logPath;

    QJsonObject toJson() const;
    static JobAttempt fromJson(const QJsonObject& json);
    bool operator==(const JobAttempt&) const = default;
};

template<>
struct EnumNames<JobAttempt::ErrorClass> {
    static constexpr const char* typeName = "ErrorClass";
    static constexpr std::array items{
        std::pair{JobAttempt::ErrorClass::licenseBlock, "licenseBlock"},
        std::pair{JobAttempt::ErrorClass::environment, "environment"},
        std::pair{JobAttempt::ErrorClass::sourcesUnavailable, "sourcesUnavailable"},
        std::pair{JobAttempt::ErrorClass::permanent, "permanent"},
        std::pair{JobAttempt::ErrorClass::transient, "transient"},
    };
};

} // namespace folivox
