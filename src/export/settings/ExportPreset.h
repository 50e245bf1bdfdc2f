#pragma once

#include "core/json/EnumNames.h"
#include "core/settings/ExportSettings.h"

#include <QString>

#include <optional>

namespace folivox {

// The built-in export presets, in the order they are listed.
//
// What each yields (the audio fields; cover fields as noted; output format
// and split fields are the new-settings defaults, and PresetManager keeps the
// user's own when applying one):
//   custom            - a new ExportSettings as it stands (see ExportSettings.h):
//                       AAC-LC 128 kbps, channels and rate from the source,
//                       cover unchanged.
//   highDetail        - AAC-LC 192 kbps, channels and rate from the source,
//                       copy allowed, cover unchanged (original, 100%).
//   balanced          - AAC-LC 128 kbps, channels and rate from the source,
//                       copy allowed, cover 1000 px at 90%.
//   spaceSaver        - AAC-LC 64 kbps mono (a mono voice track keeps AAC-LC
//                       clear at 64; HE-AAC is not assumed to be installed),
//                       rate from the source, cover 600 px at 80%.
//   iPodCompatibility - AAC-LC (always; older iPods play no HE-AAC) 128 kbps,
//                       44100 Hz, channels from the source, cover 600 px at
//                       80% (large covers stall older devices).
enum class ExportPreset {
    custom,
    highDetail,
    balanced,
    spaceSaver,
    iPodCompatibility,
};

template<>
struct EnumNames<ExportPreset> {
    static constexpr const char* typeName = "ExportPreset";
    static constexpr std::array items{
        std::pair{ExportPreset::custom, "custom"},
        std::pair{ExportPreset::highDetail, "highDetail"},
        std::pair{ExportPreset::balanced, "balanced"},
        std::pair{ExportPreset::spaceSaver, "spaceSaver"},
        std::pair{ExportPreset::iPodCompatibility, "iPodCompatibility"},
    };
};

// The localisation key of a preset's name: "export.preset.custom",
// "export.preset.highdetail", "export.preset.balanced",
// "export.preset.spacesaver", "export.preset.ipod".
QString presetKey(ExportPreset preset);
// "Custom", "High Detail", "Balanced", "Space Saver", "Vintage Devices (iPod)".
QString presetDefaultName(ExportPreset preset);
// The shown name (localised).
QString presetName(ExportPreset preset);

// The settings a preset yields, on top of a new ExportSettings.
ExportSettings presetSettings(ExportPreset preset);

// True when `settings` hold every field the preset sets at the preset's value.
bool presetMatches(ExportPreset preset, const ExportSettings& settings);

// The name shown for a picked preset: its name, or "%@ (Custom)" (key
// "export.preset.customized") once the settings no longer match it. custom
// shows as itself.
QString presetDisplayName(ExportPreset preset, const ExportSettings& settings);

// "%@ (edited)" (key "export.custom.quicksetup.edited"): a Quick Setup row
// the user changed.
QString quickSetupEditedName(const QString& rowName);

// "Best for This Book" (key "export.custom.preset.bestForBook").
QString bestForBookName();

} // namespace folivox
