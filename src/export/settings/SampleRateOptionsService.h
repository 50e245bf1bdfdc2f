#pragma once

#include "core/settings/ExportSettings.h"
#include "export/settings/AudiobookSourceInfo.h"

#include <optional>
#include <vector>

namespace folivox {

// Which codecs and sample rates a book is offered.
//   - AAC-LC always; HE-AAC only when an HE-AAC encoder is installed (found
//     by the encoder catalogue, passed in here) and the output is not MP3.
//   - `auto` always; a fixed rate only when it does not exceed the highest
//     source rate (all rates when that is unknown). HE-AAC is not offered
//     22050 Hz: its band replication needs at least 32000 Hz to be of use.
struct SampleRateOptionsService {
    std::optional<AudiobookSourceInfo> sourceInfo;
    // The rate the user last picked by hand, restored when it is offered.
    std::optional<SampleRateOption> savedCustomRate;
    bool heAACEncoderAvailable = false;

    std::vector<AudioCodec> availableCodecs(OutputFormat format) const;
    std::vector<SampleRateOption> availableOptions(AudioCodec codec) const;
    bool isOffered(SampleRateOption option, AudioCodec codec) const;

    // The saved rate when it is offered for this codec, else `auto`.
    SampleRateOption initialOption(AudioCodec codec) const;

    // The settings with codec and rate moved onto offered choices: HE-AAC
    // without an encoder becomes AAC-LC, a rate not offered becomes `auto`.
    ExportSettings constrained(ExportSettings settings) const;
};

} // namespace folivox
