#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace folivox {

// ISO 639 language codes as MP4 files carry them: three lowercase letters,
// packed into 15 bits for `mdhd`.
class LanguageCodes {
public:
    // Exactly three lowercase ASCII letters.
    static bool isValidISO6392(const QString& code);

    // (c1 - 0x60) << 10 | (c2 - 0x60) << 5 | (c3 - 0x60); empty for an invalid code.
    static std::optional<std::uint16_t> pack(const QString& code);
    // The three letters of a packed value; empty when a letter is out of range.
    static std::optional<QString> unpack(std::uint16_t packed);

    // Converts a language text to an ISO 639-2 code: trims, lowercases, reads
    // common English (and native) language names, then takes the part before
    // the first separator ("en-US", "de_DE.UTF-8") and maps ISO 639-1 to
    // ISO 639-2. A known three-letter code passes through. Empty when nothing
    // matches.
    static std::optional<QString> toISO6392(const QString& text);

    // The language stamped on a chapter track: the book's language when it is
    // already a valid code, else its conversion, else the first of the
    // preferred languages that converts to something other than "und", else
    // "eng". preferredLanguages defaults to the system's UI languages.
    static QString chapterTrackLanguage(const std::optional<QString>& bookLanguage);
    static QString chapterTrackLanguage(const std::optional<QString>& bookLanguage, const QStringList& preferredLanguages);
};

} // namespace folivox
