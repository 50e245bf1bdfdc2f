#include "import/TrackLoadOutcome.h"

#include "platform/L10n.h"

namespace folivox {

const char* TrackLoadOutcome::reasonKey(FailureReason reason)
{
    switch (reason) {
    case FailureReason::brokenAudioStream:
        return "import.failure.brokenStream";
    case FailureReason::zeroDuration:
        return "import.failure.zeroDuration";
    case FailureReason::timeout:
        return "import.failure.timeout";
    case FailureReason::noAudioFound:
        return "import.failure.noAudioFound";
    case FailureReason::other:
        return "import.failure.other";
    }
    return "import.failure.other";
}

QString TrackLoadOutcome::reasonText(FailureReason reason, int timeoutSeconds)
{
    switch (reason) {
    case FailureReason::brokenAudioStream:
        return L10n::text(reasonKey(reason),
                          "audio stream couldn't be decoded — file may be damaged or improperly converted");
    case FailureReason::zeroDuration:
        return L10n::text(reasonKey(reason), "no readable audio (file is truncated or empty)");
    case FailureReason::timeout:
        return L10n::format(
            L10n::text(reasonKey(reason),
                       "loading stalled with no progress for %ld seconds — the file may be damaged or unreachable"),
            {QString::number(timeoutSeconds)});
    case FailureReason::noAudioFound:
        return L10n::text(reasonKey(reason), "no audio found at the start of the file — it may be damaged, "
                                             "incompletely downloaded, or not an audio file");
    case FailureReason::other:
        return L10n::text(reasonKey(reason), "file couldn't be opened — unsupported format or container is corrupt");
    }
    return {};
}

QString TrackLoadOutcome::reasonName(FailureReason reason)
{
    switch (reason) {
    case FailureReason::brokenAudioStream:
        return QStringLiteral("brokenAudioStream");
    case FailureReason::zeroDuration:
        return QStringLiteral("zeroDuration");
    case FailureReason::timeout:
        return QStringLiteral("timeout");
    case FailureReason::noAudioFound:
        return QStringLiteral("noAudioFound");
    case FailureReason::other:
        return QStringLiteral("other");
    }
    return {};
}

} // namespace folivox
