#pragma once

#include "sidecars/discovery/SidecarDiscoveryResult.h"

#include <QString>

#include <optional>

namespace folivox {

// How a build from the command line uses what discovery found.
//
//  - With --no-sidecar, chapter files are ignored: action `ignore`.
//  - The best match with confidence `high` is applied: action `apply`. Its
//    chapters replace the chapters taken from the audio.
//  - A best match with confidence `medium` is reported but not applied:
//    action `report`. The build prints where it is and how to use it
//    (--chapters FILE), since a wrong chapter list is worse than none.
//  - `low` and `none`, or no chapter file that parsed and validated: action
//    `ignore`, with a reason saying what was seen.
// An explicit --chapters FILE is the build command's own business and does
// not come through here.
class SidecarApplyPolicy {
public:
    enum class Action { apply, report, ignore };

    struct Decision {
        Action action = Action::ignore;
        // The match the decision is about, when there is one.
        std::optional<SidecarMatchResult> match;
        // One line for the user: what was found and why it is or isn't used.
        QString reason;

        bool shouldApply() const { return action == Action::apply; }
    };

    static Decision decide(const SidecarDiscoveryResult& discovery, bool noSidecar);

    static QString actionRawValue(Action action);
};

} // namespace folivox
