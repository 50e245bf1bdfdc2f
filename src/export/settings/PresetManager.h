#pragma once

#include "core/settings/ExportSettings.h"
#include "export/settings/AudiobookSourceInfo.h"
#include "export/settings/ExportPreset.h"

#include <QString>

#include <optional>

namespace folivox {

// Applies a built-in preset to a book. A preset sets the audio and cover
// fields (see ExportPreset.h); the output format and split fields stay as the
// user has them. `custom` leaves the settings as they are.
struct PresetManager {
    struct PresetApplication {
        ExportSettings settings;
        bool wasCodecAdjusted = false;
        std::optional<QString> codecAdjustmentReason;

        bool operator==(const PresetApplication&) const = default;
    };

    // A warning offered next to the settings, with the action that resolves it.
    struct CodecWarning {
        QString message;
        QString actionTitle;
        AudioCodec suggestedCodec = AudioCodec::heAAC;

        bool operator==(const CodecWarning&) const = default;
    };

    std::optional<AudiobookSourceInfo> sourceInfo;

    // With an HE-AAC source the iPod preset still yields AAC-LC, and the
    // application says so ("iPod compatibility requires AAC-LC. Source will
    // be re-encoded from HE-AAC.").
    PresetApplication apply(ExportPreset preset, const ExportSettings& current = ExportSettings()) const;

    // For AAC-LC settings over an HE-AAC source: "Source uses HE-AAC.
    // Re-encoding to AAC-LC may reduce quality.", action "Switch to HE-AAC".
    // No warning when HE-AAC cannot be encoded here.
    std::optional<CodecWarning> heAACReencodeWarning(const ExportSettings& settings, bool heAACEncoderAvailable) const;

    static QString iPodCodecAdjustmentText();
    static QString heAACReencodeText();
    static QString switchToHEAACActionTitle();
};

} // namespace folivox
