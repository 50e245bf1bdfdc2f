#pragma once

#include "core/book/Bookmark.h"
#include "core/settings/ExportSettings.h"
#include "core/book/Track.h"
#include "export/decision/ExportDecision.h"
#include "export/decision/ExportDecisionService.h"

#include <vector>

namespace folivox {

// The decision a build would take, without building: cached formats that no
// longer match their files are probed again, the plan is made and the
// decision taken exactly as the export driver does.
class ExportDecisionPreview {
public:
    struct Preview {
        std::vector<Bookmark> bookmarks; // with refreshed formats
        std::vector<Track> tracks;       // with refreshed formats
        ExportDecision decision;
    };

    // Throws ExportError::noSourceFiles when nothing is left to build.
    static Preview take(const std::vector<Bookmark>& bookmarks, const std::vector<Track>& allTracks,
                        const ExportSettings& settings, bool reencode, FormatProbeFunction inspector);
};

} // namespace folivox
