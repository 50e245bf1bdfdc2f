#pragma once

#include <QString>

#include <optional>

namespace folivox {

// Cleans text read from tags and chapter files before it is shown or stored.
//
// Two faults are repaired:
//  - mojibake: UTF-8 bytes that were decoded as Latin-1 or Windows-1252 ("Ã©"
//    instead of "é"). The text is turned back into the single-byte sequence it
//    came from and decoded again as UTF-8, and the repair is kept only when it
//    is unambiguous: every character maps to one byte and the bytes form valid
//    UTF-8 as a whole. Mixed or genuine Latin text is left alone.
//  - invisible characters: zero-width spaces, byte order marks, word joiners,
//    control characters, bidirectional overrides and similar marks that carry
//    no visible text. Joiners that shape emoji or scripts (U+200C, U+200D) and
//    direction marks are kept inside the text and removed only at its ends.
//
// The result is in Unicode normalisation form C. Single-line kinds fold line
// breaks and tabs into spaces, collapse runs of white space and trim; the
// free-text kind keeps line breaks (as "\n") and trims the whole text.
class TagTextRepair {
public:
    enum class Kind {
        title,        // book and track titles, album, series
        chapterTitle, // chapter names from files and chapter lists
        person,       // author, narrator, artist, composer
        freeText,     // comment, description, lyrics: keeps line breaks
    };

    static QString repair(const QString& text, Kind kind);

    // The mojibake step alone: the repaired text, or nothing when the text
    // shows no wrong decoding or the repair would be ambiguous. Text that was
    // mis-decoded twice is repaired in up to three rounds.
    static std::optional<QString> repairMojibake(const QString& text);

    // The invisible-character step alone. With keepLineBreaks false, line
    // breaks and tabs become spaces.
    static QString removeInvisibleCharacters(const QString& text, bool keepLineBreaks);

    // True for a code point that repair() removes wherever it stands.
    static bool isInvisible(char32_t codePoint);
};

} // namespace folivox
