#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

namespace folivox {

// Corrects the `channelcount` of an AAC sample description that claims more
// channels than its own AudioSpecificConfig: a mono AAC-LC or HE-AAC track
// written with channelcount 2 becomes 1. Two bytes per track, in place,
// checked against the file before anything is written.
class MP4StsdChannelPatcher {
public:
    struct Box {
        QString type;
        std::uint32_t typeCode = 0;
        qsizetype body = 0; // first byte behind the header
        qsizetype end = 0;
    };

    struct Edit {
        qsizetype trackID = 0;
        qsizetype offset = 0; // of channelcount, in the moov buffer
        std::uint16_t before = 0;
        std::uint16_t after = 1;
        qsizetype audioObjectType = 0;
        qsizetype channelConfiguration = 0;
    };

    struct Decision {
        std::optional<Edit> patch;         // set: patch this track
        std::optional<qsizetype> trackID;  // for a skip
        QString reason;                    // for a skip
    };

    // What was done: the edits written, or why nothing was.
    struct Outcome {
        QList<Edit> edits;
        QString reason; // empty when edits were written
    };

    // One decision per `trak` of the moov buffer.
    static QList<Decision> decide(const QByteArray& moov);

    // Reads moov, decides, verifies every edit against the file, then writes
    // them. Throws MP4FileError on an I/O failure.
    static Outcome apply(const QString& path);

    // apply() that never throws: a failure becomes "io-error " plus its
    // description, logged under "[StsdPatch]".
    static Outcome applyLogged(const QString& path);
};

} // namespace folivox
