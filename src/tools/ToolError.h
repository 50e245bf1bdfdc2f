#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// Why one of the mp4 tools refused or failed. The text is the one line the
// tool prints on stderr; the kind tells the exit status apart from a usage
// error.
class ToolError : public Error {
public:
    enum class Kind {
        usage,                 // bad command line
        fileUnreadable,        // the file cannot be opened or read
        notAnMP4,              // the file is not an MP4 container
        moovUnreadable,        // the moov box cannot be loaded or parsed
        unsupported,           // a layout the tool does not edit
        chapterFileUnreadable, // the chapter list cannot be read
        chapterFileInvalid,    // the chapter list has a line the tool cannot read
        imageUnreadable,       // the image file cannot be read
        imageUnsupported,      // the image is neither JPEG nor PNG
        writeFailed,           // an I/O failure while writing the file
    };

    ToolError(Kind kind, QString message) : kind_(kind), message_(std::move(message)) {}

    Kind kind() const { return kind_; }
    QString description() const override { return message_; }

    // Exit status for this failure: 2 for a usage error, 1 otherwise.
    int exitStatus() const { return kind_ == Kind::usage ? 2 : 1; }

private:
    Kind kind_;
    QString message_;
};

} // namespace folivox
