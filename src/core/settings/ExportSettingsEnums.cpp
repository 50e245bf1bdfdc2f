#include "core/settings/ExportSettingsEnums.h"

namespace folivox {

QString label(OutputFormat value)
{
    return enumName(value).toUpper();
}

QString label(AudioCodec value)
{
    switch (value) {
    case AudioCodec::aacLC:
        return QStringLiteral("AAC-LC");
    case AudioCodec::heAAC:
        return QStringLiteral("HE-AAC");
    }
    return {};
}

QString label(ChannelSetting value)
{
    switch (value) {
    case ChannelSetting::auto_:
        return QStringLiteral("Auto");
    case ChannelSetting::mono:
        return QStringLiteral("Mono");
    case ChannelSetting::stereo:
        return QStringLiteral("Stereo");
    }
    return {};
}

QString label(SampleRateOption value)
{
    if (auto hz = sampleRateHz(value))
        return QStringLiteral("%1 Hz").arg(*hz);
    return QStringLiteral("Auto");
}

QString label(BitrateMode value)
{
    switch (value) {
    case BitrateMode::cbr:
        return QStringLiteral("CBR");
    }
    return {};
}

QString label(PassthroughPolicy value)
{
    switch (value) {
    case PassthroughPolicy::auto_:
        return QStringLiteral("Auto");
    case PassthroughPolicy::force:
        return QStringLiteral("Force");
    case PassthroughPolicy::disabled:
        return QStringLiteral("Disabled");
    }
    return {};
}

QString label(SplitMode value)
{
    switch (value) {
    case SplitMode::off:
        return QStringLiteral("Off");
    case SplitMode::byDuration:
        return QStringLiteral("By Duration");
    case SplitMode::bySize:
        return QStringLiteral("By Size");
    }
    return {};
}

QString label(CoverSize value)
{
    switch (value) {
    case CoverSize::original:
        return QStringLiteral("Original");
    case CoverSize::px1000:
        return QStringLiteral("1000px");
    case CoverSize::px600:
        return QStringLiteral("600px");
    }
    return {};
}

QString label(CoverQuality value)
{
    switch (value) {
    case CoverQuality::original:
        return QStringLiteral(" (100%)");
    case CoverQuality::q90:
        return QStringLiteral("90%");
    case CoverQuality::q80:
        return QStringLiteral("80%");
    case CoverQuality::q70:
        return QStringLiteral("70%");
    case CoverQuality::q60:
        return QStringLiteral("60%");
    }
    return {};
}

QString fileExtension(OutputFormat value)
{
    return enumName(value);
}

std::optional<int> channelCount(ChannelSetting value)
{
    switch (value) {
    case ChannelSetting::auto_:
        return std::nullopt;
    case ChannelSetting::mono:
        return 1;
    case ChannelSetting::stereo:
        return 2;
    }
    return std::nullopt;
}

std::optional<int> sampleRateHz(SampleRateOption value)
{
    switch (value) {
    case SampleRateOption::auto_:
        return std::nullopt;
    case SampleRateOption::hz22050:
        return 22050;
    case SampleRateOption::hz32000:
        return 32000;
    case SampleRateOption::hz44100:
        return 44100;
    case SampleRateOption::hz48000:
        return 48000;
    }
    return std::nullopt;
}

SampleRateOption sampleRateOptionForHz(int hz)
{
    if (hz < 22051)
        return SampleRateOption::hz22050;
    if (hz < 32001)
        return SampleRateOption::hz32000;
    if (hz < 48000)
        return SampleRateOption::hz44100;
    return SampleRateOption::hz48000;
}

} // namespace folivox
