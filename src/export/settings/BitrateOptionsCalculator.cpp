#include "export/settings/BitrateOptionsCalculator.h"

#include "platform/L10n.h"

#include <algorithm>

namespace folivox {

std::vector<int> BitrateOptionsCalculator::steps(OutputFormat format, AudioCodec codec, int channelCount)
{
    if (format == OutputFormat::mp3)
        return {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    const bool mono = channelCount == 1;
    if (codec == AudioCodec::heAAC) {
        if (mono)
            return {16, 24, 32, 40, 48, 56, 64};
        return {24, 32, 40, 48, 56, 64, 80, 96, 128};
    }
    if (mono)
        return {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256};
    return {aacLCStereoFloorKbps, 80, 96, 112, 128, 160, 192, 224, 256, 320};
}

int BitrateOptionsCalculator::stepAtOrAbove(int kbps, const std::vector<int>& steps)
{
    const auto it = std::lower_bound(steps.begin(), steps.end(), kbps);
    return it == steps.end() ? steps.back() : *it;
}

int BitrateOptionsCalculator::encoderLimitKbps(OutputFormat format, AudioCodec codec, int channelCount)
{
    return steps(format, codec, channelCount).back();
}

int BitrateOptionsCalculator::targetChannelCount(ChannelSetting channels) const
{
    if (auto n = channelCount(channels))
        return *n;
    if (sourceInfo_) {
        if (auto maxChannels = sourceInfo_->maxChannels(); maxChannels && *maxChannels == 1)
            return 1;
    }
    return 2;
}

std::vector<int> BitrateOptionsCalculator::stepsFor(const ExportSettings& settings) const
{
    return steps(settings.outputFormat, settings.codec, targetChannelCount(settings.channels));
}

std::optional<int> BitrateOptionsCalculator::sourceKbps() const
{
    if (!sourceInfo_)
        return std::nullopt;
    return sourceInfo_->bitrateKbps();
}

BitrateOptionsCalculator::PickerModel BitrateOptionsCalculator::pickerModel(const ExportSettings& settings) const
{
    PickerModel model;
    const std::vector<int> all = stepsFor(settings);
    const std::optional<int> source = sourceKbps();
    if (source) {
        const int top = stepAtOrAbove(*source, all);
        std::copy_if(all.begin(), all.end(), std::back_inserter(model.options), [top](int s) { return s <= top; });
    } else {
        model.options = all;
    }
    if (sourceInfo_ && !sourceInfo_->hasLosslessSource()) {
        model.keepOriginalKbps = sourceInfo_->measuredBitrateKbps();
        if (!model.keepOriginalKbps)
            model.keepOriginalFallbackKbps = sourceInfo_->avgBitrateKbpsFallback;
    }
    return model;
}

int BitrateOptionsCalculator::effectiveBitrateKbps(const ExportSettings& settings) const
{
    const std::vector<int> range = stepsFor(settings);
    int requested = 0;
    if (settings.keepSourceBitrate)
        requested = sourceKbps().value_or(settings.cbrBitrateKbps.value_or(128));
    else
        requested = settings.cbrBitrateKbps.value_or(sourceKbps().value_or(128));
    return std::clamp(requested, range.front(), range.back());
}

std::optional<QString> BitrateOptionsCalculator::lowBitrateRecommendation(const ExportSettings& settings) const
{
    if (settings.outputFormat == OutputFormat::mp3 || settings.codec != AudioCodec::aacLC)
        return std::nullopt;
    if (targetChannelCount(settings.channels) != 2)
        return std::nullopt;
    const std::optional<int> source = sourceKbps();
    const bool sourceBelow = source && *source < aacLCStereoFloorKbps;
    const bool chosenBelow = !settings.keepSourceBitrate && settings.cbrBitrateKbps
                             && *settings.cbrBitrateKbps < aacLCStereoFloorKbps;
    if (!sourceBelow && !chosenBelow)
        return std::nullopt;
    return lowBitrateStereoText();
}

std::optional<QString> BitrateOptionsCalculator::encoderLimitWarning(const ExportSettings& settings) const
{
    const std::optional<int> source = sourceKbps();
    if (!source)
        return std::nullopt;
    const int limit = encoderLimitKbps(settings.outputFormat, settings.codec, targetChannelCount(settings.channels));
    if (*source <= limit)
        return std::nullopt;
    return encoderLimitText(*source, limit, pickerModel(settings).offersKeepOriginal());
}

QString BitrateOptionsCalculator::choiceLabel(const BitrateChoice& choice, const PickerModel& model) const
{
    if (choice.isKeepOriginal()) {
        if (auto rate = model.keepOriginalRate())
            return keepOriginalLabel(*rate);
        return L10n::text("export.bitrate.keepOriginal", "Keep original");
    }
    return L10n::format(L10n::text("export.bitrate.kbps", "%d kbps"), {QString::number(choice.value)});
}

QString BitrateOptionsCalculator::keepOriginalLabel(int kbps)
{
    return L10n::format(L10n::text("export.bitrate.keepOriginal.rate", "%d kbps (Keep original)"), {QString::number(kbps)});
}

QString BitrateOptionsCalculator::lowBitrateStereoText()
{
    return L10n::text("export.bitrate.lowBitrateStereo",
                      "**Low-Bitrate Stereo Source**\nHE-AAC is recommended — AAC-LC stereo has a hardware minimum "
                      "of 64 kbps (Apple encoder limitation). To use AAC-LC instead, set the bitrate to 64 kbps or "
                      "higher.");
}

QString BitrateOptionsCalculator::encoderLimitText(int sourceKbps, int limitKbps, bool keepOriginalOffered)
{
    const QString first = L10n::format(
        L10n::text("export.bitrate.encoderLimit",
                   "**Source Above Encoder Limit**\nThe source is %d kbps; the encoder's limit is %d kbps."),
        {QString::number(sourceKbps), QString::number(limitKbps)});
    const QString second = keepOriginalOffered
        ? L10n::format(L10n::text("export.bitrate.encoderLimit.keepOriginal",
                                  "Choose “Keep original” to copy the audio unchanged where the sources allow it. "
                                  "Audio that has to be encoded is held at %d kbps."),
                       {QString::number(limitKbps)})
        : L10n::format(L10n::text("export.bitrate.encoderLimit.encode",
                                  "The book will be encoded at %d kbps, the highest rate the encoder accepts."),
                       {QString::number(limitKbps)});
    return first + QStringLiteral("\n\n") + second;
}

} // namespace folivox
