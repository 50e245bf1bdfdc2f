#include "import/repair/MP3RegionRepair.h"

#include "container/mp3/MP3ReservoirPacker.h"
#include "process/CancellationToken.h"
#include "process/FFmpegWrapper.h"
#include "import/repair/MP3FrameDecoder.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cmath>

namespace folivox {

namespace {

std::int64_t floorDiv(std::int64_t a, std::int64_t b)
{
    return a >= 0 ? a / b : -((-a + b - 1) / b);
}

bool contains(const std::vector<std::int64_t>& sorted, std::int64_t v)
{
    return std::binary_search(sorted.begin(), sorted.end(), v);
}

} // namespace

MP3RegionRepair::MP3RegionRepair(const std::uint8_t* source, const MP3FrameScanner::Result& scan,
                                 const FFmpegWrapper& ffmpeg, const QString& folder, const CancellationToken& token,
                                 std::function<void(double)> progress)
    : scan_(scan)
    , ffmpeg_(ffmpeg)
    , folder_(folder)
    , token_(token)
    , progress_(std::move(progress))
    , frames_(MP3FrameSequence::ofScan(source, scan))
    , map_(frames_)
{
}

bool MP3RegionRepair::stopped() const
{
    return token_.isCancelled();
}

std::optional<MP3RegionRepair::Plan> MP3RegionRepair::run()
{
    why_.clear();
    if (frames_.empty() || scan_.sampleRate <= 0) {
        why_ = QStringLiteral("no audio frames");
        return std::nullopt;
    }
    const std::function<bool()> stop = [this] { return stopped(); };
    const auto all = MP3FrameDecoder::decode(frames_, 0, frames_.size(), false, stop, progress_);
    if (!all)
        return std::nullopt;
    channels_ = all->channels;
    if (all->undecodable.empty()) {
        why_ = QStringLiteral("the decoder's errors could not be placed on frames");
        return std::nullopt;
    }

    std::vector<std::int64_t> known = all->undecodable;
    // Silent frames right before or after undecodable ones.
    const auto& silent = all->silent;
    std::vector<std::int64_t> beside;
    for (const std::int64_t u : all->undecodable) {
        for (std::int64_t k = u + 1; k <= u + kSilentReach && contains(silent, k); ++k)
            beside.push_back(k);
        for (std::int64_t k = u - 1; k >= u - kSilentReach && contains(silent, k); --k)
            beside.push_back(k);
    }
    known.insert(known.end(), beside.begin(), beside.end());
    std::sort(known.begin(), known.end());
    known.erase(std::unique(known.begin(), known.end()), known.end());
    for (int round = 0; round < kRounds; ++round) {
        auto made = plan(known);
        if (!made)
            return std::nullopt;
        // The copy's frames with the stretches spliced in, frame for frame.
        std::vector<MP3FrameSequence::Frame> spliced = frames_;
        for (const auto& r : made->replacements) {
            const auto replacement = MP3FrameSequence::ofBytes(
                reinterpret_cast<const std::uint8_t*>(r.frames.constData()), std::size_t(r.frames.size()));
            if (std::int64_t(replacement.size()) != r.frameCount) {
                why_ = QStringLiteral("a re-encoded stretch does not hold the frames it stands in for");
                return std::nullopt;
            }
            std::copy(replacement.begin(), replacement.end(), spliced.begin() + r.firstFrame);
        }
        // Each stretch and the frames after it that read its last bytes.
        std::vector<std::int64_t> fresh;
        for (const auto& r : made->replacements) {
            const auto check = MP3FrameDecoder::decode(spliced, std::size_t(r.firstFrame),
                                                       std::size_t(r.firstFrame + r.frameCount + 4), false, stop);
            if (!check)
                return std::nullopt;
            fresh.insert(fresh.end(), check->undecodable.begin(), check->undecodable.end());
        }
        if (fresh.empty())
            return made;
        const std::size_t before = known.size();
        known.insert(known.end(), fresh.begin(), fresh.end());
        std::sort(known.begin(), known.end());
        known.erase(std::unique(known.begin(), known.end()), known.end());
        if (known.size() == before)
            break;
    }
    why_ = QStringLiteral("frames still do not decode after their stretches were re-encoded");
    return std::nullopt;
}

std::optional<MP3RegionRepair::Plan> MP3RegionRepair::plan(const std::vector<std::int64_t>& undecodable)
{
    auto regions = MP3SplicePlanner::plan(map_, undecodable, scan_.samplesPerFrame);
    std::vector<std::int64_t> lost;
    for (const auto& r : regions)
        lost.insert(lost.end(), r.lost.begin(), r.lost.end());
    std::sort(lost.begin(), lost.end());

    const auto n = std::int64_t(frames_.size());
    const double frameSeconds = double(scan_.samplesPerFrame) / double(scan_.sampleRate);
    Plan out;
    for (std::size_t i = 0; i < regions.size();) {
        if (stopped())
            return std::nullopt;
        const std::int64_t limit = i + 1 < regions.size() ? regions[i + 1].first : n;
        const auto encoded = encode(regions[i], limit, lost, int(out.replacements.size()));
        if (!encoded) {
            if (stopped() || !why_.isEmpty())
                return std::nullopt;
            if (i + 1 < regions.size()) {
                // No room before the next stretch: one stretch for both.
                regions[i] = MP3SplicePlanner::join(regions[i], regions[i + 1]);
                regions.erase(regions.begin() + std::ptrdiff_t(i) + 1);
                continue;
            }
            why_ = QStringLiteral("the frames after a re-encoded stretch could not be given their bit reservoir");
            return std::nullopt;
        }
        MP3ReencodedRegion record;
        record.firstFrame = encoded->replacement.firstFrame;
        record.frameCount = encoded->replacement.frameCount;
        record.undecodableFrames = qint64(regions[i].undecodable.size());
        record.lostFrames = qint64(regions[i].lost.size());
        record.startTime = double(record.firstFrame) * frameSeconds;
        record.duration = double(record.frameCount) * frameSeconds;
        out.regions.push_back(record);
        out.replacements.push_back(encoded->replacement);
        ++i;
    }
    return out;
}

std::optional<MP3RegionRepair::Encoded> MP3RegionRepair::encode(const MP3SplicePlanner::Region& region,
                                                               std::int64_t limit,
                                                               const std::vector<std::int64_t>& lost, int index)
{
    const auto n = std::int64_t(frames_.size());
    const std::int64_t spf = scan_.samplesPerFrame;
    const std::int64_t first = region.first;
    const std::int64_t frames = region.end - region.first;
    const std::int64_t lookahead = std::clamp<std::int64_t>(limit - region.end, 0, kLookaheadFrames);
    const int kbps = bitrateFor(first, std::min(region.end + lookahead, n));

    int delay = 576; // LAME's, checked against what the encode says below
    for (int attempt = 0; attempt < 2; ++attempt) {
        // New frame K + i plays what source frame first + i plays when the
        // encoder's input starts kEncoderWarmUpFrames frames early and is
        // ahead of the source's decoded samples by the whole delay.
        const std::int64_t wanted = kEncoderWarmUpFrames + frames + lookahead;
        const std::int64_t start = (first - kEncoderWarmUpFrames) * spf + delay + kDecoderDelay;
        bool ok = true;
        const std::vector<float> audio = stretchAudio(start, (wanted + 1) * spf, channels_, lost, ok);
        if (!ok)
            return std::nullopt;
        const auto bytes = encodeAudio(audio, channels_, kbps, index);
        if (!bytes)
            return std::nullopt;
        const auto* data = reinterpret_cast<const std::uint8_t*>(bytes->constData());
        const auto encodedScan = MP3FrameScanner::scan(data, std::size_t(bytes->size()));
        if (!encodedScan || !encodedScan->locked || encodedScan->version != scan_.version
            || encodedScan->sampleRate != scan_.sampleRate) {
            why_ = QStringLiteral("the encoder's frames do not fit the stream");
            return std::nullopt;
        }
        const int actualDelay = encodedScan->infoFrame && encodedScan->infoFrame->encoderDelay
            ? *encodedScan->infoFrame->encoderDelay
            : delay;
        if (actualDelay != delay && attempt == 0) {
            delay = actualDelay;
            continue;
        }

        const auto encoded = MP3FrameSequence::ofScan(data, *encodedScan);
        const MP3MainDataMap encodedMap(encoded);
        // The shortest stretch whose free bytes take what the frames after
        // it read from it.
        for (std::int64_t count = frames; count <= frames + lookahead && first + count <= limit; ++count) {
            if (kEncoderWarmUpFrames + count > std::int64_t(encoded.size()))
                break;
            const std::int64_t end = first + count;
            QByteArray carried;
            if (end < n) {
                const std::int64_t at = map_[std::size_t(end)].areaStart;
                carried = map_.streamBytes(at - map_.carriedInto(std::size_t(end)), at);
            }
            std::vector<std::uint8_t> byte2;
            for (std::int64_t k = first; k < end; ++k)
                byte2.push_back(frames_[std::size_t(k)].data[2]);
            auto packed = MP3ReservoirPacker::pack(encoded, encodedMap, std::size_t(kEncoderWarmUpFrames),
                                                   std::size_t(count), byte2, carried);
            if (packed)
                return Encoded{{first, count, std::move(*packed)}, end};
        }
        return std::nullopt;
    }
    return std::nullopt;
}

std::vector<float> MP3RegionRepair::stretchAudio(std::int64_t firstSample, std::int64_t samples, int channels,
                                                 const std::vector<std::int64_t>& lost, bool& ok)
{
    const auto n = std::int64_t(frames_.size());
    const std::int64_t spf = scan_.samplesPerFrame;
    const std::int64_t from = std::clamp<std::int64_t>(floorDiv(firstSample, spf), 0, n);
    const std::int64_t to = std::clamp<std::int64_t>(floorDiv(firstSample + samples - 1, spf) + 1, 0, n);
    std::vector<float> out(std::size_t(samples * channels), 0.0f);
    if (from >= to)
        return out;
    const std::function<bool()> stop = [this] { return stopped(); };
    const auto decoded = MP3FrameDecoder::decode(frames_, std::size_t(from), std::size_t(to), true, stop);
    if (!decoded) {
        ok = false;
        return {};
    }
    if (decoded->channels != channels || decoded->samplesPerFrame != spf) {
        ok = false;
        why_ = QStringLiteral("the decoded audio does not match the stream");
        return {};
    }
    for (std::int64_t t = 0; t < samples; ++t) {
        const std::int64_t at = firstSample + t;
        const std::int64_t frame = floorDiv(at, spf);
        if (frame < from || frame >= to || contains(lost, frame))
            continue;
        // Fade out over the last samples before lost frames, and in over the
        // samples after them in which the decoder still plays their damage.
        float gain = 1.0f;
        const auto next = std::upper_bound(lost.begin(), lost.end(), frame);
        if (next != lost.end()) {
            const std::int64_t until = *next * spf - at;
            gain *= std::min(1.0f, float(until) / float(MP3SplicePlanner::kFadeOutSamples));
        }
        if (next != lost.begin()) {
            const std::int64_t since = at - (*(next - 1) + 1) * spf;
            gain *= std::min(1.0f, float(since) / float(MP3SplicePlanner::kRecoverySamples));
        }
        const std::int64_t within = at - frame * spf;
        const std::size_t in = std::size_t(((frame - from) * spf + within) * channels);
        for (int c = 0; c < channels; ++c)
            out[std::size_t(t * channels + c)] = decoded->samples[in + std::size_t(c)] * gain;
    }
    return out;
}

std::optional<QByteArray> MP3RegionRepair::encodeAudio(const std::vector<float>& samples, int channels, int kbps,
                                                       int index)
{
    const QString raw = QDir(folder_).filePath(QStringLiteral("stretch-%1.f32").arg(index));
    const QString encoded = QDir(folder_).filePath(QStringLiteral("stretch-%1.mp3").arg(index));
    {
        QFile file(raw);
        const auto bytes = qint64(samples.size() * sizeof(float));
        if (!file.open(QIODevice::WriteOnly)
            || file.write(reinterpret_cast<const char*>(samples.data()), bytes) != bytes) {
            why_ = QStringLiteral("cannot write ") + raw;
            return std::nullopt;
        }
    }
    // Little-endian float, as the samples are in memory on every platform
    // Folivox runs on.
    const QStringList args{QStringLiteral("-nostdin"), QStringLiteral("-y"), QStringLiteral("-v"),
                           QStringLiteral("error"), QStringLiteral("-f"), QStringLiteral("f32le"),
                           QStringLiteral("-ar"), QString::number(scan_.sampleRate), QStringLiteral("-ac"),
                           QString::number(channels), QStringLiteral("-i"), raw, QStringLiteral("-c:a"),
                           QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), QStringLiteral("%1k").arg(kbps),
                           QStringLiteral("-reservoir"), QStringLiteral("0"), QStringLiteral("-id3v2_version"),
                           QStringLiteral("0"), QStringLiteral("-write_xing"), QStringLiteral("1"),
                           QStringLiteral("-f"), QStringLiteral("mp3"), encoded};
    const FFmpegResult result = ffmpeg_.run(args, std::nullopt, token_);
    QFile::remove(raw);
    if (!result.succeeded()) {
        QFile::remove(encoded);
        if (!stopped())
            why_ = QStringLiteral("ffmpeg could not encode a stretch: ") + result.error.value_or(QString());
        return std::nullopt;
    }
    QFile file(encoded);
    if (!file.open(QIODevice::ReadOnly)) {
        why_ = QStringLiteral("cannot read ") + encoded;
        return std::nullopt;
    }
    QByteArray bytes = file.readAll();
    file.close();
    QFile::remove(encoded);
    return bytes;
}

int MP3RegionRepair::bitrateFor(std::int64_t first, std::int64_t end) const
{
    // The average bitrate of the frames around the stretch, to the nearest
    // bitrate of the stream's version.
    double sum = 0;
    std::int64_t count = 0;
    for (std::int64_t k = std::max<std::int64_t>(first, 0); k < end && k < std::int64_t(frames_.size()); ++k) {
        if (const auto h = MP3FrameHeader::decode(frames_[std::size_t(k)].data, frames_[std::size_t(k)].length)) {
            sum += h->bitrateKbps;
            ++count;
        }
    }
    const double average = count > 0 ? sum / double(count) : double(scan_.bitrateKbps.value_or(128));
    int best = MP3FrameHeader::bitrateFor(scan_.version, 1);
    for (int i = 1; i <= 14; ++i) {
        const int kbps = MP3FrameHeader::bitrateFor(scan_.version, i);
        if (std::abs(double(kbps) - average) < std::abs(double(best) - average))
            best = kbps;
    }
    return best;
}

} // namespace folivox
