// The build queue's own cost per job, on a queue of 1,000 jobs, against the
// build of a one-minute book.
//
//   cmake --build build --target bench_queue_overhead folivox mp4tags mp4art mp4chaps && build/bin/bench_queue_overhead
//
// Prints:
//   - enqueue: adding 1,000 candidates of 10 tracks each, one at a time: the
//     book written into the job's folder, then the whole queue file saved
//     atomically: mean and last add, and the CPU time of it;
//   - run: the 1,000 jobs run with a builder that does nothing, so that what
//     is timed is the queue alone (the book read back, the job's end and the
//     next job's start in one save of the whole file, the attempt's log, the
//     events): mean per job, and the CPU time of it;
//   - the size of the queue file;
//   - a real one-minute book: built in process, through a build worker
//     started for it alone, and through one worker kept from build to build
//     as `queue run` keeps it (median of 5 each); the differences are the
//     worker's start (once per run) and its cost per job.
// With --queue-only, only the enqueue and run figures.
// Target: the queue's overhead per job under 1% of the one-minute book's build.

#include "BenchSupport.h"

#include "build/BuildUseCase.h"
#include "process/ManualCancellationToken.h"
#include "queue/run/InProcessJobBuilder.h"
#include "queue/run/QueueService.h"
#include "queue/run/WorkerProcessJobBuilder.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

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
    store.writeNewJobFiles(job.id, {{QStringLiteral("book.json"), QJsonDocument(book.toJson()).toJson(QJsonDocument::Compact)}});
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

