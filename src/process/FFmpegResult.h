#pragma once

// <cstdio> comes first on purpose: some C libraries define `stderr` as a macro,
// and the field of that name below must see the same definition in every file.
#include <cstdio>

#include "core/json/EnumNames.h"

#include <QJsonObject>
#include <QString>

#include <optional>

namespace folivox {

// How one ffmpeg run ended. A child's failure is this value, never an
// exception: each caller decides whether to throw, retry or fall back.
struct FFmpegResult {
    // How the run ended.
    enum class End {
        // Exit 0, not cancelled, not stopped by the watchdogs, and no "No space
        // left on device" on stderr (ffmpeg 5.x exits 0 after a failed trailer write).
        succeeded,
        // The child failed on its own (a non-zero exit or a signal from outside).
        failed,
        // The run's token, or the program's own shutdown, stopped it.
        cancelled,
        // No output at all for the silence limit: stopped as hung.
        timedOut,
        // Output, but no progress for the stall limit: stopped.
        stalled,
        // Stopped after a run of decode errors with no progress.
        corruptStream,
        // The disk being written filled up.
        outOfSpace,
    };
    End end = End::failed;
    // The job's output (the last argument of a successful run).
    std::optional<QString> outputURL;
    // The text a user can act on; set on every failure.
    std::optional<QString> error;
    // Wall time of the run in seconds.
    double duration = 0;
    // What the child wrote to standard error, at most 131072 bytes (the start
    // and the end are kept; the middle gives way).
    QString stderr;
    // Lines holding "Error submitting packet to decoder" (ffmpeg 6 and later)
    // or "Error while decoding stream" (the same failure in ffmpeg 5.x).
    int decodeErrorCount = 0;
    // The run was stopped because of those errors.
    bool corruptStreamKilled = false;
    // The exit status, or the number of the signal that ended the child.
    int terminationStatus = 0;

    bool succeeded() const { return end == End::succeeded; }
    // A failed run whose stderr says the disk is full.
    bool indicatesOutOfSpace() const;
    // A failed run whose stderr says a source file is damaged.
    bool indicatesDamagedSource() const;

    QJsonObject toJson() const;
    static FFmpegResult fromJson(const QJsonObject& json);
};

template<>
struct EnumNames<FFmpegResult::End> {
    static constexpr const char* typeName = "FFmpegResult.End";
    static constexpr std::array items{
        std::pair{FFmpegResult::End::succeeded, "succeeded"},   std::pair{FFmpegResult::End::failed, "failed"},
        std::pair{FFmpegResult::End::cancelled, "cancelled"},   std::pair{FFmpegResult::End::timedOut, "timedOut"},
        std::pair{FFmpegResult::End::stalled, "stalled"},       std::pair{FFmpegResult::End::corruptStream, "corruptStream"},
        std::pair{FFmpegResult::End::outOfSpace, "outOfSpace"},
    };
};

} // namespace folivox
