#pragma once

#include "sidecars/parsers/SidecarParser.h"

namespace folivox {

// Matroska chapter XML (mkvextract/mkvmerge). Atoms are found by pattern
// rather than by a strict XML reader, so files with small XML faults (stray
// ampersands, no root element, a truncated tail) still give their chapters. A
// nested ChapterAtom is cut off at the first closing tag. Entities in titles
// are decoded. Files nested more than 20 levels deep are refused before
// anything else is read.
class MkvXMLChaptersParser : public SidecarParser {
public:
    static constexpr int kMaxDepth = 20;

    SidecarFormat format() const override { return SidecarFormat::mkvXML; }
    int confidence(const QString& text, const QUrl& url) const override;
    SidecarParseResult parse(const QString& text, const QUrl& url) const override;

    // The deepest element nesting in the text, scanning from "<" to the next
    // ">": declarations and processing instructions are passed over, closing
    // tags go up a level (never below 0) and self-closing tags stay level.
    static int nestingDepth(const QString& text);
    // "HH:MM:SS.nnnnnnnnn" in whole milliseconds (the fraction is optional).
    static std::optional<std::int64_t> parseTime(QStringView text);
};

} // namespace folivox
