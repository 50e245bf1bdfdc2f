#pragma once

#include "sidecars/parsers/SidecarParser.h"

namespace folivox {

// The loosest form: a time near the start of each line, after any list
// decoration, then the title. Lines without a time are passed over silently.
class SimpleTextParser : public SidecarParser {
public:
    SidecarFormat format() const override { return SidecarFormat::simpleText; }
    int confidence(const QString& text, const QUrl& url) const override;
    SidecarParseResult parse(const QString& text, const QUrl& url) const override;
};

} // namespace folivox
