#pragma once

#include "core/json/EnumNames.h"
#include "core/settings/ExportSettings.h"
#include "process/FormatProbe.h"

#include <optional>

namespace folivox {

// How one piece of audio is handed to ffmpeg.
enum class FFmpegEncodingStrategy {
    copy,          // stream copy ("-c:a copy")
    transcode,     // encode at the target bitrate
    qualityCapped, // encode, at no more than the source's own bitrate
};

template<>
struct EnumNames<FFmpegEncodingStrategy> {
    static constexpr const char* typeName = "FFmpegEncodingStrategy";
    static constexpr std::array items{
        std::pair{FFmpegEncodingStrategy::copy, "copy"},
        std::pair{FFmpegEncodingStrategy::transcode, "transcode"},
        std::pair{FFmpegEncodingStrategy::qualityCapped, "qualityCapped"},
    };
};

// The strategy for one piece whose source has this format:
//   - copy when the caller allows a copy for the piece and the source is
//     already in the output's codec (MP3 for MP3 output, the settings' AAC
//     family otherwise) with no channel, rate or bitrate change asked for;
//   - qualityCapped when the source is lossy and its bitrate lies below the
//     CBR target: spending more bits than the source had buys nothing;
//   - transcode otherwise, and always for an unknown source.
FFmpegEncodingStrategy chooseFFmpegEncodingStrategy(const std::optional<FormatProbe>& source,
                                                    const ExportSettings& settings, bool copyAllowed);

// The bitrate, in kbps, for a qualityCapped piece: the source's rate rounded
// up to a whole kbps, never above the target. No value for other cases.
std::optional<int> cappedBitrateKbps(const std::optional<FormatProbe>& source, const ExportSettings& settings);

} // namespace folivox
