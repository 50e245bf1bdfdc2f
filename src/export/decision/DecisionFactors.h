#pragma once

#include <QString>

#include <optional>

namespace folivox {

// The facts the export decision weighs, worked out by ExportDecisionService
// from the chapters, their source files and the settings. Each one that
// speaks against a copy becomes one reason, in a fixed order.
//
// A source whose format is unknown (never probed, or stripped because it
// could not be probed again) counts against a copy: it is not AAC, does not
// match the target codec and is not compatible with anything.
struct DecisionFactors {
    // The common sample rate and channel count sources are brought to when
    // they differ.
    struct NormalizationTarget {
        int sampleRate = 0;
        int channels = 0;

        bool operator==(const NormalizationTarget&) const = default;
    };

    // Every source's codec is AAC of either family ("aac-lc", "aac", "mp4a",
    // "he-aac", "he-aacv2").
    bool allAAC = true;
    // Every source file has the extension "m4b" (any case).
    bool allM4B = true;
    // Every source's codec is of the target codec's family.
    bool codecMatches = true;
    // "codec mismatch (<codec> ↔ <target>)" for the first source of known
    // codec that does not match.
    std::optional<QString> codecMismatchDescription;
    // The sources can be joined without re-encoding: every format is known,
    // and all share one codec family, sample rate and channel count.
    bool compatible = true;
    // The channel setting is not auto and differs from a source's count (or
    // a source's count is unknown).
    bool requiresChannelChange = false;
    // The sample rate setting is not auto and differs from a source's rate
    // (or a source's rate is unknown).
    bool requiresResample = false;
    // The output is split into parts.
    bool requiresSplit = false;
    // Parts are snapped to chapters. Snapping only means something when the
    // output is split, so it is set only then.
    bool requiresSnap = false;
    // The caller asked for the audio to be encoded again.
    bool requiresReencode = false;
    // A source's bitrate is above the target by more than the tolerance.
    bool requiresBitrateChange = false;
    std::optional<QString> bitrateChangeReason;
    // The passthrough policy is `disabled`.
    bool policyDisabled = false;
    // Some file is not taken whole by the chapters together: a start offset,
    // a shortened end, a gap between chapters, or a stretch taken twice.
    bool hasPartialRanges = false;
    // The chapters no longer follow their sources: a file's stretches are
    // taken out of order, or a file is returned to after another began.
    bool chaptersReordered = false;
    // The sources differ in sample rate or channel count.
    bool requiresCrossFileNormalization = false;
    std::optional<NormalizationTarget> crossFileNormalizationTarget;

    // Every field on one line, for the build log.
    QString describe() const;

    bool operator==(const DecisionFactors&) const = default;
};

} // namespace folivox
