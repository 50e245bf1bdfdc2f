#pragma once

#include "core/chapters/NormalizedChapter.h"
#include "sidecars/parsers/SidecarFormat.h"
#include "sidecars/apply/SidecarValidationResult.h"

#include <QList>

#include <cstdint>

namespace folivox {

// Fits parsed chapters to the audio. The lenient validation (every format but
// simple text) repairs what it can: sorts, drops negative, duplicate and
// out-of-range rows, moves the first chapter to 0 and trims ends to the audio.
// The strict validation (simple text, the loosest format) repairs nothing and
// rejects the file at the first rule it breaks. A total duration of 0 or less
// means the audio's length is unknown. Stateless.
class SidecarValidationService {
public:
    static constexpr std::int64_t kShortChapterMs = 2000;
    static constexpr std::int64_t kStrictMinimumChapterMs = 5000;
    static constexpr std::int64_t kStrictFirstStartToleranceMs = 200;

    SidecarValidationResult validateLenient(const QList<NormalizedChapter>& chapters, std::int64_t totalDurationMs) const;
    SidecarValidationResult validateStrict(const QList<NormalizedChapter>& chapters, std::int64_t totalDurationMs) const;
    // Strict for simpleText, lenient for the rest.
    SidecarValidationResult validate(SidecarFormat format, const QList<NormalizedChapter>& chapters,
                                     std::int64_t totalDurationMs) const;

    // "m:ss.mmm" under an hour, "h:mm:ss.mmm" from an hour up.
    static QString formatTime(std::int64_t ms);
};

} // namespace folivox
