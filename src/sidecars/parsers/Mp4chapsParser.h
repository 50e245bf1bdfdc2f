#pragma once

#include "sidecars/parsers/SidecarParser.h"

namespace folivox {

// One chapter a line, a clock time then an optional title: the text form of
// the mp4chaps tool and of "*.chapters.txt" lists. A line that fits none of
// the forms gets a second chance with list decorations ("[", "(", "-", "•",
// "*", "1.") taken off its front; on that chance a closing bracket may follow
// the time directly and is cleared from the title.
class Mp4chapsParser : public SidecarParser {
public:
    SidecarFormat format() const override { return SidecarFormat::mp4chaps; }
    int confidence(const QString& text, const QUrl& url) const override;
    SidecarParseResult parse(const QString& text, const QUrl& url) const override;

    // The decoration prefixes, each tried once in order; shared with the
    // simple-text reader. Returns the rest of the line.
    static QString stripDecorations(const QString& line, bool* removedSomething = nullptr);
};

} // namespace folivox
