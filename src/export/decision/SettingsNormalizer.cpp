#include "export/decision/SettingsNormalizer.h"

#include "platform/Log.h"

#include <algorithm>

namespace folivox {

ExportSettings SettingsNormalizer::normalize(const ExportSettings& settings,
                                             const ExportDecision::NormalizationTarget& target)
{
    ExportSettings effective = settings;

    int rate = target.sampleRate;
    if (const std::optional<int> cap = sampleRateHz(settings.sampleRate))
        rate = std::min(rate, *cap);
    if (rate > 0)
        effective.sampleRate = sampleRateOptionForHz(rate);

    switch (settings.channels) {
    case ChannelSetting::auto_:
    case ChannelSetting::stereo:
        effective.channels = target.channels == 1 ? ChannelSetting::mono : ChannelSetting::stereo;
        break;
    case ChannelSetting::mono:
        effective.channels = ChannelSetting::mono;
        break;
    }

    effective.passthroughPolicy = PassthroughPolicy::disabled;
    return effective;
}

ExportSettings SettingsNormalizer::effectiveSettings(const ExportSettings& settings, const ExportDecision& decision)
{
    if (!decision.normalizationTarget)
        return settings;
    const ExportDecision::NormalizationTarget& target = *decision.normalizationTarget;
    Log::write(QStringLiteral("[Export] Normalization target: sampleRate=%1 channels=%2")
                   .arg(target.sampleRate)
                   .arg(target.channels));
    const ExportSettings effective = normalize(settings, target);
    Log::write(QStringLiteral("[Export] Effective settings after normalization: codec=%1 channels=%2 sampleRate=%3 "
                              "passthrough=%4")
                   .arg(label(effective.codec), label(effective.channels), label(effective.sampleRate),
                        label(effective.passthroughPolicy)));
    return effective;
}

} // namespace folivox
