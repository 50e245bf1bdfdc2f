#pragma once

#include "sidecars/parsers/SidecarParser.h"

namespace folivox {

// Cue sheets. Keywords are matched case-insensitively by prefix on the
// upper-cased, trimmed line. Each TRACK with an INDEX 01 gives one chapter.
// INDEX values are MM:SS:FF in CUE frames (1/75 s); a sheet in which some
// INDEX 01 has a last field of 75 to 99 is read as hundredths instead.
class CueParser : public SidecarParser {
public:
    SidecarFormat format() const override { return SidecarFormat::cue; }
    int confidence(const QString& text, const QUrl& url) const override;
    SidecarParseResult parse(const QString& text, const QUrl& url) const override;
};

} // namespace folivox
