#pragma once

#include "core/settings/ExportSettings.h"
#include "export/settings/AudiobookSourceInfo.h"
#include "export/settings/BitrateChoice.h"

#include <QString>

#include <optional>
#include <vector>

namespace folivox {

// Which bitrates a book is offered, from the summary of its sources.
//
// Steps (kbps), by output and target:
//   AAC-LC stereo: 64 80 96 112 128 160 192 224 256 320
//   AAC-LC mono:   32 40 48 56 64 80 96 112 128 160 192 224 256
//   HE-AAC stereo: 24 32 40 48 56 64 80 96 128
//   HE-AAC mono:   16 24 32 40 48 56 64
//   MP3 (any):     32 40 48 56 64 80 96 112 128 160 192 224 256 320
// The first step is the encoder's floor (64 kbps is the hard minimum of
// AAC-LC in stereo) and the last its hard limit. The target channel count
// is the setting's, or for `auto` mono when every source is mono, else stereo.
//
// A source rate between two steps goes to the next step up, so quality is
// never lost: 125 kbps gives 128, not 112. Steps above the source's step
// add nothing and are not offered.
class BitrateOptionsCalculator {
public:
    struct PickerModel {
        // The steps offered, rising.
        std::vector<int> options;
        // The source's probed rate (highest file), when any file was probed.
        std::optional<int> keepOriginalKbps;
        // When no file was probed: the rate estimated from size and length.
        std::optional<int> keepOriginalFallbackKbps;

        // The rate "Keep original" stands for: the probed one, else the estimate.
        std::optional<int> keepOriginalRate() const { return keepOriginalKbps ? keepOriginalKbps : keepOriginalFallbackKbps; }
        bool offersKeepOriginal() const { return keepOriginalRate().has_value(); }

        bool operator==(const PickerModel&) const = default;
    };

    static constexpr int aacLCStereoFloorKbps = 64;

    explicit BitrateOptionsCalculator(std::optional<AudiobookSourceInfo> sourceInfo = std::nullopt)
        : sourceInfo_(std::move(sourceInfo))
    {
    }

    // "Keep original" is offered when the source's rate is known and no
    // source is lossless (keeping a lossless rate means nothing to an encoder).
    PickerModel pickerModel(const ExportSettings& settings) const;

    // The channel count a build would target.
    int targetChannelCount(ChannelSetting channels) const;

    // The steps for these settings' output, codec and target channels.
    std::vector<int> stepsFor(const ExportSettings& settings) const;

    // The rate an encode with these settings uses: the fixed rate, or under
    // keepSourceBitrate the source's rate (the fixed rate, else 128, when it
    // is unknown), held within the encoder's floor and hard limit. A mono
    // HE-AAC book at 16 kbps stays at 16.
    int effectiveBitrateKbps(const ExportSettings& settings) const;

    // The HE-AAC recommendation, for AAC-LC in stereo when the source or the
    // chosen rate is below 64 kbps.
    std::optional<QString> lowBitrateRecommendation(const ExportSettings& settings) const;

    // The warning for a source above the encoder's hard limit; its second
    // paragraph depends on whether "Keep original" is offered.
    std::optional<QString> encoderLimitWarning(const ExportSettings& settings) const;

    // The text of a choice in the picker: "128 kbps" or "%d kbps (Keep
    // original)" with the source's rate.
    QString choiceLabel(const BitrateChoice& choice, const PickerModel& model) const;

    static std::vector<int> steps(OutputFormat format, AudioCodec codec, int channelCount);
    // The smallest step at or above `kbps`; the last step when it is above all.
    static int stepAtOrAbove(int kbps, const std::vector<int>& steps);
    static int encoderLimitKbps(OutputFormat format, AudioCodec codec, int channelCount);

    static QString keepOriginalLabel(int kbps);
    static QString lowBitrateStereoText();
    static QString encoderLimitText(int sourceKbps, int limitKbps, bool keepOriginalOffered);

    const std::optional<AudiobookSourceInfo>& sourceInfo() const { return sourceInfo_; }

private:
    std::optional<int> sourceKbps() const;

    std::optional<AudiobookSourceInfo> sourceInfo_;
};

} // namespace folivox
