#include "export/settings/ExportSettingsCapService.h"

#include "export/settings/BitrateOptionsCalculator.h"
#include "platform/L10n.h"

namespace folivox {

std::optional<QString> ExportSettingsCapService::CapResult::bitrateLabel() const
{
    if (!bitrateCapped)
        return std::nullopt;
    return qualityCappedLabel();
}

QString ExportSettingsCapService::qualityCappedLabel()
{
    return L10n::text("export.bitrate.qualityCapped", "Quality Capped to Source");
}

std::optional<int> ExportSettingsCapService::effectiveSourceBitrateKbps() const
{
    if (sourceBitrateKbps && *sourceBitrateKbps > 0)
        return sourceBitrateKbps;
    if (sourceInfo)
        return sourceInfo->bitrateKbps();
    return std::nullopt;
}

ExportSettingsCapService::CapResult ExportSettingsCapService::capped(const ExportSettings& settings) const
{
    CapResult result{settings};
    ExportSettings& s = result.settings;
    const BitrateOptionsCalculator calculator(sourceInfo);

    if (sourceInfo && s.channels == ChannelSetting::stereo) {
        if (auto maxChannels = sourceInfo->maxChannels(); maxChannels && *maxChannels == 1) {
            s.channels = ChannelSetting::mono;
            result.channelsCapped = true;
        }
    }

    if (sourceInfo) {
        const std::optional<int> requestedHz = sampleRateHz(s.sampleRate);
        const std::optional<int> sourceHz = sourceInfo->maxSampleRate();
        if (requestedHz && sourceHz && *requestedHz > *sourceHz) {
            SampleRateOption best = SampleRateOption::auto_;
            for (SampleRateOption option : enumCases<SampleRateOption>()) {
                if (auto hz = sampleRateHz(option); hz && *hz <= *sourceHz)
                    best = option;
            }
            s.sampleRate = best;
            result.sampleRateCapped = true;
        }
    }

    const std::optional<int> source = effectiveSourceBitrateKbps();
    if (source && !s.keepSourceBitrate && s.cbrBitrateKbps) {
        const int top = BitrateOptionsCalculator::stepAtOrAbove(*source, calculator.stepsFor(s));
        if (*s.cbrBitrateKbps > top) {
            s.cbrBitrateKbps = top;
            result.bitrateCapped = true;
        }
    }
    return result;
}

std::optional<UserPresetCapWarning> ExportSettingsCapService::capWarning(const UserExportPreset& preset) const
{
    const CapResult result = capped(preset.settings);
    if (!result.changed())
        return std::nullopt;
    UserPresetCapWarning warning;
    warning.presetName = preset.name;
    warning.appliedSummary = result.settings.summary();
    return warning;
}

} // namespace folivox
