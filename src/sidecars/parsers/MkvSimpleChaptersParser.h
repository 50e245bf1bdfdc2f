#pragma once

#include "sidecars/parsers/SidecarParser.h"

namespace folivox {

// OGM-style chapter pairs: CHAPTER01=00:00:00.000 and CHAPTER01NAME=Title.
// Chapters come out in ascending chapter number.
class MkvSimpleChaptersParser : public SidecarParser {
public:
    SidecarFormat format() const override { return SidecarFormat::mkvSimple; }
    int confidence(const QString& text, const QUrl& url) const override;
    SidecarParseResult parse(const QString& text, const QUrl& url) const override;
};

} // namespace folivox
