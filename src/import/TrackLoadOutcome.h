#pragma once

#include "core/book/Track.h"

#include <QList>
#include <QString>
#include <QUrl>

#include <vector>

namespace folivox {

// The result of loading a list of files: the tracks in input order, the
// damaged sources whose repaired copies stand in for them, and the files that
// could not be read, each with its reason.
struct TrackLoadOutcome {
    enum class FailureReason {
        brokenAudioStream,
        zeroDuration,
        timeout,
        noAudioFound,
        other,
        // This user may not read the file (or the folder).
        permissionDenied,
        // A pipe, socket or device: not opened, since reading may never end.
        notRegularFile,
        // No decoder for the audio's codec.
        undecodableAudio,
        // An MP4 "reference movie": its audio is in another file.
        externalMedia,
        // The audio's samples run past the end of the file.
        incompleteFile,
    };

    struct UnreadableFile {
        QUrl url;
        FailureReason reason = FailureReason::other;
        bool operator==(const UnreadableFile&) const = default;
    };

    std::vector<Track> tracks;
    QList<QUrl> repairedOriginalURLs;
    std::vector<UnreadableFile> unreadableFiles;
    // Loaded tracks whose audio sample entry is a copy-protected one.
    QList<QUrl> protectedURLs;

    bool isEmpty() const { return tracks.empty() && repairedOriginalURLs.isEmpty() && unreadableFiles.empty(); }

    // The localisation key and the text shown for a reason; the timeout text
    // names the stall interval in whole seconds.
    static const char* reasonKey(FailureReason reason);
    static QString reasonText(FailureReason reason, int timeoutSeconds = 10);
    // The case name, as used in logs and JSON ("brokenAudioStream", ...).
    static QString reasonName(FailureReason reason);
};

} // namespace folivox
