#pragma once

#include "build/BuildFailure.h"
#include "queue/records/QueueBuildFailure.h"

#include <QString>

namespace folivox {

// Sorts a failed build into the queue's error classes, and says when the
// whole queue must halt:
//
//   cancelled (by the user or the token)                 cancelled
//   a full disk (ENOSPC, ffmpeg's out-of-space report,
//     the export's out-of-space error)                   environment, halt outOfSpace
//   a read-only volume (EROFS, or the output's volume
//     mounted read-only when the write failed)           environment, halt readOnlyVolume
//   a helper tool missing (mp4tags, mp4art, mp4chaps)   environment, halt tools
//   destinationNotWritable                               environment, halt destination
//   ffmpegUnavailable                                    environment, halt ffmpeg
//   securityCheckFailed                                  environment, halt security
//   demoRestriction, licenseValidationFailed             licenseBlock, halt license
//   noSourceFiles                                        sourcesUnavailable, halt sourcesLost
//   corruptedSourceRequiresTranscode,
//     transcodeFailedAfterRetry, validationFailed        permanent
//   failedToWrite, underlying (a tool or write failure)  transient
//   a usage failure, or a failure before the export
//     (unreadable inputs, chapter file, output checks)   permanent
class QueueFailureClassifier {
public:
    // outputPath: where the build was writing, for a look at its volume.
    static QueueBuildFailure classify(const BuildFailure& failure, const QString& outputPath);

    // The same test the classifier uses on a message and an errno-style
    // text: a full disk, a read-only file system.
    static bool mentionsOutOfSpace(const QString& text);
    static bool mentionsReadOnly(const QString& text);
    // Whether the volume holding `path` (or its nearest existing folder) is
    // mounted read-only.
    static bool volumeIsReadOnly(const QString& path);
};

} // namespace folivox
