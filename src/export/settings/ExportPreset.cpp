#include "export/settings/ExportPreset.h"

#include "platform/L10n.h"

namespace folivox {

QString presetKey(ExportPreset preset)
{
    switch (preset) {
    case ExportPreset::custom:
        return QStringLiteral("export.preset.custom");
    case ExportPreset::highDetail:
        return QStringLiteral("export.preset.highdetail");
    case ExportPreset::balanced:
        return QStringLiteral("export.preset.balanced");
    case ExportPreset::spaceSaver:
        return QStringLiteral("export.preset.spacesaver");
    case ExportPreset::iPodCompatibility:
        return QStringLiteral("export.preset.ipod");
    }
    return {};
}

QString presetDefaultName(ExportPreset preset)
{
    switch (preset) {
    case ExportPreset::custom:
        return QStringLiteral("Custom");
    case ExportPreset::highDetail:
        return QStringLiteral("High Detail");
    case ExportPreset::balanced:
        return QStringLiteral("Balanced");
    case ExportPreset::spaceSaver:
        return QStringLiteral("Space Saver");
    case ExportPreset::iPodCompatibility:
        return QStringLiteral("Vintage Devices (iPod)");
    }
    return {};
}

QString presetName(ExportPreset preset)
{
    const QByteArray key = presetKey(preset).toUtf8();
    const QByteArray fallback = presetDefaultName(preset).toUtf8();
    return L10n::text(key.constData(), fallback.constData());
}

ExportSettings presetSettings(ExportPreset preset)
{
    ExportSettings s;
    switch (preset) {
    case ExportPreset::custom:
        break;
    case ExportPreset::highDetail:
        s.codec = AudioCodec::aacLC;
        s.cbrBitrateKbps = 192;
        break;
    case ExportPreset::balanced:
        s.codec = AudioCodec::aacLC;
        s.cbrBitrateKbps = 128;
        s.coverSize = CoverSize::px1000;
        s.coverQuality = CoverQuality::q90;
        break;
    case ExportPreset::spaceSaver:
        s.codec = AudioCodec::aacLC;
        s.channels = ChannelSetting::mono;
        s.cbrBitrateKbps = 64;
        s.coverSize = CoverSize::px600;
        s.coverQuality = CoverQuality::q80;
        break;
    case ExportPreset::iPodCompatibility:
        s.codec = AudioCodec::aacLC;
        s.sampleRate = SampleRateOption::hz44100;
        s.cbrBitrateKbps = 128;
        s.coverSize = CoverSize::px600;
        s.coverQuality = CoverQuality::q80;
        break;
    }
    return s;
}

bool presetMatches(ExportPreset preset, const ExportSettings& settings)
{
    const ExportSettings p = presetSettings(preset);
    return settings.codec == p.codec && settings.channels == p.channels && settings.sampleRate == p.sampleRate
        && settings.bitrateMode == p.bitrateMode && settings.passthroughPolicy == p.passthroughPolicy
        && settings.cbrBitrateKbps == p.cbrBitrateKbps && settings.keepSourceBitrate == p.keepSourceBitrate
        && settings.coverSize == p.coverSize && settings.coverQuality == p.coverQuality;
}

QString presetDisplayName(ExportPreset preset, const ExportSettings& settings)
{
    const QString name = presetName(preset);
    if (preset == ExportPreset::custom || presetMatches(preset, settings))
        return name;
    return L10n::format(L10n::text("export.preset.customized", "%@ (Custom)"), {name});
}

QString quickSetupEditedName(const QString& rowName)
{
    return L10n::format(L10n::text("export.custom.quicksetup.edited", "%@ (edited)"), {rowName});
}

QString bestForBookName()
{
    return L10n::text("export.custom.preset.bestForBook", "Best for This Book");
}

} // namespace folivox
