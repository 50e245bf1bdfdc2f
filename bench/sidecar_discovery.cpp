// Chapter-file discovery beside a large book: 5,000 audio files (empty; their
// durations are given, as import would give them) and 50 chapter and text
// files in one folder. Discovery must list the folder once and finish in
// under a second.
//
//   cmake --build build --target bench_sidecar_discovery && build/bin/bench_sidecar_discovery
//
// BM_DiscoverCold uses a fresh service each time (folder listed, every file
// read and parsed); BM_DiscoverWarm reuses one service, so listings and file
// texts come from its caches. The "listings" counter is the number of folder
// listings made per discovery.

#include "sidecars/discovery/SidecarDiscoveryService.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QUrl>

#include <benchmark/benchmark.h>

#include <cstdio>

namespace {

constexpr int kAudioFiles = 5000;
constexpr int kTextFiles = 50;

class Folder {
public:
    static Folder& instance()
    {
        static Folder folder;
        return folder;
    }
    bool ok() const { return ok_; }
    const QList<folivox::SidecarAudioInput>& audio() const { return audio_; }

private:
    Folder()
    {
        ok_ = dir_.isValid();
        auto write = [&](const QString& name, const QByteArray& bytes) {
            QFile f(dir_.filePath(name));
            ok_ = ok_ && f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
        };
        for (int i = 0; i < kAudioFiles; ++i) {
            const QString name = QStringLiteral("track%1.mp3").arg(i, 4, 10, QChar(u'0'));
            write(name, {});
            audio_.append({QUrl::fromLocalFile(dir_.filePath(name)), 60'000});
        }
        // 20 chapter lists named after tracks, 10 cue sheets naming tracks,
        // 10 Matroska XML files and 10 text files of prose.
        QByteArray list;
        for (int c = 0; c < 12; ++c)
            list += QStringLiteral("00:%1:00.000 Chapter %2\n").arg(c * 5, 2, 10, QChar(u'0')).arg(c + 1).toUtf8();
        for (int i = 0; i < 20; ++i)
            write(QStringLiteral("track%1.chapters.txt").arg(i * 250, 4, 10, QChar(u'0')), list);
        for (int i = 0; i < 10; ++i) {
            QByteArray cue = QStringLiteral("FILE \"track%1.mp3\" MP3\n").arg(i * 17, 4, 10, QChar(u'0')).toUtf8();
            for (int t = 0; t < 30; ++t)
                cue += QStringLiteral("TRACK %1 AUDIO\n  TITLE \"Part %1\"\n  INDEX 01 %2:00:00\n")
                           .arg(t + 1)
                           .arg(t * 2)
                           .toUtf8();
            write(QStringLiteral("sheet%1.cue").arg(i), cue);
        }
        for (int i = 0; i < 10; ++i) {
            QByteArray xml = "<?xml version=\"1.0\"?>\n<Chapters><EditionEntry>\n";
            for (int c = 0; c < 10; ++c)
                xml += QStringLiteral("<ChapterAtom><ChapterTimeStart>00:%1:00.000000000</ChapterTimeStart>"
                                      "<ChapterDisplay><ChapterString>C%2</ChapterString></ChapterDisplay></ChapterAtom>\n")
                           .arg(c * 3, 2, 10, QChar(u'0'))
                           .arg(c)
                           .toUtf8();
            write(QStringLiteral("mkv%1.xml").arg(i), xml + "</EditionEntry></Chapters>\n");
        }
        for (int i = 0; i < kTextFiles - 40; ++i)
            write(QStringLiteral("notes%1.txt").arg(i), QByteArray("Notes about the recording session.\n").repeated(20));
    }

    QTemporaryDir dir_;
    QList<folivox::SidecarAudioInput> audio_;
    bool ok_ = false;
};

void BM_DiscoverCold(benchmark::State& state)
{
    Folder& folder = Folder::instance();
    if (!folder.ok()) {
        state.SkipWithError("could not create the folder");
        return;
    }
    int listings = 0;
    bool found = true;
    for (auto _ : state) {
        folivox::SidecarDiscoveryService service;
        const auto result = service.discover(folder.audio());
        benchmark::DoNotOptimize(result);
        listings = service.listingCache().listedCount();
        found = found && result.match.has_value() && result.discoveredFiles.size() == kTextFiles;
    }
    state.counters["listings"] = listings;
    if (!found)
        state.SkipWithError("discovery did not consider every file or found no match");
}
BENCHMARK(BM_DiscoverCold)->Iterations(5)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DiscoverWarm(benchmark::State& state)
{
    Folder& folder = Folder::instance();
    if (!folder.ok()) {
        state.SkipWithError("could not create the folder");
        return;
    }
    folivox::SidecarDiscoveryService service;
    service.discover(folder.audio());
    for (auto _ : state)
        benchmark::DoNotOptimize(service.discover(folder.audio()));
    state.counters["listings"] = service.listingCache().listedCount();
}
BENCHMARK(BM_DiscoverWarm)->Iterations(5)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("FOLIVOX_HOME", home.path().toUtf8());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    // One plain check of the target, outside the benchmark's own loop.
    Folder& folder = Folder::instance();
    folivox::SidecarDiscoveryService service;
    QElapsedTimer timer;
    timer.start();
    const auto result = service.discover(folder.audio());
    const qint64 ms = timer.elapsed();
    const int listings = service.listingCache().listedCount();
    const bool pass = ms < 1000 && listings == 1 && result.match.has_value();
    std::printf("\ndiscovery over %d audio files and %d text files: %lld ms, %d folder listing(s), best match %s "
                "(%s confidence) — target under 1000 ms with one listing: %s\n",
                kAudioFiles, kTextFiles, static_cast<long long>(ms), listings,
                result.match ? qPrintable(result.match->sidecarURL.fileName()) : "none",
                result.match ? qPrintable(folivox::sidecarMatchConfidenceRawValue(result.match->confidence)) : "-",
                pass ? "PASS" : "FAIL");
    return pass ? 0 : 1;
}
