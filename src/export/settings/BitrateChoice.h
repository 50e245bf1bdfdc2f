#pragma once

#include "core/settings/ExportSettings.h"

#include <QString>

#include <optional>

namespace folivox {

// The bitrate the user picked: a fixed rate, or the source's own rate.
struct BitrateChoice {
    enum class Kind { kbps, keepOriginal };
    Kind kind = Kind::keepOriginal;
    int value = 0; // the rate for Kind::kbps

    static BitrateChoice kbps(int rate) { return {Kind::kbps, rate}; }
    static BitrateChoice keepOriginal() { return {Kind::keepOriginal, 0}; }

    bool isKeepOriginal() const { return kind == Kind::keepOriginal; }

    // The choice that settings express: keepSourceBitrate is keepOriginal,
    // otherwise the fixed rate (no value when the settings hold none).
    static std::optional<BitrateChoice> fromSettings(const ExportSettings& settings);
    // The settings with this choice written into them. keepOriginal keeps the
    // fixed rate as it was, for when the source's rate cannot be used.
    ExportSettings appliedTo(ExportSettings settings) const;

    bool operator==(const BitrateChoice&) const = default;
};

} // namespace folivox
