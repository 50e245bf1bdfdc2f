#pragma once

#include "core/settings/ExportSettings.h"
#include "export/decision/ExportDecision.h"

namespace folivox {

// Derives the settings a build really runs with when its sources have to be
// brought to one format first (the decision's normalisation target):
//   - the target rate is capped by the user's choice (22050, 32000, 44100 or
//     48000 Hz; `auto` leaves it) and mapped back to an option: below 22051
//     hz22050, below 32001 hz32000, below 48000 hz44100 (44101-47999 fall to
//     44100, not up), else hz48000;
//   - `stereo` and `auto` become `mono` for a one-channel target and `stereo`
//     otherwise; `mono` stays `mono`;
//   - passthrough is disabled, so that every piece is encoded to the same
//     format.
class SettingsNormalizer {
public:
    static ExportSettings normalize(const ExportSettings& settings,
                                    const ExportDecision::NormalizationTarget& target);

    // The settings for the build: normalised and logged ("Normalization
    // target: ...", "Effective settings after normalization: ...") when the
    // decision carries a target, unchanged otherwise.
    static ExportSettings effectiveSettings(const ExportSettings& settings, const ExportDecision& decision);
};

} // namespace folivox
