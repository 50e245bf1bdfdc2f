#pragma once

#include "sidecars/parsers/SidecarParser.h"

namespace folivox {

// FFmpeg's FFMETADATA1 text: [CHAPTER] sections with TIMEBASE, START, END and
// title keys. Values are taken as they stand (no backslash unescaping).
class FFMetadataParser : public SidecarParser {
public:
    SidecarFormat format() const override { return SidecarFormat::ffmetadata; }
    int confidence(const QString& text, const QUrl& url) const override;
    SidecarParseResult parse(const QString& text, const QUrl& url) const override;
};

} // namespace folivox
