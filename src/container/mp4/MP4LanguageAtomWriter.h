#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace folivox {

// Writes the book's language into an MP4: the iTunes `©lan` item, freeform
// `----` items (such as "LANGUAGE"), and the `mdhd` language of the audio
// track. Edits `moov` in memory and puts it back through MP4MoovRewriter; when
// there is no room for that, writes the whole file anew with room behind the
// moov (MP4MoovCopyRewriter, files up to 2048 MB).
class MP4LanguageAtomWriter {
public:
    struct BoxRef {
        QString fourCC;
        qsizetype offset = 0;
        qsizetype size = 0;
        // offset + header length, and 4 more for the full box `meta`.
        qsizetype contentOffset = 0;
    };

    struct FreeformTag {
        QString name;
        QString value;
        qsizetype maxValueBytes = 255;
    };

    static constexpr qsizetype languageTagMaxBytes = 64;
    static constexpr qsizetype languageTextMaxCharacters = 256;
    // Files of this size or larger are not rewritten whole.
    static constexpr std::uint64_t fullFileLimit = 2147483649;

    // The bytes of a `©lan` item holding text (cut to 256 characters).
    static QByteArray languageAtom(const QString& text);
    // The bytes of a `----` item; the value is cut to maxValueBytes and then
    // back to a character boundary.
    static QByteArray freeformAtom(const FreeformTag& tag);
    // value's UTF-8 bytes, cut to at most maxBytes without splitting a character.
    static QByteArray utf8Prefix(const QString& value, qsizetype maxBytes);

    // The boxes moov, udta, meta, ilst of the `moov` that starts at
    // moovOffset in buffer; shorter when a step is missing.
    static QList<BoxRef> ilstPath(const QByteArray& buffer, qsizetype moovOffset);

    // In-buffer edits of the `moov` that starts at moovOffset in buffer (0 for
    // a MoovBuffer, its file offset for a whole file). Each returns the number
    // of bytes the buffer grew by (negative when it shrank), or nothing when
    // it was skipped (the reason is logged). Replaces every earlier copy.
    static std::optional<std::int64_t> placeLanguageAtom(QByteArray& buffer, qsizetype moovOffset, const QString& text);
    static std::optional<std::int64_t> placeFreeformAtom(QByteArray& buffer, qsizetype moovOffset, const FreeformTag& tag);
    // Sets the language of the first track's `mdhd`; the code is lowercased
    // first. Returns whether it was written.
    static bool setAudioLanguage(QByteArray& buffer, qsizetype moovOffset, const QString& code);

    // Writes `©lan` (when languageText is non-empty), the "LANGUAGE" freeform
    // item and the audio track's language (when isoCode is non-empty), and
    // each of tags. Skips are logged; only an I/O failure of the full-file
    // path throws. Returns the labels written (empty when nothing was).
    static QStringList write(const QString& path, const std::optional<QString>& languageText, const QString& isoCode,
                             const QList<FreeformTag>& tags = {});

    // Writes one freeform item.
    static QStringList writeFreeform(const QString& path, const FreeformTag& tag);
};

} // namespace folivox
