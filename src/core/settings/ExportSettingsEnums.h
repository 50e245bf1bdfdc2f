#pragma once

#include "core/json/EnumNames.h"

#include <QString>

#include <optional>

namespace folivox {

// The enumerations of ExportSettings. Each is stored (JSON, saved presets,
// queue jobs) by its case name through EnumNames; label() gives the text
// shown in logs and summaries. `auto` is a C++ keyword, so those cases are
// spelled auto_ and stored as "auto".

enum class OutputFormat { m4b, mp3, m4a };
enum class AudioCodec { aacLC, heAAC };
enum class ChannelSetting { auto_, mono, stereo };
enum class SampleRateOption { auto_, hz22050, hz32000, hz44100, hz48000 };
enum class BitrateMode { cbr };
enum class PassthroughPolicy { auto_, force, disabled };
enum class SplitMode { off, byDuration, bySize };
enum class CoverSize { original, px1000, px600 };
enum class CoverQuality { original, q90, q80, q70, q60 };

template<>
struct EnumNames<OutputFormat> {
    static constexpr const char* typeName = "OutputFormat";
    static constexpr std::array items{
        std::pair{OutputFormat::m4b, "m4b"},
        std::pair{OutputFormat::mp3, "mp3"},
        std::pair{OutputFormat::m4a, "m4a"},
    };
};

template<>
struct EnumNames<AudioCodec> {
    static constexpr const char* typeName = "AudioCodec";
    static constexpr std::array items{
        std::pair{AudioCodec::aacLC, "aacLC"},
        std::pair{AudioCodec::heAAC, "heAAC"},
    };
};

template<>
struct EnumNames<ChannelSetting> {
    static constexpr const char* typeName = "ChannelSetting";
    static constexpr std::array items{
        std::pair{ChannelSetting::auto_, "auto"},
        std::pair{ChannelSetting::mono, "mono"},
        std::pair{ChannelSetting::stereo, "stereo"},
    };
};

template<>
struct EnumNames<SampleRateOption> {
    static constexpr const char* typeName = "SampleRateOption";
    static constexpr std::array items{
        std::pair{SampleRateOption::auto_, "auto"},
        std::pair{SampleRateOption::hz22050, "hz22050"},
        std::pair{SampleRateOption::hz32000, "hz32000"},
        std::pair{SampleRateOption::hz44100, "hz44100"},
        std::pair{SampleRateOption::hz48000, "hz48000"},
    };
};

template<>
struct EnumNames<BitrateMode> {
    static constexpr const char* typeName = "BitrateMode";
    static constexpr std::array items{
        std::pair{BitrateMode::cbr, "cbr"},
    };
};

template<>
struct EnumNames<PassthroughPolicy> {
    static constexpr const char* typeName = "PassthroughPolicy";
    static constexpr std::array items{
        std::pair{PassthroughPolicy::auto_, "auto"},
        std::pair{PassthroughPolicy::force, "force"},
        std::pair{PassthroughPolicy::disabled, "disabled"},
    };
};

template<>
struct EnumNames<SplitMode> {
    static constexpr const char* typeName = "SplitMode";
    static constexpr std::array items{
        std::pair{SplitMode::off, "off"},
        std::pair{SplitMode::byDuration, "byDuration"},
        std::pair{SplitMode::bySize, "bySize"},
    };
};

template<>
struct EnumNames<CoverSize> {
    static constexpr const char* typeName = "CoverSize";
    static constexpr std::array items{
        std::pair{CoverSize::original, "original"},
        std::pair{CoverSize::px1000, "px1000"},
        std::pair{CoverSize::px600, "px600"},
    };
};

template<>
struct EnumNames<CoverQuality> {
    static constexpr const char* typeName = "CoverQuality";
    static constexpr std::array items{
        std::pair{CoverQuality::original, "original"},
        std::pair{CoverQuality::q90, "q90"},
        std::pair{CoverQuality::q80, "q80"},
        std::pair{CoverQuality::q70, "q70"},
        std::pair{CoverQuality::q60, "q60"},
    };
};

// Labels. AudioCodec: "AAC-LC", "HE-AAC". ChannelSetting: "Auto", "Mono",
// "Stereo". SampleRateOption: "Auto" or the rate and " Hz" ("32000 Hz").
// CoverSize: "Original", "1000px", "600px". CoverQuality: " (100%)" (shown
// beside the size) for original, then "90%", "80%", "70%", "60%".
// The others: "M4B"/"MP3"/"M4A", "CBR", "Auto"/"Force"/"Disabled",
// "Off"/"By Duration"/"By Size".
QString label(OutputFormat value);
QString label(AudioCodec value);
QString label(ChannelSetting value);
QString label(SampleRateOption value);
QString label(BitrateMode value);
QString label(PassthroughPolicy value);
QString label(SplitMode value);
QString label(CoverSize value);
QString label(CoverQuality value);

// The file extension of an output format, without the dot: "m4b", "mp3", "m4a".
QString fileExtension(OutputFormat value);

// The channel count a setting asks for; no value for auto_.
std::optional<int> channelCount(ChannelSetting value);

// The rate in Hz an option asks for; no value for auto_.
std::optional<int> sampleRateHz(SampleRateOption value);

// The option for a rate in Hz: below 22051 is hz22050, below 32001 hz32000,
// below 48000 hz44100 (so 44101-47999 fall to hz44100), else hz48000.
SampleRateOption sampleRateOptionForHz(int hz);

} // namespace folivox
