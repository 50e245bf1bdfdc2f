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
    case FailureReason::permissionDenied:
        return "import.failure.permissionDenied";
    case FailureReason::notRegularFile:
        return "import.failure.notRegularFile";
    case FailureReason::undecodableAudio:
        return "import.failure.undecodable";
    case FailureReason::externalMedia:
        return "import.failure.externalMedia";
    case FailureReason::incompleteFile:
        return "import.failure.incomplete";
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
    case FailureReason::permissionDenied:
        return L10n::text(reasonKey(reason), "permission denied — give your user read access to it (for a folder, "
                                             "read and open access), or copy it somewhere you can read");
    case FailureReason::notRegularFile:
        return L10n::text(reasonKey(reason), "not a regular file (a pipe, socket or device) — save the audio to a "
                                             "file and add that");
    case FailureReason::undecodableAudio:
        return L10n::text(reasonKey(reason), "its audio is in a format Folivox can't decode — convert it to MP3, "
                                             "AAC or FLAC first");
    case FailureReason::externalMedia:
        return L10n::text(reasonKey(reason), "its audio is kept in another file that this one only refers to — "
                                             "export a self-contained copy from the program that made it");
    case FailureReason::incompleteFile:
        return L10n::text(reasonKey(reason), "the file is incomplete: its audio runs past the end of the file — "
                                             "download or copy it again");
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
    case FailureReason::permissionDenied:
        return QStringLiteral("permissionDenied");
    case FailureReason::notRegularFile:
        return QStringLiteral("notRegularFile");
    case FailureReason::undecodableAudio:
        return QStringLiteral("undecodableAudio");
    case FailureReason::externalMedia:
        return QStringLiteral("externalMedia");
    case FailureReason::incompleteFile:
        return QStringLiteral("incompleteFile");
    }
    return {};
}

} // namespace folivox
