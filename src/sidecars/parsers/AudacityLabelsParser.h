#pragma once

#include "sidecars/parsers/SidecarParser.h"

namespace folivox {

// Audacity label exports: start seconds, end seconds and an optional label,
// separated by tabs. Point labels (start equal to end) keep both times.
class AudacityLabelsParser : public SidecarParser {
public:
    SidecarFormat format() const override { return SidecarFormat::audacityLabels; }
    int confidence(const QString& text, const QUrl& url) const override;
    SidecarParseResult parse(const QString& text, const QUrl& url) const override;

    // The confidence rule on its own (the sniffer uses the same test).
    static int labelConfidence(const QString& text);
};

} // namespace folivox
