#include "export/settings/SampleRateOptionsService.h"

#include <algorithm>

namespace folivox {

std::vector<AudioCodec> SampleRateOptionsService::availableCodecs(OutputFormat format) const
{
    if (format == OutputFormat::mp3)
        return {};
    if (heAACEncoderAvailable)
        return {AudioCodec::aacLC, AudioCodec::heAAC};
    return {AudioCodec::aacLC};
}

std::vector<SampleRateOption> SampleRateOptionsService::availableOptions(AudioCodec codec) const
{
    std::vector<SampleRateOption> options{SampleRateOption::auto_};
    const std::optional<int> sourceHz = sourceInfo ? sourceInfo->maxSampleRate() : std::nullopt;
    for (SampleRateOption option : enumCases<SampleRateOption>()) {
        const std::optional<int> hz = sampleRateHz(option);
        if (!hz)
            continue;
        if (codec == AudioCodec::heAAC && *hz < 32000)
            continue;
        if (sourceHz && *hz > *sourceHz)
            continue;
        options.push_back(option);
    }
    return options;
}

bool SampleRateOptionsService::isOffered(SampleRateOption option, AudioCodec codec) const
{
    const auto options = availableOptions(codec);
    return std::find(options.begin(), options.end(), option) != options.end();
}

SampleRateOption SampleRateOptionsService::initialOption(AudioCodec codec) const
{
    if (savedCustomRate && isOffered(*savedCustomRate, codec))
        return *savedCustomRate;
    return SampleRateOption::auto_;
}

ExportSettings SampleRateOptionsService::constrained(ExportSettings settings) const
{
    if (settings.codec == AudioCodec::heAAC && !heAACEncoderAvailable)
        settings.codec = AudioCodec::aacLC;
    if (!isOffered(settings.sampleRate, settings.codec))
        settings.sampleRate = SampleRateOption::auto_;
    return settings;
}

} // namespace folivox
