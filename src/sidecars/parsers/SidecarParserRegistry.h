#pragma once

#include "sidecars/parsers/SidecarParser.h"

#include <QList>

#include <optional>

namespace folivox {

// The seven parsers in the order they are asked: cue, ffmetadata, mkvXML,
// mkvSimple, mp4chaps, audacityLabels, simpleText. The best confidence wins;
// a later parser replaces the best only with a strictly higher score, so a tie
// goes to the earlier one. A best score of 0 means no parser applies.
class SidecarParserRegistry {
public:
    SidecarParserRegistry() = delete;

    static const QList<const SidecarParser*>& parsers();
    static const SidecarParser* parser(SidecarFormat format);

    struct Selection {
        const SidecarParser* parser = nullptr;
        int score = 0;
    };
    static Selection select(const QString& text, const QUrl& url);

    // Selects and parses; nothing when no parser applies.
    static std::optional<SidecarParseResult> parse(const QString& text, const QUrl& url);
};

} // namespace folivox
