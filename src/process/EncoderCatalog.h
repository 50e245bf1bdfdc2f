#pragma once

#include "process/EncoderChoice.h"

#include <QSet>
#include <QString>

#include <optional>

namespace folivox {

// Which audio encoders the installed ffmpeg offers, and the choice for each
// kind of output:
// - AAC-LC: aac_at, else libfdk_aac, else aac (FFmpeg's own, LC only);
// - HE-AAC: aac_at with "-profile:a 4", else libfdk_aac with "-profile:a
//   aac_he"; with neither it is not offered;
// - MP3: libmp3lame; lossless pieces: flac and pcm_s16le.
class EncoderCatalog {
public:
    // A catalog with no encoders at all.
    EncoderCatalog() = default;
    explicit EncoderCatalog(QSet<QString> audioEncoders);

    // The names of the audio encoders in the output of
    // "ffmpeg -hide_banner -encoders" (lines after the "------" rule whose
    // flags start with "A").
    static QSet<QString> parseEncoderList(const QString& text);
    static EncoderCatalog fromEncoderList(const QString& text);

    // The catalog of the ffmpeg this program uses, read once per program on
    // first use (thread-safe). Empty when ffmpeg cannot be run.
    static const EncoderCatalog& system();

    const QSet<QString>& audioEncoders() const { return encoders_; }
    bool has(const QString& encoder) const { return encoders_.contains(encoder); }

    std::optional<EncoderChoice> aacLC() const;
    std::optional<EncoderChoice> heAAC() const;
    std::optional<EncoderChoice> mp3() const;
    std::optional<EncoderChoice> flac() const;
    std::optional<EncoderChoice> pcm16() const;

    // As above, but throw EncoderCatalogError naming the missing encoders.
    EncoderChoice requireAacLC() const;
    EncoderChoice requireHeAAC() const;
    EncoderChoice requireMp3() const;
    EncoderChoice requireFlac() const;
    EncoderChoice requirePcm16() const;

    // One line for the log: which encoder serves which output.
    QString summary() const;

private:
    std::optional<EncoderChoice> single(const char* encoder) const;

    QSet<QString> encoders_;
};

} // namespace folivox
