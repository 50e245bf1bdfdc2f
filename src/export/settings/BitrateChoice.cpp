#include "export/settings/BitrateChoice.h"

namespace folivox {

std::optional<BitrateChoice> BitrateChoice::fromSettings(const ExportSettings& settings)
{
    if (settings.keepSourceBitrate)
        return keepOriginal();
    if (settings.cbrBitrateKbps)
        return kbps(*settings.cbrBitrateKbps);
    return std::nullopt;
}

ExportSettings BitrateChoice::appliedTo(ExportSettings settings) const
{
    if (kind == Kind::keepOriginal) {
        settings.keepSourceBitrate = true;
    } else {
        settings.keepSourceBitrate = false;
        settings.cbrBitrateKbps = value;
    }
    return settings;
}

} // namespace folivox
