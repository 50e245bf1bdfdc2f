#pragma once

#include "build/BuildFailure.h"
#include "queue/records/QueueBuildFailure.h"

#include <QString>

namespace folivox {

// Sorts a failed build into the queue's error classes, and says when the
// whole queue must halt. Only the failure's type, kind and cause are read,
// never its text:
//
//   cancelled (by the user or the token)                 cancelled
//   a full disk: the export's outOfSpace kind, or the
//     outOfSpace cause on any error                      environment, halt outOfSpace
//   a read-only volume: the readOnlyVolume cause, or
//     the output's volume mounted read-only when a
//     write failed                                       environment, halt readOnlyVolume
//   a helper tool missing (the missingTool cause)       environment, halt tools
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
};

} // namespace folivox
