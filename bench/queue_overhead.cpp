// The build queue's own cost per job, on a queue of 1,000 jobs, against the
// build of a one-minute book.
//
//   cmake --build build --target bench_queue_overhead folivox mp4tags mp4art mp4chaps && build/bin/bench_queue_overhead
//
// Prints:
//   - enqueue: adding 1,000 candidates of 10 tracks each, one at a time: the
//     book written into the job's folder, then the whole queue file saved
//     atomically: mean and last add;
//   - run: the 1,000 jobs run with a builder that does nothing, so that what
//     is timed is the queue alone (the book read back, two state changes and
//     saves of the whole file, the attempt's log, the events): mean per job;
//   - the size of the queue file;
//   - a real one-minute book: built in process, and built through a build
//     worker process as `queue run` does (median of 3 each); the difference
//     is the worker's start-up.
// Target: the queue's overhead per job under 1% of the one-minute book's build.

#include "BenchSupport.h"

#include "build/BuildUseCase.h"
#include "process/ManualCancellationToken.h"
#include "queue/InProcessJobBuilder.h"
#include "queue/QueueService.h"
#include "queue/WorkerProcessJobBuilder.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>
#include <vector>

using namespace folivox;

namespace {

// Finishes every job at once, writing nothing.
class NullBuilder final : public QueueJobBuilder {
public:
    Built build(const QueueBuildOrder& order, std::shared_ptr<const CancellationToken>, const BuildUseCase::Sinks& sinks) override
    {
        if (sinks.progress) {
            sinks.progress(QStringLiteral("Encoding audio…"), 0.5);
            sinks.progress(QStringLiteral("Encoding audio…"), 1.0);
        }
        return Built{order.outputPath, {order.outputPath}, {}};
    }
};

// A job as the enqueuer makes it: the book in the job's folder, a light record.
QueueJob candidate(int n, const QString& inputs, const QString& out, QueueStore& store)
{
    QueueJob job;
    job.id = QUuid::createUuid();
    job.createdAt = QDateTime::currentDateTimeUtc();
    CandidatePayload payload;
    payload.inputs = {inputs};
    ImportedBook book;
    for (int t = 1; t <= 10; ++t) {
        Track track;
        track.url = QUrl::fromLocalFile(QStringLiteral("%1/%2.mp3").arg(inputs).arg(t, 2, 10, QChar(u'0')));
        track.title = QStringLiteral("Part %1").arg(t);
        track.duration = 1800;
        book.tracks.push_back(track);
        Bookmark b;
        b.title = track.title;
        b.tracks = {track};
        b.duration = track.duration;
        book.bookmarks.push_back(b);
    }
    book.metadata.title = QStringLiteral("Book %1").arg(n);
    book.metadata.author = QStringLiteral("An Author");
    store.writeJobFile(job.id, QStringLiteral("book.json"), QJsonDocument(book.toJson()).toJson(QJsonDocument::Compact));
    payload.bookFile = QStringLiteral("book.json");
    job.origin = QueueJobOrigin::fromCandidate(payload);
    job.displayTitle = book.metadata.title;
    job.outputURL = QUrl::fromLocalFile(out);
    job.plannedBasename = job.displayTitle + QStringLiteral(".m4b");
    job.organizationContext = OrganizationContext::from(book.metadata);
    return job;
}

double msSince(const QElapsedTimer& t)
{
    return double(t.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    constexpr int kJobs = 1000;
    const QString folivox = bench::folivoxBinary();
    if (folivox.isEmpty())
        return 1;
    qputenv("FOLIVOX_TOOLS_DIR", QCoreApplication::applicationDirPath().toUtf8());
    QTemporaryDir dir;
    const QString inputs = dir.filePath(QStringLiteral("in"));
    const QString out = dir.filePath(QStringLiteral("out"));
    QDir().mkpath(out);
    // Every track's file exists, so each job passes the queue's source check.
    QDir().mkpath(inputs);
    for (int t = 1; t <= 10; ++t) {
        QFile f(QStringLiteral("%1/%2.mp3").arg(inputs).arg(t, 2, 10, QChar(u'0')));
        f.open(QIODevice::WriteOnly);
    }

    auto store = std::make_shared<QueueStore>(dir.filePath(QStringLiteral("Queue")));
    QueueService::Config config;
    config.retryPause = std::chrono::milliseconds(0);
    auto service = std::make_shared<QueueService>(store, std::make_shared<NullBuilder>(), nullptr, config);

    QElapsedTimer clock;
    clock.start();
    double lastAdd = 0;
    for (int i = 0; i < kJobs; ++i) {
        QElapsedTimer one;
        one.start();
        service->enqueue(candidate(i + 1, inputs, out, *store));
        lastAdd = msSince(one);
    }
    const double enqueueMs = msSince(clock);
    const qint64 fileBytes = QFileInfo(store->queueFileURL()).size();

    clock.restart();
    service->start();
    service->waitUntilIdle();
    const double runMs = msSince(clock);
    int completed = 0;
    for (const QueueJob& j : service->jobs())
        completed += j.status == QueueJobStatus::completed ? 1 : 0;

    std::printf("queue of %d jobs (10 tracks each), queue file %.1f MB\n", kJobs, double(fileBytes) / 1e6);
    std::printf("  enqueue: mean %.2f ms per job, last add %.2f ms (the whole file is saved on each add)\n", enqueueMs / kJobs, lastAdd);
    std::printf("  run:     mean %.2f ms per job of the queue's own work (%d completed)\n", runMs / kJobs, completed);

    // A one-minute book, built in process and through a build worker.
    const QString source = dir.filePath(QStringLiteral("minute"));
    QDir().mkpath(source);
    QProcess ff;
    ff.start(QStringLiteral("ffmpeg"), {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"), QStringLiteral("-f"),
                                         QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("sine=frequency=440:duration=60"),
                                         QStringLiteral("-ac"), QStringLiteral("2"), QStringLiteral("-ar"), QStringLiteral("44100"),
                                         QDir(source).filePath(QStringLiteral("01.wav"))});
    ff.waitForFinished(-1);
    BuildRequest importRequest;
    importRequest.inputs = {source};
    importRequest.tags.title = QStringLiteral("Minute");
    const ImportedBook book = BuildUseCase().importBook(importRequest, std::make_shared<ManualCancellationToken>());
    std::vector<double> inProcess;
    std::vector<double> worker;
    InProcessJobBuilder local;
    WorkerProcessJobBuilder remote(folivox, {QStringLiteral("queue"), QStringLiteral("worker")});
    for (int run = 0; run < 3; ++run) {
        for (int kind = 0; kind < 2; ++kind) {
            QueueBuildOrder order;
            order.book = book;
            order.outputPath = dir.filePath(QStringLiteral("minute-%1-%2.m4b").arg(run).arg(kind));
            QElapsedTimer t;
            t.start();
            try {
                if (kind == 0)
                    local.build(order, std::make_shared<ManualCancellationToken>(), {});
                else
                    remote.build(order, std::make_shared<ManualCancellationToken>(), {});
            } catch (const QueueBuildFailure& f) {
                std::fprintf(stderr, "build failed: %s\n", qPrintable(f.message));
                return 1;
            }
            (kind == 0 ? inProcess : worker).push_back(msSince(t));
        }
    }
    const double buildMs = bench::median(inProcess);
    const double workerMs = bench::median(worker);
    const double perJob = enqueueMs / kJobs + runMs / kJobs + (workerMs - buildMs);
    std::printf("one-minute book: %.0f ms in process, %.0f ms through a build worker (+%.0f ms)\n", buildMs, workerMs,
                workerMs - buildMs);
    std::printf("queue overhead per job (enqueue + run + worker start): %.1f ms = %.2f%% of the one-minute build\n", perJob,
                100.0 * perJob / workerMs);
    return 0;
}
