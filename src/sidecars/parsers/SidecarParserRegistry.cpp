#include "sidecars/parsers/SidecarParserRegistry.h"

#include "sidecars/parsers/AudacityLabelsParser.h"
#include "sidecars/parsers/CueParser.h"
#include "sidecars/parsers/FFMetadataParser.h"
#include "sidecars/parsers/MkvSimpleChaptersParser.h"
#include "sidecars/parsers/MkvXMLChaptersParser.h"
#include "sidecars/parsers/Mp4chapsParser.h"
#include "sidecars/parsers/SimpleTextParser.h"

namespace folivox {

const QList<const SidecarParser*>& SidecarParserRegistry::parsers()
{
    static const CueParser cue;
    static const FFMetadataParser ffmetadata;
    static const MkvXMLChaptersParser mkvXML;
    static const MkvSimpleChaptersParser mkvSimple;
    static const Mp4chapsParser mp4chaps;
    static const AudacityLabelsParser audacity;
    static const SimpleTextParser simpleText;
    static const QList<const SidecarParser*> all = {&cue, &ffmetadata, &mkvXML, &mkvSimple,
                                                    &mp4chaps, &audacity, &simpleText};
    return all;
}

const SidecarParser* SidecarParserRegistry::parser(SidecarFormat format)
{
    for (const SidecarParser* p : parsers()) {
        if (p->format() == format)
            return p;
    }
    return nullptr;
}

SidecarParserRegistry::Selection SidecarParserRegistry::select(const QString& text, const QUrl& url)
{
    Selection best;
    for (const SidecarParser* p : parsers()) {
        const int score = p->confidence(text, url);
        if (best.parser == nullptr || score > best.score)
            best = Selection{p, score};
    }
    if (best.score <= 0)
        return Selection{};
    return best;
}

std::optional<SidecarParseResult> SidecarParserRegistry::parse(const QString& text, const QUrl& url)
{
    const Selection s = select(text, url);
    if (!s.parser)
        return std::nullopt;
    return s.parser->parse(text, url);
}

} // namespace folivox
