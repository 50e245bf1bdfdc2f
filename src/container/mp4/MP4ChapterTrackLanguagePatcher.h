#pragma once

#include "platform/Error.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>

namespace folivox {

// Stamps an ISO 639-2 language into the `mdhd` of every track with a given
// handler type (the chapter text track: "text"). Overwrites two bytes per
// track in place; never changes a size.
class MP4ChapterTrackLanguagePatcher {
public:
    class PatchError : public Error {
    public:
        enum class Kind { invalidLanguageCode, malformedAtoms, moovUnavailable };
        PatchError(Kind kind, QString detail) : kind_(kind), detail_(std::move(detail)) {}
        Kind kind() const { return kind_; }
        const QString& detail() const { return detail_; }
        QString description() const override;

    private:
        Kind kind_;
        QString detail_;
    };

    // A box inside the moov buffer: positions are buffer offsets.
    struct Box {
        QString type;
        std::uint32_t typeCode = 0;
        qsizetype contentStart = 0;
        qsizetype end = 0;
    };

    struct TrackLanguageField {
        QString handler;
        qsizetype languageOffset = 0; // of the 2-byte field, in the moov buffer
        std::uint16_t packed = 0;     // the value found there
    };

    // Every `mdia` of the buffer holding both `mdhd` and `hdlr`, in file
    // order. Throws PatchError(malformedAtoms) on a box that doesn't decode.
    static QList<TrackLanguageField> trackLanguageFields(const QByteArray& moov);

    // Writes code into every track whose handler type is handler; returns
    // how many were stamped. The code must be three lowercase letters
    // (checked before any I/O). Throws PatchError or MP4FileError.
    static int stamp(const QString& path, const QString& code, const QString& handler);

    // The export's call: stamps the chapter text track and never fails,
    // logging what happened under "[MetadataWriting]". Returns the count, or
    // -1 after a failure.
    static int stampChapterTrackNonFatal(const QString& path, const QString& code);
};

} // namespace folivox
