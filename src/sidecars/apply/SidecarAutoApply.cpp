#include "sidecars/apply/SidecarAutoApply.h"

#include "platform/Log.h"
#include "sidecars/apply/SidecarApplyPolicy.h"
#include "sidecars/apply/SidecarChapterFitter.h"
#include "sidecars/discovery/SidecarDiscoveryService.h"

#include <QFileInfo>

#include <cmath>

namespace folivox {

SidecarAutoApply::Outcome SidecarAutoApply::apply(const std::vector<Track>& tracks, bool noSidecar)
{
    QList<SidecarAudioInput> audio;
    for (const Track& t : tracks)
        audio.append({t.url, static_cast<std::int64_t>(std::llround(t.duration * 1000.0))});
    SidecarDiscoveryService discovery;
    const SidecarApplyPolicy::Decision decision = SidecarApplyPolicy::decide(discovery.discover(audio), noSidecar);
    Log::write(QStringLiteral("[Sidecar] ") + decision.reason);
    Outcome outcome;
    outcome.reason = decision.reason;
    outcome.worthTelling = decision.action != SidecarApplyPolicy::Action::ignore || decision.shouldApply();
    if (decision.shouldApply() && decision.match) {
        const auto fitted = SidecarChapterFitter::fit(decision.match->parseResult, SidecarChapterFitter::totalDurationMs(tracks));
        auto fromFile = SidecarChapterFitter::bookmarks(tracks, fitted.chapters);
        if (!fromFile.empty()) {
            outcome.bookmarks = std::move(fromFile);
            outcome.fileName = QFileInfo(decision.match->sidecarURL.toLocalFile()).fileName();
        }
    }
    return outcome;
}

} // namespace folivox
