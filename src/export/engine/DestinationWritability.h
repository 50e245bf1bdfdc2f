#pragma once

#include <QString>

namespace folivox {

// Whether a build may write its output, checked before any audio work: a
// file named ".folivox-write-probe-<UUID>" is created and removed in the
// output's folder (locked while it exists). Where the folder refuses, an
// output file that already exists may still be writable in place (a grant
// that covers the file but not its folder). A build never uses such a grant:
// writing over the user's file in place would leave it destroyed if the build
// stopped midway, so require() refuses it with a message that says why.
class DestinationWritability {
public:
    enum class Result { folder, fileOnly, refused };

    // outputIsDirectory: the output is a folder (a multi-file build); the
    // probe then goes inside it, or, when it does not exist yet, into the
    // folder that will hold it.
    static Result check(const QString& outputPath, bool outputIsDirectory);

    // The text logged after "Destination writability: ".
    static QString describe(Result result);

    // The name the refusal message shows: the output's own last component
    // when it is a directory, else its parent folder's.
    static QString refusedFolderName(const QString& outputPath, bool outputIsDirectory);

    // Runs check(), logs the result and throws
    // ExportError::destinationNotWritable when both ways are refused, and
    // ExportError::validationFailed (naming the folder and the file) when
    // only the file could be written.
    static Result require(const QString& outputPath, bool outputIsDirectory);

    static constexpr const char* probePrefix = ".folivox-write-probe-";
};

} // namespace folivox
