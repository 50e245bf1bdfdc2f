#pragma once

#include "core/settings/ExportSettings.h"
#include "export/settings/AudiobookSourceInfo.h"
#include "export/settings/UserExportPreset.h"
#include "export/settings/UserPresetCapWarning.h"

#include <QString>

#include <optional>

namespace folivox {

// Holds settings down to what the sources can use, so that nothing is spent
// on quality the sources do not have:
//   - a fixed bitrate above the source's step (the next step up from the
//     source's rate) comes down to that step, never below the encoder's
//     floor; a kept source rate is left alone;
//   - a sample rate above the highest source rate comes down to the highest
//     option at or below it, or to `auto` when there is none;
//   - stereo over sources that are all mono becomes mono.
struct ExportSettingsCapService {
    struct CapResult {
        ExportSettings settings;
        bool bitrateCapped = false;
        bool sampleRateCapped = false;
        bool channelsCapped = false;

        bool changed() const { return bitrateCapped || sampleRateCapped || channelsCapped; }
        // "Quality Capped to Source" when the bitrate was held down.
        std::optional<QString> bitrateLabel() const;
    };

    std::optional<AudiobookSourceInfo> sourceInfo;
    // The source's rate when the caller knows it better than the summary.
    std::optional<int> sourceBitrateKbps;

    // sourceBitrateKbps, else the summary's rate.
    std::optional<int> effectiveSourceBitrateKbps() const;

    CapResult capped(const ExportSettings& settings) const;

    // A saved preset applied to this book: a warning when it had to be
    // reduced, naming the preset and summarising what was applied.
    std::optional<UserPresetCapWarning> capWarning(const UserExportPreset& preset) const;

    static QString qualityCappedLabel();
};

} // namespace folivox