// This process's CPU time (all threads), in ms.
double cpuMs()
{
    timespec ts{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

double ms(const timeval& t)
{
    return double(t.tv_sec) * 1e3 + double(t.tv_usec) / 1e3;
}

// CPU time of this process and of every child it has waited for (with the
// children those waited for), in ms.
double ownAndReapedCpuMs()
{
    rusage self{};
    rusage children{};
    ::getrusage(RUSAGE_SELF, &self);
    ::getrusage(RUSAGE_CHILDREN, &children);
    return ms(self.ru_utime) + ms(self.ru_stime) + ms(children.ru_utime) + ms(children.ru_stime);
}

// CPU time of a running process and of the children it has waited for, in ms.
double processCpuMs(qint64 pid)
{
    QFile f(QStringLiteral("/proc/%1/stat").arg(pid));
    if (pid <= 0 || !f.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = f.readAll();
    // Fields after the command's closing parenthesis: state is field 3;
    // utime, stime, cutime, cstime are fields 14 to 17.
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    double ticks = 0;
    for (int i = 11; i <= 14 && i < fields.size(); ++i)
        ticks += fields[i].toDouble();
    return ticks * 1000.0 / double(::sysconf(_SC_CLK_TCK));
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
    double cpu = cpuMs();
    double lastAdd = 0;
    for (int i = 0; i < kJobs; ++i) {
        QElapsedTimer one;
        one.start();
        service->enqueue(candidate(i + 1, inputs, out, *store));
        lastAdd = msSince(one);
    }
    const double enqueueMs = msSince(clock);
    const double enqueueCpu = cpuMs() - cpu;
    const qint64 fileBytes = QFileInfo(store->queueFileURL()).size();

    clock.restart();
    cpu = cpuMs();
    service->start();
    service->waitUntilIdle();
    const double runMs = msSince(clock);
    const double runCpu = cpuMs() - cpu;
    int completed = 0;
    for (const QueueJob& j : service->jobs())
        completed += j.status == QueueJobStatus::completed ? 1 : 0;

    std::printf("queue of %d jobs (10 tracks each), queue file %.1f MB\n", kJobs, double(fileBytes) / 1e6);
    std::printf("  enqueue: mean %.2f ms per job (CPU %.2f ms), last add %.2f ms (the whole file is saved on each add)\n",
                enqueueMs / kJobs, enqueueCpu / kJobs, lastAdd);
    std::printf("  run:     mean %.2f ms per job of the queue's own work (CPU %.2f ms; %d completed)\n", runMs / kJobs,
                runCpu / kJobs, completed);
    if (argc > 1 && QByteArray(argv[1]) == "--queue-only")
        return 0;

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
    // In process; through a worker started for that build alone (what the
    // first job of a run pays); through one worker kept from build to build
    // (what every later job of the run pays). Interleaved, so that a change
    // in the machine's load touches all three alike.
    std::vector<double> inProcess;
    std::vector<double> freshWorker;
    std::vector<double> keptWorker;
    std::vector<double> inProcessCpu;
    std::vector<double> freshWorkerCpu;
    std::vector<double> keptWorkerCpu;
    InProcessJobBuilder local;
    const QStringList workerArguments{QStringLiteral("queue"), QStringLiteral("worker")};
    WorkerProcessJobBuilder kept(folivox, workerArguments);
    constexpr int kRounds = 5;
    for (int round = 0; round <= kRounds; ++round) {
        for (int kind = 0; kind < 3; ++kind) {
            QueueBuildOrder order;
            order.book = book;
            order.outputPath = dir.filePath(QStringLiteral("minute-%1-%2.m4b").arg(round).arg(kind));
            QElapsedTimer t;
            t.start();
            const qint64 keptPid = kept.workerProcessId();
            const double cpuBefore = ownAndReapedCpuMs() + (kind == 2 ? processCpuMs(keptPid) : 0);
            try {
                if (kind == 0) {
                    local.build(order, std::make_shared<ManualCancellationToken>(), {});
                } else if (kind == 1) {
                    WorkerProcessJobBuilder fresh(folivox, workerArguments);
                    fresh.build(order, std::make_shared<ManualCancellationToken>(), {});
                } else {
                    kept.build(order, std::make_shared<ManualCancellationToken>(), {});
                }
            } catch (const QueueBuildFailure& f) {
                std::fprintf(stderr, "build failed: %s\n", qPrintable(f.message));
                return 1;
            }
            const double wall = msSince(t);
            const double jobCpu = ownAndReapedCpuMs() + (kind == 2 ? processCpuMs(kept.workerProcessId()) : 0) - cpuBefore;
            // Round 0 warms up: the in-process encoder list, the kept worker's start.
            if (round > 0 && (kind != 2 || kept.workerProcessId() == keptPid)) {
                (kind == 0 ? inProcess : kind == 1 ? freshWorker : keptWorker).push_back(wall);
                (kind == 0 ? inProcessCpu : kind == 1 ? freshWorkerCpu : keptWorkerCpu).push_back(jobCpu);
            }
        }
    }
    kept.runEnded();
    // Wall time on a shared machine moves by more than the worker costs;
    // CPU time (this process, the worker, their ffmpeg and mp4 tools) is
    // the steadier measure of what the worker adds.
    const double buildMs = bench::median(inProcess);
    const double freshMs = bench::median(freshWorker);
    const double keptMs = bench::median(keptWorker);
    const double buildCpu = bench::median(inProcessCpu);
    const double freshCpu = bench::median(freshWorkerCpu);
    const double keptCpu = bench::median(keptWorkerCpu);
    std::printf("one-minute book (median of %d), wall: %.0f ms in process, %.0f ms through a worker of its own (%+.0f ms), "
                "%.0f ms through the run's kept worker (%+.0f ms)\n",
                kRounds, buildMs, freshMs, freshMs - buildMs, keptMs, keptMs - buildMs);
    std::printf("one-minute book (median of %d), CPU:  %.0f ms in process, %.0f ms through a worker of its own (%+.0f ms), "
                "%.0f ms through the run's kept worker (%+.0f ms)\n",
                kRounds, buildCpu, freshCpu, freshCpu - buildCpu, keptCpu, keptCpu - buildCpu);
    const double queueMs = enqueueMs / kJobs + runMs / kJobs;
    const double perJob = queueMs + std::max(0.0, keptMs - buildMs);
    std::printf("queue overhead per job: enqueue + run %.1f ms, with the kept worker's wall time %.1f ms = %.2f%% of the "
                "one-minute build; the worker's start, once per run: %+.0f ms wall, %+.0f ms CPU\n",
                queueMs, perJob, 100.0 * perJob / keptMs, freshMs - keptMs, freshCpu - keptCpu);
    return 0;
}
