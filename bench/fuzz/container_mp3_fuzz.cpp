// Fuzzes the MP3 frame walk: tag spans, the scan with its holes, runs and
// counts, and the repaired copy's information frame, on any bytes. Checks the
// walk's own promises: every span inside the data, runs and holes in order
// and apart, the counts adding up. Then the splicing of the found frames:
// their side information and main data map, the stretches planned around
// any frame, and a repacked stretch, each inside its bounds.
#include "container/mp3/MP3FrameCopyWriter.h"
#include "container/mp3/MP3FrameScanner.h"
#include "container/mp3/MP3FrameSequence.h"
#include "container/mp3/MP3InfoFrame.h"
#include "container/mp3/MP3MainDataMap.h"
#include "container/mp3/MP3ReservoirPacker.h"
#include "container/mp3/MP3SplicePlanner.h"
#include "container/mp3/MP3TagLocator.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

using namespace folivox;

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    if (size > 65536)
        return 0;
    for (size_t pos = 0; pos < size && pos < 64; ++pos) {
        if (const auto tag = MP3TagLocator::tagAt(data, size, pos)) {
            check(tag->start <= pos && tag->end > pos && tag->end <= size);
            MP3TagLocator::id3v2Length(data + tag->start, tag->end - tag->start);
        }
        if (const auto h = MP3FrameHeader::decode(data + pos, size - pos)) {
            check(h->frameLength >= 24 && h->frameLength <= 2881);
            if (size_t(h->frameLength) <= size - pos)
                MP3InfoFrame::parse(data + pos, size_t(h->frameLength), *h);
        }
    }

    int checks = 0;
    const auto scan = MP3FrameScanner::scan(data, size, [&checks] { return ++checks > 1000; });
    check(scan.has_value());
    if (!scan->locked) {
        check(scan->validFrameCount == 0 && scan->holes.empty() && scan->audioRuns.empty());
        return 0;
    }
    std::int64_t runBytes = 0;
    size_t last = 0;
    for (const auto& run : scan->audioRuns) {
        check(run.start >= last && run.start < run.end && run.end <= size);
        runBytes += std::int64_t(run.end - run.start);
        last = run.end;
    }
    check(runBytes == scan->audioBytes);
    std::int64_t previousEnd = 0;
    for (const auto& hole : scan->holes) {
        check(hole.byteLength > 0 && hole.byteOffset >= previousEnd);
        check(hole.byteOffset + hole.byteLength <= std::int64_t(size));
        check(hole.missingSeconds > 0 && hole.startTime >= 0 && hole.startTime <= scan->trueDuration);
        previousEnd = hole.byteOffset + hole.byteLength;
    }
    check(scan->trailingBytes >= 0 && scan->trailingBytes <= std::int64_t(size));
    check(scan->audioBytes + scan->trailingBytes <= std::int64_t(size));
    if (scan->validFrameCount > 0) {
        const QByteArray info = MP3FrameCopyWriter::infoFrame(data, *scan);
        const auto header = MP3FrameHeader::decode(reinterpret_cast<const std::uint8_t*>(info.constData()),
                                                   size_t(info.size()));
        check(header.has_value() && header->frameLength == info.size());
        const auto parsed = MP3InfoFrame::parse(reinterpret_cast<const std::uint8_t*>(info.constData()),
                                                size_t(info.size()), *header);
        check(parsed && parsed->frames && std::int64_t(*parsed->frames) == scan->validFrameCount);
    }

    const auto frames = MP3FrameSequence::ofScan(data, *scan);
    check(std::int64_t(frames.size()) == scan->validFrameCount);
    const MP3MainDataMap map(frames);
    const auto n = std::int64_t(map.size());
    for (std::size_t i = 0; i < map.size(); ++i) {
        check(map[i].areaLength >= 0 && map[i].dataLength >= 0 && map[i].mainDataBegin <= 511);
        const int carried = map.carriedInto(i);
        check(carried >= 0 && carried <= 511 && carried <= map[i].areaStart);
        check(map.streamBytes(map[i].areaStart - carried, map[i].areaStart).size() == carried);
    }
    if (n == 0)
        return 0;
    const auto regions = MP3SplicePlanner::plan(map, {0, n / 2, n - 1, n + 5, -3}, data[0] & 1 ? 576 : 1152);
    std::int64_t end = 0;
    for (const auto& r : regions) {
        check(r.first >= end && r.first < r.end && r.end <= n && !r.lost.empty());
        check(r.lost.front() >= r.first && r.lost.back() < r.end);
        end = r.end;
    }
    const std::size_t count = std::min<std::size_t>(frames.size(), 4);
    std::vector<std::uint8_t> sizes;
    for (std::size_t i = 0; i < count; ++i)
        sizes.push_back(data[i % size]);
    const QByteArray carried = map.streamBytes(0, std::int64_t(size % 300));
    if (const auto packed = MP3ReservoirPacker::pack(frames, map, 0, count, sizes, carried)) {
        const auto stretch =
            MP3FrameSequence::ofBytes(reinterpret_cast<const std::uint8_t*>(packed->constData()), size_t(packed->size()));
        check(stretch.size() == count);
        const MP3MainDataMap stretchMap(stretch);
        check(stretchMap[0].mainDataBegin == 0);
        check(stretchMap.streamBytes(stretchMap.streamLength() - carried.size(), stretchMap.streamLength()) == carried);
    }
    return 0;
}
