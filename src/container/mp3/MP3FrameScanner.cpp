#include "container/mp3/MP3FrameScanner.h"

#include <algorithm>

namespace folivox {

namespace {

// The state of one walk over the bytes.
class Walk {
public:
    Walk(const std::uint8_t* data, std::size_t size, const std::function<bool()>& cancelled)
        : data_(data), size_(size), cancelled_(cancelled)
    {
    }

    std::optional<MP3FrameScanner::Result> run();

private:
    using Span = MP3TagLocator::Span;

    // False when the scan was cancelled at a check due by pos.
    bool progress(std::size_t pos)
    {
        while (pos >= nextCheck_) {
            nextCheck_ += MP3FrameScanner::kCancelCheckInterval;
            if (cancelled_ && cancelled_())
                return false;
        }
        return true;
    }

    // A decodable header at pos that belongs to the stream (any stream before
    // the first lock).
    std::optional<MP3FrameHeader> streamHeader(std::size_t pos) const
    {
        auto h = MP3FrameHeader::decode(data_ + pos, size_ - pos);
        if (h && result_.locked && !(h->version == result_.version && h->sampleRate == result_.sampleRate))
            return std::nullopt;
        return h;
    }

    // Two headers one frame apart, of the same version and sample rate.
    bool lockAt(std::size_t pos) const
    {
        const auto first = streamHeader(pos);
        if (!first || std::size_t(first->frameLength) > size_ - pos)
            return false;
        const auto second = MP3FrameHeader::decode(data_ + pos + first->frameLength, size_ - pos - first->frameLength);
        return second && second->sameStream(*first);
    }

    // From pos on, the next lock, passing over tags; every other run of bytes
    // on the way goes to gaps_. size_ when there is none. Nothing when
    // cancelled.
    std::optional<std::size_t> search(std::size_t pos, std::vector<Span>& tags)
    {
        std::size_t runStart = pos;
        while (pos < size_) {
            if (pos >= nextCheck_ && !progress(pos))
                return std::nullopt;
            const std::uint8_t b = data_[pos];
            if (b == 0xFF && lockAt(pos)) {
                if (pos > runStart)
                    gaps_.push_back({runStart, pos});
                return pos;
            }
            if (b == 'I' || b == 'T' || b == 'A') {
                if (auto tag = MP3TagLocator::tagAt(data_, size_, pos)) {
                    const std::size_t start = std::max(tag->start, runStart);
                    if (start > runStart)
                        gaps_.push_back({runStart, start});
                    tags.push_back({start, tag->end});
                    pos = std::max(tag->end, pos + 1);
                    runStart = pos;
                    continue;
                }
            }
            ++pos;
        }
        if (size_ > runStart)
            gaps_.push_back({runStart, size_});
        return size_;
    }

    // The playing time of the audio frames so far, from their count (a sum
    // of per-frame times would drift over millions of frames).
    double playedSeconds() const
    {
        return double(result_.validFrameCount) * double(result_.samplesPerFrame) / double(result_.sampleRate);
    }

    void addHole(const Span& gap)
    {
        MP3IntegrityHole hole;
        hole.byteOffset = std::int64_t(gap.start);
        hole.byteLength = std::int64_t(gap.end - gap.start);
        hole.startTime = playedSeconds();
        const double averageFrame = result_.validFrameCount > 0
            ? double(result_.audioBytes) / double(result_.validFrameCount)
            : double(lastFrameLength_);
        hole.missingSeconds = double(hole.byteLength) / averageFrame * double(result_.samplesPerFrame)
            / double(result_.sampleRate);
        result_.holes.push_back(hole);
    }

    const std::uint8_t* data_;
    std::size_t size_;
    const std::function<bool()>& cancelled_;
    std::size_t nextCheck_ = MP3FrameScanner::kCancelCheckInterval;
    std::vector<Span> gaps_;
    int lastFrameLength_ = 0;
    MP3FrameScanner::Result result_;
};

std::optional<MP3FrameScanner::Result> Walk::run()
{
    auto first = search(0, result_.leadingTags);
    if (!first)
        return std::nullopt;
    // Bytes before the first frame have no frame before them: not a hole.
    gaps_.clear();
    if (*first >= size_)
        return result_;
    for (const Span& tag : result_.leadingTags) {
        if (tag.start == 0)
            result_.taggedLength = MP3TagLocator::id3v2Length(data_ + tag.start, tag.end - tag.start);
    }

    const auto lock = *MP3FrameHeader::decode(data_ + *first, size_ - *first);
    result_.locked = true;
    result_.version = lock.version;
    result_.sampleRate = lock.sampleRate;
    result_.samplesPerFrame = lock.samplesPerFrame;

    std::size_t pos = *first;
    bool firstFrame = true;
    while (true) {
        const std::size_t runStart = pos;
        while (pos < size_) {
            if (pos >= nextCheck_ && !progress(pos))
                return std::nullopt;
            const auto h = MP3FrameHeader::decode(data_ + pos, size_ - pos);
            if (!h || h->version != result_.version || h->sampleRate != result_.sampleRate
                || std::size_t(h->frameLength) > size_ - pos)
                break;
            lastFrameLength_ = h->frameLength;
            if (firstFrame) {
                firstFrame = false;
                if (auto info = MP3InfoFrame::parse(data_ + pos, std::size_t(h->frameLength), *h)) {
                    result_.infoFrame = info;
                    result_.infoFrameSpan = Span{pos, pos + std::size_t(h->frameLength)};
                    pos += std::size_t(h->frameLength);
                    continue;
                }
            }
            if (!result_.bitrateKbps) {
                result_.bitrateKbps = h->bitrateKbps;
                result_.channelMode = h->channelMode;
            }
            ++result_.validFrameCount;
            result_.audioBytes += h->frameLength;
            pos += std::size_t(h->frameLength);
        }
        const std::size_t runBegin = result_.infoFrameSpan && result_.infoFrameSpan->start == runStart
            ? result_.infoFrameSpan->end
            : runStart;
        if (pos > runBegin)
            result_.audioRuns.push_back({runBegin, pos});
        if (pos >= size_) {
            result_.trueDuration = playedSeconds();
            break;
        }
        std::vector<Span> tags;
        const auto next = search(pos, tags);
        if (!next)
            return std::nullopt;
        if (*next >= size_) {
            result_.trueDuration = playedSeconds();
            for (const Span& gap : gaps_)
                result_.trailingBytes += std::int64_t(gap.end - gap.start);
            result_.trailingTags = std::move(tags);
            break;
        }
        for (const Span& gap : gaps_)
            addHole(gap);
        gaps_.clear();
        pos = *next;
    }
    return result_;
}

} // namespace

std::optional<MP3FrameScanner::Result> MP3FrameScanner::scan(const std::uint8_t* data, std::size_t size,
                                                             const std::function<bool()>& cancelled)
{
    return Walk(data, size, cancelled).run();
}

} // namespace folivox
