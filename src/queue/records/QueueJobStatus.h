#pragma once

#include "core/json/EnumNames.h"

#include <QString>

#include <array>

namespace folivox {

// Where a queued job stands. Stored by case name.
enum class QueueJobStatus {
    pending,     // waiting
    running,     // being built
    completed,   // built
    failed,      // the last attempt failed
    cancelled,   // cancelled by the user
    interrupted, // interrupted by quit or crash
    skipped,     // the book was removed before the job started
};

template<>
struct EnumNames<QueueJobStatus> {
    static constexpr const char* typeName = "QueueJobStatus";
    static constexpr std::array items{
        std::pair{QueueJobStatus::pending, "pending"},         std::pair{QueueJobStatus::running, "running"},
        std::pair{QueueJobStatus::completed, "completed"},     std::pair{QueueJobStatus::failed, "failed"},
        std::pair{QueueJobStatus::cancelled, "cancelled"},     std::pair{QueueJobStatus::interrupted, "interrupted"},
        std::pair{QueueJobStatus::skipped, "skipped"},
    };
};

// The text a person reads for a status, through its localisation key
// ("queue.status.<case>").
class QueueJobStatusLabel {
public:
    static QString key(QueueJobStatus status);
    static QString text(QueueJobStatus status);
    // True for the statuses a run never leaves by itself: completed, failed,
    // cancelled, skipped.
    static bool isFinished(QueueJobStatus status);
};

} // namespace folivox
