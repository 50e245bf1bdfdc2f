#include "export/settings/PresetManager.h"

#include "platform/L10n.h"

namespace folivox {

PresetManager::PresetApplication PresetManager::apply(ExportPreset preset, const ExportSettings& current) const
{
    PresetApplication result;
    if (preset == ExportPreset::custom) {
        result.settings = current;
        return result;
    }
    ExportSettings s = presetSettings(preset);
    s.outputFormat = current.outputFormat;
    s.splitMode = current.splitMode;
    s.splitHours = current.splitHours;
    s.splitSizeMB = current.splitSizeMB;
    s.snapToChapters = current.snapToChapters;

    if (preset == ExportPreset::iPodCompatibility) {
        s.codec = AudioCodec::aacLC;
        if (sourceInfo && sourceInfo->hasHEAACSource()) {
            result.wasCodecAdjusted = true;
            result.codecAdjustmentReason = iPodCodecAdjustmentText();
        }
    }
    result.settings = s;
    return result;
}

std::optional<PresetManager::CodecWarning> PresetManager::heAACReencodeWarning(const ExportSettings& settings,
                                                                               bool heAACEncoderAvailable) const
{
    if (!heAACEncoderAvailable || settings.outputFormat == OutputFormat::mp3 || settings.codec != AudioCodec::aacLC)
        return std::nullopt;
    if (!sourceInfo || !sourceInfo->hasHEAACSource())
        return std::nullopt;
    return CodecWarning{heAACReencodeText(), switchToHEAACActionTitle(), AudioCodec::heAAC};
}

QString PresetManager::iPodCodecAdjustmentText()
{
    return L10n::text("export.preset.ipod.codecAdjusted",
                      "iPod compatibility requires AAC-LC. Source will be re-encoded from HE-AAC.");
}

QString PresetManager::heAACReencodeText()
{
    return L10n::text("export.warning.heaacReencode", "Source uses HE-AAC. Re-encoding to AAC-LC may reduce quality.");
}

QString PresetManager::switchToHEAACActionTitle()
{
    return L10n::text("export.warning.heaacReencode.action", "Switch to HE-AAC");
}

} // namespace folivox
