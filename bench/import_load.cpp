// Per-file cost of reading an audio file's format, tags and chapters:
// in process with libavformat (LibavAudioInspector) against one `ffmpeg -i`
// child per file (FFprobeInspector), over the same 500 generated files, side
// by side in one run. The ratio of the two is printed at the end.
//
//   cmake --build build --target bench_import_load && build/bin/bench_import_load
//
// A third benchmark loads all 500 through AudioMetadataService, whose
// one-second stream probe runs ffmpeg for every file, for reference.

#include "process/FFmpegWrapper.h"
#include "import/probe/AudioMetadataService.h"
#include "import/probe/FFprobeInspector.h"
#include "import/probe/LibavAudioInspector.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>

namespace {

constexpr int kFiles = 500;

// The corpus: five distinct small files (MP3 with tags, AAC in M4B with
// chapters, FLAC, Ogg Vorbis, WAV), each copied to 100 names.
class Corpus {
public:
    static Corpus& instance()
    {
        static Corpus corpus;
        return corpus;
    }

    const QStringList& files() const { return files_; }
    bool ok() const { return ok_; }

private:
    Corpus()
    {
        const QString d = dir_.path();
        const QString meta = d + QStringLiteral("/meta.txt");
        QFile m(meta);
        ok_ = m.open(QIODevice::WriteOnly)
            && m.write(";FFMETADATA1\ntitle=Bench Book\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=1500\ntitle=One\n"
                       "[CHAPTER]\nTIMEBASE=1/1000\nSTART=1500\nEND=3000\ntitle=Two\n")
                > 0;
        m.close();
        const QString sine = QStringLiteral("sine=frequency=440:sample_rate=44100:duration=3");
        struct Source {
            QString name;
            QStringList args;
        };
        const QList<Source> sources{
            {"src.mp3", {"-f", "lavfi", "-i", sine, "-c:a", "libmp3lame", "-b:a", "64k", "-metadata", "title=Bench",
                         "-metadata", "track=3/9", "-metadata", "artist=Someone"}},
            {"src.m4b", {"-f", "lavfi", "-i", sine, "-i", meta, "-map", "0:a", "-map_metadata", "1", "-map_chapters",
                         "1", "-c:a", "aac", "-b:a", "64k", "-f", "ipod"}},
            {"src.flac", {"-f", "lavfi", "-i", sine, "-c:a", "flac"}},
            {"src.ogg", {"-f", "lavfi", "-i", sine, "-c:a", "libvorbis"}},
            {"src.wav", {"-f", "lavfi", "-i", sine, "-c:a", "pcm_s16le"}},
        };
        for (const Source& s : sources) {
            QProcess p;
            p.setStandardInputFile(QProcess::nullDevice());
            p.start(QStringLiteral("ffmpeg"), QStringList{"-hide_banner", "-loglevel", "error", "-y"} + s.args
                                                  + QStringList{d + u'/' + s.name});
            ok_ = ok_ && p.waitForFinished(60000) && p.exitCode() == 0;
        }
        for (int i = 0; i < kFiles && ok_; ++i) {
            const Source& s = sources[i % sources.size()];
            const QString target = d + QStringLiteral("/file-%1.%2").arg(i, 3, 10, QLatin1Char('0')).arg(
                                       QFileInfo(s.name).suffix());
            ok_ = QFile::copy(d + u'/' + s.name, target);
            files_ << target;
        }
    }

    QTemporaryDir dir_;
    QStringList files_;
    bool ok_ = false;
};

void BM_InProcessPerFile(benchmark::State& state)
{
    const Corpus& c = Corpus::instance();
    if (!c.ok()) {
        state.SkipWithError("could not generate the files");
        return;
    }
    const folivox::LibavAudioInspector inspector;
    int i = 0;
    for (auto _ : state) {
        const folivox::MediaProbe p = inspector.probe(c.files()[i++ % kFiles]);
        benchmark::DoNotOptimize(p.duration);
    }
    state.counters["files"] = kFiles;
}
BENCHMARK(BM_InProcessPerFile)->Iterations(kFiles)->Unit(benchmark::kMillisecond);

void BM_FFmpegChildPerFile(benchmark::State& state)
{
    const Corpus& c = Corpus::instance();
    if (!c.ok()) {
        state.SkipWithError("could not generate the files");
        return;
    }
    const folivox::FFprobeInspector ffprobe;
    int i = 0;
    for (auto _ : state) {
        const folivox::AudioSourceFormat f = ffprobe.inspect(c.files()[i++ % kFiles]);
        benchmark::DoNotOptimize(f.duration);
    }
    state.counters["files"] = kFiles;
}
BENCHMARK(BM_FFmpegChildPerFile)->Iterations(kFiles)->Unit(benchmark::kMillisecond);

void BM_ServiceLoadAll(benchmark::State& state)
{
    const Corpus& c = Corpus::instance();
    if (!c.ok()) {
        state.SkipWithError("could not generate the files");
        return;
    }
    QList<QUrl> urls;
    for (const QString& f : c.files())
        urls << QUrl::fromLocalFile(f);
    folivox::AudioMetadataService service;
    QElapsedTimer clock;
    clock.start();
    for (auto _ : state) {
        const auto outcome = service.load(urls);
        if (outcome.tracks.size() != static_cast<size_t>(kFiles))
            state.SkipWithError("not every file loaded");
    }
    state.counters["per_file_ms"] = static_cast<double>(clock.nsecsElapsed()) / 1e6 / kFiles;
}
BENCHMARK(BM_ServiceLoadAll)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// Keeps the real time per iteration of each benchmark for the ratio line.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& r : runs)
            if (r.run_type == Run::RT_Iteration && !r.error_occurred)
                realTimeMs[r.benchmark_name()] = r.GetAdjustedRealTime() * 1000.0
                    / benchmark::GetTimeUnitMultiplier(r.time_unit);
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> realTimeMs;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("FOLIVOX_HOME", home.path().toUtf8());
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const auto inProcess = reporter.realTimeMs.find("BM_InProcessPerFile/iterations:500");
    const auto child = reporter.realTimeMs.find("BM_FFmpegChildPerFile/iterations:500");
    if (inProcess != reporter.realTimeMs.end() && child != reporter.realTimeMs.end() && inProcess->second > 0) {
        std::printf("\nper file: in process %.3f ms, ffmpeg -i child %.3f ms — in process is %.1fx cheaper "
                    "(target: at least 10x)\n",
                    inProcess->second, child->second, child->second / inProcess->second);
    }
    return 0;
}
