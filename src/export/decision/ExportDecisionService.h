#pragma once

#include "core/book/Bookmark.h"
#include "core/settings/ExportSettings.h"
#include "export/decision/DecisionFactors.h"
#include "export/decision/ExportCacheFreshness.h"
#include "export/decision/ExportDecision.h"
#include "export/decision/ExportPlanBuilder.h"
#include "process/FormatProbe.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace folivox {

// Decides whether a book's audio can be copied as it is or must be encoded
// again, and records every reason against a copy so that the build log shows
// the whole case. It never throws: a file that cannot be probed is logged and
// counts against a copy.
//
// A build calls, in order: refreshCachedFormats (the cache freshness pass),
// ExportPlanBuilder::build on the refreshed bookmarks, then decide.
struct ExportDecisionService {
    using DurationProbeFunction = std::function<std::optional<double>(const QString& path)>;

    // Reads the format of a file whose format is not cached, and re-probes
    // files that changed on disk.
    FormatProbeFunction inspector;
    // File facts and failed probes of the current build, shared by the
    // freshness pass and the decision.
    std::shared_ptr<ExportCacheFreshness::StatMemo> statMemo = std::make_shared<ExportCacheFreshness::StatMemo>();
    // Formats the interface already probed for display; asked before
    // `inspector`. Optional.
    FormatProbeFunction displayProbes;
    // The length of a file the book holds no length for. Optional.
    DurationProbeFunction syncDurationProbe;
    // How long the freshness pass may spend on re-probes.
    std::chrono::milliseconds reprobeDeadline = ExportCacheFreshness::kDefaultDeadline;

    // The cache freshness pass over the bookmarks. Starts a new build's memo.
    ExportCacheFreshness::Result refreshCachedFormats(const std::vector<Bookmark>& bookmarks) const;

    // The format of each source of the plan, in the order of
    // plan.uniqueURLs: the track's cached format, else a display probe, else
    // the inspector; no value when none of them knows it.
    std::vector<std::optional<FormatProbe>> sourceFormats(const std::vector<Bookmark>& bookmarks,
                                                          const ExportPlanBuilder::Plan& plan) const;

    // The factors for this build. `reencodeRequested` is the caller's
    // request to encode the audio again whatever the sources are.
    DecisionFactors factors(const std::vector<Bookmark>& bookmarks, const ExportSettings& settings,
                            const ExportPlanBuilder::Plan& plan, bool reencodeRequested = false) const;

    // Everything that speaks against a copy, in this order. For M4B output
    // only: "non-AAC source", "source is not M4B (audiobook format)", the
    // codec mismatch text, "format mismatch". For every output: "policy
    // disabled", "channel count differs from source", "sample rate differs
    // from source", "split enabled", "snapToChapters enabled", "re-encoding
    // requested", the bitrate reduction text, "partial M4B range extraction
    // (startOffset or duration trimming)", "chapters reordered (drag & drop or
    // deletion)", "audio normalization (<rate> Hz, mono|stereo)".
    static QStringList reasons(const DecisionFactors& factors, const ExportSettings& settings);

    // Factors, reasons, strategy and normalisation target; logs the factors
    // and the decision line.
    ExportDecision decide(const std::vector<Bookmark>& bookmarks, const ExportSettings& settings,
                          const ExportPlanBuilder::Plan& plan, bool reencodeRequested = false) const;

    // ---- rules shared with the multi-file build and the encoders

    // "aac-lc", "aac", "mp4a", "he-aac" or "he-aacv2" (any case).
    static bool isAACCodec(const QString& codec);
    // heAAC: "he-aac", "he-aacv2"; aacLC: "aac-lc", "aac", "mp4a" (any case).
    static bool matchesCodecFamily(const QString& codec, AudioCodec target);
    // "heAAC" or "aacLC" for the AAC families, else the lower-cased codec.
    static QString codecFamily(const QString& codec);

    // Below a 50 kbps target, 5 kbps; from 50 up, a tenth of the target.
    static int bitrateToleranceKbps(int targetKbps);
    // "bitrate reduction (source S kbps → target T kbps)" when the source
    // (bits per second, truncated to kbps) exceeds the CBR target by more
    // than the tolerance. Nothing when there is no target, the source bitrate
    // is kept, or the source rate is unknown or not positive.
    static std::optional<QString> bitrateReduction(std::optional<int> sourceBitrate, const ExportSettings& settings);

    // The common format for sources that differ: the highest sample rate
    // among them capped at 48000 Hz, and stereo if any source has two or more
    // channels (mono otherwise). Nothing when the known formats already agree.
    static std::optional<DecisionFactors::NormalizationTarget>
    normalizationTarget(const std::vector<std::optional<FormatProbe>>& formats);
};

} // namespace folivox
