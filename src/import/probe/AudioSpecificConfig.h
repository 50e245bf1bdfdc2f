#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace folivox {

// The MPEG-4 AudioSpecificConfig of an AAC stream (the decoder configuration
// an MP4 file stores in its esds box, and libavformat hands over as the
// stream's extradata). Read most significant bit first.
//
// Spectral band replication (SBR) and parametric stereo (PS) can be signalled
// two ways: explicitly, with object type 5 (SBR) or 29 (SBR + PS) wrapping an
// inner core type; or backward-compatibly, with a core type of 2 followed by
// the 0x2B7 sync extension (and 0x548 for PS) after the GASpecificConfig.
struct AudioSpecificConfig {
    int objectType = 0;               // as coded first (5 and 29 are the explicit forms)
    int samplingFrequencyIndex = 0;
    int sampleRate = 0;               // of the core coder, Hz
    int channelConfiguration = 0;
    std::optional<int> innerObjectType;       // the core type inside an explicit 5/29
    std::optional<int> extensionSampleRate;   // the SBR output rate, when signalled
    bool frameLengthFlag = false;
    bool dependsOnCoreCoder = false;
    int coreCoderDelay = 0;
    bool extensionFlag = false;
    bool syncExtensionPresent = false;        // 0x2B7 found
    std::optional<bool> sbrPresentFlag;       // as stated by the sync extension
    bool psPresentFlag = false;               // as stated by the 0x548 sync extension

    // The codec name this configuration stands for: "aac-lc", "he-aac",
    // "he-aacv2", "xhe-aac", or "aac" for the other object types.
    QString codec() const;

    // True when the configuration states outright that no SBR is present
    // (a sync extension with its SBR flag cleared).
    bool signalsNoSBR() const { return sbrPresentFlag.has_value() && !*sbrPresentFlag; }

    // Parses the bytes; empty when they are too short or hold an illegal
    // sampling frequency index.
    static std::optional<AudioSpecificConfig> parse(const QByteArray& bytes);

    // The rate of a sampling frequency index (0..12); 0 for any other index.
    static int sampleRateForIndex(int index);
};

} // namespace folivox
