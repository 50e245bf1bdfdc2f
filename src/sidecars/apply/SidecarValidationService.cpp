#include "sidecars/apply/SidecarValidationService.h"

#include "sidecars/parsers/SidecarTextRules.h"

#include <algorithm>

namespace folivox {

QString SidecarValidationService::formatTime(std::int64_t ms)
{
    const bool negative = ms < 0;
    const std::int64_t v = negative ? -ms : ms;
    const std::int64_t millis = v % 1000;
    const std::int64_t totalSeconds = v / 1000;
    const std::int64_t seconds = totalSeconds % 60;
    const std::int64_t totalMinutes = totalSeconds / 60;
    QString s;
    if (v >= 3'600'000) {
        s = QString::asprintf("%lld:%02lld:%02lld.%03lld", static_cast<long long>(totalMinutes / 60),
                              static_cast<long long>(totalMinutes % 60), static_cast<long long>(seconds),
                              static_cast<long long>(millis));
    } else {
        s = QString::asprintf("%lld:%02lld.%03lld", static_cast<long long>(totalMinutes),
                              static_cast<long long>(seconds), static_cast<long long>(millis));
    }
    return negative ? QStringLiteral("-") + s : s;
}

SidecarValidationResult SidecarValidationService::validate(SidecarFormat format,
                                                           const QList<NormalizedChapter>& chapters,
                                                           std::int64_t totalDurationMs) const
{
    return format == SidecarFormat::simpleText ? validateStrict(chapters, totalDurationMs)
                                               : validateLenient(chapters, totalDurationMs);
}

SidecarValidationResult SidecarValidationService::validateLenient(const QList<NormalizedChapter>& input,
                                                                  std::int64_t totalDurationMs) const
{
    using Sev = SidecarWarningSeverity;
    SidecarValidationResult result;
    auto warn = [&](const QString& message, Sev severity) {
        result.warnings.append(SidecarWarning::make(message, severity));
    };
    const bool durationKnown = totalDurationMs > 0;

    if (input.isEmpty()) {
        warn(QStringLiteral("No chapters to validate"), Sev::error);
        return result;
    }
    if (input.size() == 1)
        warn(QStringLiteral("Only 1 chapter(s) found; minimum recommended is 2"), Sev::warning);

    QList<NormalizedChapter> rows = input;
    if (rows.size() > SidecarTextRules::kMaxChapters) {
        warn(QStringLiteral("Too many chapters (%1); maximum allowed is %2")
                 .arg(rows.size())
                 .arg(SidecarTextRules::kMaxChapters),
             Sev::error);
        rows = rows.mid(0, SidecarTextRules::kMaxChapters);
    }

    const auto byStart = [](const NormalizedChapter& a, const NormalizedChapter& b) { return a.startMs < b.startMs; };
    if (!std::is_sorted(rows.begin(), rows.end(), byStart)) {
        std::stable_sort(rows.begin(), rows.end(), byStart);
        warn(QStringLiteral("Chapters were reordered by start time"), Sev::info);
    }

    QList<NormalizedChapter> kept;
    kept.reserve(rows.size());
    for (const auto& row : rows) {
        if (row.startMs < 0) {
            warn(QStringLiteral("Negative timestamp removed: ") + row.title, Sev::warning);
            continue;
        }
        if (!kept.isEmpty() && kept.back().startMs == row.startMs) {
            warn(QStringLiteral("Duplicate timestamp at %1; keeping first occurrence").arg(formatTime(row.startMs)),
                 Sev::warning);
            continue;
        }
        kept.append(row);
    }
    rows = kept;

    // Short chapters are reported, never dropped. A row's length runs to the
    // next start; the last runs to its own end, or to the end of the audio
    // when it has none (a point label's end equals its start: no end).
    for (qsizetype i = 0; i < rows.size(); ++i) {
        std::optional<std::int64_t> until;
        if (i + 1 < rows.size())
            until = rows[i + 1].startMs;
        else if (rows[i].endMs && *rows[i].endMs > rows[i].startMs)
            until = rows[i].endMs;
        else if (durationKnown)
            until = totalDurationMs;
        if (until && *until > rows[i].startMs && *until - rows[i].startMs < kShortChapterMs) {
            warn(QStringLiteral("Chapter '%1' is very short (%2ms); keeping anyway")
                     .arg(rows[i].title)
                     .arg(*until - rows[i].startMs),
                 Sev::info);
        }
    }

    if (durationKnown) {
        int removed = 0;
        kept.clear();
        for (const auto& row : rows) {
            if (row.startMs >= totalDurationMs) {
                if (removed == 0) {
                    warn(QStringLiteral("Chapter '%1' removed (starts at %2, after audio ends at %3)")
                             .arg(row.title, formatTime(row.startMs), formatTime(totalDurationMs)),
                         Sev::warning);
                }
                ++removed;
                continue;
            }
            kept.append(row);
        }
        if (removed > 1)
            warn(QStringLiteral("%1 chapter(s) removed for starting beyond audio duration").arg(removed), Sev::info);
        rows = kept;
    }

    if (!rows.isEmpty() && rows.front().startMs > 0) {
        warn(QStringLiteral("First chapter adjusted from %1 to 0:00").arg(formatTime(rows.front().startMs)), Sev::info);
        rows.front() = rows.front().rebuilt(0, rows.front().endMs);
    }

    if (durationKnown) {
        for (auto& row : rows) {
            if (row.endMs && *row.endMs > totalDurationMs) {
                warn(QStringLiteral("Chapter '%1' trimmed from %2 to audio duration %3")
                         .arg(row.title, formatTime(*row.endMs), formatTime(totalDurationMs)),
                     Sev::warning);
                row = row.rebuilt(row.startMs, totalDurationMs);
            }
        }
        if (!rows.isEmpty() && rows.back().endMs && *rows.back().endMs > rows.back().startMs) {
            const std::int64_t covered = *rows.back().endMs;
            if (covered * 10 < totalDurationMs * 9) {
                const std::int64_t percent = std::max<std::int64_t>(0, covered) * 100 / totalDurationMs;
                warn(QStringLiteral("Chapters cover only %1% of audio (%2 uncovered)")
                         .arg(percent)
                         .arg(formatTime(totalDurationMs - covered)),
                     Sev::info);
            }
        }
    }

    result.chapters = rows;
    result.isValid = !rows.isEmpty();
    return result;
}

SidecarValidationResult SidecarValidationService::validateStrict(const QList<NormalizedChapter>& input,
                                                                 std::int64_t totalDurationMs) const
{
    SidecarValidationResult result;
    auto reject = [&](const QString& message) {
        result.warnings.append(SidecarWarning::make(message, SidecarWarningSeverity::error));
        result.chapters.clear();
        result.isValid = false;
        return result;
    };
    const auto atChapter = [](const char* rule, qsizetype index) {
        return QStringLiteral("%1 (at chapter %2)").arg(QString::fromLatin1(rule)).arg(index + 1);
    };

    if (input.size() < 2)
        return reject(QStringLiteral("at least 2 chapters required"));

    QList<NormalizedChapter> rows = input;
    // A first chapter a little after 0 stays as written; from 201 ms on it is
    // moved to the start so that the whole book is covered.
    if (rows.front().startMs > kStrictFirstStartToleranceMs)
        rows.front() = rows.front().rebuilt(0, rows.front().endMs);

    const bool anyTime = std::any_of(rows.begin(), rows.end(), [](const NormalizedChapter& c) { return c.startMs > 0; });
    if (!anyTime)
        return reject(QStringLiteral("no valid timestamps found"));
    for (qsizetype i = 1; i < rows.size(); ++i) {
        if (rows[i].startMs <= rows[i - 1].startMs)
            return reject(atChapter("timestamps must be increasing", i));
    }
    for (qsizetype i = 0; i < rows.size(); ++i) {
        if (rows[i].startMs < 0)
            return reject(atChapter("negative timestamp", i));
    }
    if (totalDurationMs > 0) {
        for (qsizetype i = 0; i < rows.size(); ++i) {
            if (rows[i].startMs >= totalDurationMs)
                return reject(atChapter("timestamp outside audio length", i));
        }
    }
    for (qsizetype i = 0; i + 1 < rows.size(); ++i) {
        if (rows[i + 1].startMs - rows[i].startMs < kStrictMinimumChapterMs)
            return reject(atChapter("chapters must be at least 5 seconds long", i));
    }

    result.chapters = rows;
    result.isValid = true;
    return result;
}

} // namespace folivox
