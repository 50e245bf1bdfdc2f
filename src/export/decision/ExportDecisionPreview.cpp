#include "export/decision/ExportDecisionPreview.h"

#include "export/engine/ExportError.h"
#include "export/decision/ExportPlanBuilder.h"

namespace folivox {

ExportDecisionPreview::Preview ExportDecisionPreview::take(const std::vector<Bookmark>& bookmarks,
                                                           const std::vector<Track>& allTracks,
                                                           const ExportSettings& settings, bool reencode,
                                                           FormatProbeFunction inspector)
{
    ExportDecisionService decisionService;
    decisionService.inspector = std::move(inspector);
    const ExportCacheFreshness::Result fresh = decisionService.refreshCachedFormats(bookmarks);
    Preview preview;
    preview.bookmarks = fresh.bookmarks;
    preview.tracks = fresh.applyTo(allTracks);
    const ExportPlanBuilder::Plan plan = ExportPlanBuilder::build(preview.bookmarks, preview.tracks);
    if (plan.isEmpty())
        throw ExportError::noSourceFiles();
    preview.decision = decisionService.decide(preview.bookmarks, settings, plan, reencode);
    if (preview.decision.strategy == ExportDecision::Strategy::passthroughRange)
        preview.decision.strategy = ExportDecision::Strategy::transcode;
    return preview;
}

} // namespace folivox
