#pragma once

#include "container/mp3/MP3IntegrityHole.h"
#include "container/mp3/MP3IntegrityVerdict.h"

#include <QJsonObject>
#include <QString>
#include <QUrl>

#include <optional>
#include <vector>

namespace folivox {

// What one scan of an MP3 found. trueDuration counts the audio frames that
// play (an encoder's Xing/Info/VBRI frame is not audio); claimedDuration is
// what the file says of itself, from its Xing or VBRI frame count or else its
// ID3v2 TLEN, and is left out when it says nothing.
struct MP3IntegrityReport {
    // A single hole of this many seconds makes a file damaged...
    static constexpr double kDamagingHoleSeconds = 1.0;
    // ...and so do holes that together cost this share of the playing time.
    static constexpr double kDamagingMissingShare = 0.01;

    QUrl url;
    qint64 fileSize = 0;
    qint64 validFrameCount = 0;
    double trueDuration = 0.0;
    std::vector<MP3IntegrityHole> holes;
    MP3IntegrityVerdict verdict = MP3IntegrityVerdict::unknown;
    std::optional<int> sampleRate;
    std::optional<int> bitrateKbps;
    std::optional<int> channelMode;
    qint64 trailingBytes = 0;
    std::optional<double> claimedDuration;
    // What a gapless decoder plays: the audio frames less the encoder delay
    // the LAME extension states (with the decoder's own delay), and less its
    // padding when every frame the information frame counts is there (a cut
    // file has lost the padded end). Left out without a LAME extension, where
    // trueDuration is what plays.
    std::optional<double> playedDuration;
    // "Xing header", "VBRI header" or "TLEN tag".
    std::optional<QString> claimedBy;

    // The verdict for a scan: unknown without a frame lock; damaged for one
    // hole of kDamagingHoleSeconds or more, or for missing seconds that come
    // to kDamagingMissingShare of the true duration; clean otherwise.
    static MP3IntegrityVerdict judge(bool locked, const std::vector<MP3IntegrityHole>& holes, double trueDuration);

    double missingSeconds() const;

    // How long the file plays: playedDuration, else trueDuration; nothing
    // when no audio frame was found.
    std::optional<double> playingSeconds() const;

    QJsonObject toJson() const;
    // url, fileSize, validFrameCount, trueDuration, holes, verdict and
    // trailingBytes are required.
    static MP3IntegrityReport fromJson(const QJsonObject& json);

    bool operator==(const MP3IntegrityReport&) const = default;
};

} // namespace folivox
