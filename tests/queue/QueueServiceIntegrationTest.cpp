// The queue service with real builds (in this process) and with builders
// whose failures the test chooses: order, events, the failure table, halts,
// cancel, resume, retry and remove.
#include "queue/QueueTestSupport.h"

#include "build/BuildUseCase.h"
#include "process/ManualCancellationToken.h"
#include "queue/run/InProcessJobBuilder.h"
#include "queue/run/QueueController.h"
#include "queue/records/QueueError.h"
#include "queue/records/QueueRunError.h"
#include "queue/run/QueueService.h"
#include "support/Fixtures.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

using namespace folivox;
using folivox::test::Fixtures;

namespace {

// A book imported from a real tone.
ImportedBook importTone(const QString& folder, const QString& title, double seconds, int frequency)
{
    QDir().mkpath(folder);
    EXPECT_TRUE(Fixtures::tone(QDir(folder).filePath(QStringLiteral("01.m4a")), seconds, {QStringLiteral("-c:a"), QStringLiteral("aac"),
                                                                                           QStringLiteral("-b:a"), QStringLiteral("64k")},
                               44100, 1, frequency));
    BuildRequest r;
    r.inputs = {folder};
    r.tags.title = title;
    return BuildUseCase().importBook(r, std::make_shared<ManualCancellationToken>());
}

QueueJob jobFor(const ImportedBook& book, const QString& outputFolder)
{
    QueueJob job = test::sampleJob(book.metadata.title, outputFolder);
    job.origin.candidate->book = book;
    return job;
}

// Records every event; thread-safe.
struct EventLog {
    std::mutex mutex;
    std::vector<QueueServiceEvent> events;
    void operator()(const QueueServiceEvent& e)
    {
        std::lock_guard lock(mutex);
        events.push_back(e);
    }
    std::vector<QueueServiceEvent> all()
    {
        std::lock_guard lock(mutex);
        return events;
    }
};

// A builder whose every call runs the next scripted step (or the last one again).
class ScriptedBuilder final : public QueueJobBuilder {
public:
    using Step = std::function<Built(const QueueBuildOrder&, const CancellationToken&, const BuildUseCase::Sinks&)>;
    std::vector<Step> steps;
    std::atomic<int> calls{0};

    Built build(const QueueBuildOrder& order, std::shared_ptr<const CancellationToken> token, const BuildUseCase::Sinks& sinks) override
    {
        const int n = calls++;
        return steps[std::min<std::size_t>(static_cast<std::size_t>(n), steps.size() - 1)](order, *token, sinks);
    }

    static Step succeed()
    {
        return [](const QueueBuildOrder& order, const CancellationToken&, const BuildUseCase::Sinks&) {
            Fixtures::writeFile(order.outputPath, "book");
            return Built{order.outputPath, {order.outputPath}, {}};
        };
    }
    static Step fail(QueueBuildFailure failure)
    {
        return [failure](const QueueBuildOrder&, const CancellationToken&, const BuildUseCase::Sinks&) -> Built { throw failure; };
    }
};

class BookSource final : public QueueBookSource {
public:
    std::map<QUuid, QueueBuildInput> books;
    QueueBuildInput input(const QUuid& id) override
    {
        const auto it = books.find(id);
        if (it == books.end())
            throw QueueRunError::bookRemoved();
        return it->second;
    }
};

// Waits for the run to end while the main thread's event loop runs: a build
// in this process delivers its completion on the main thread, as in the
// desktop application.
void waitIdle(QueueService& service)
{
    while (service.isProcessing())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QCoreApplication::processEvents();
}

class QueueServiceTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString out() const { return dir.filePath(QStringLiteral("out")); }
    std::shared_ptr<QueueStore> store = std::make_shared<QueueStore>(dir.filePath(QStringLiteral("Queue")));
    void SetUp() override { QDir().mkpath(out()); }

    QueueService::Config fast() const
    {
        QueueService::Config c;
        c.retryPause = std::chrono::milliseconds(0);
        c.maxAutoRetries = 1;
        return c;
    }
};

} // namespace

TEST_F(QueueServiceTest, ThreeRealJobsRunInListOrderAndEveryoneHears)
{
    std::vector<QueueJob> jobs;
    for (int i = 1; i <= 3; ++i)
        jobs.push_back(jobFor(importTone(dir.filePath(QStringLiteral("in%1").arg(i)), QStringLiteral("Book %1").arg(i), 2, 300 + 100 * i), out()));
    store->save(jobs);

    auto service = std::make_shared<QueueService>(store, std::make_shared<InProcessJobBuilder>(), nullptr, fast());
    EventLog first;
    EventLog second;
    service->subscribe(std::ref(first));
    service->subscribe(std::ref(second));
    ASSERT_EQ(service->start(), QueueService::StartResult::started);
    EXPECT_EQ(service->start(), QueueService::StartResult::alreadyProcessing);
    waitIdle(*service);

    const auto done = service->jobs();
    ASSERT_EQ(done.size(), 3u);
    for (std::size_t i = 0; i < done.size(); ++i) {
        EXPECT_EQ(done[i].status, QueueJobStatus::completed) << done[i].lastErrorMessage().value_or(QString()).toStdString();
        ASSERT_EQ(done[i].attempts.size(), 1u);
        EXPECT_EQ(done[i].attempts[0].outcome->outputPath, done[i].plannedOutputPath());
        EXPECT_GT(Fixtures::decodedDuration(done[i].plannedOutputPath()), 1.9);
        if (i > 0) {
            EXPECT_GE(done[i].attempts[0].startedAt, *done[i - 1].attempts[0].endedAt);
        }
    }

    // Each job went running in list order; every subscriber heard the same.
    const auto events = first.all();
    EXPECT_EQ(events.size(), second.all().size());
    std::vector<QUuid> runningOrder;
    std::map<QUuid, std::pair<QString, double>> lastProgress;
    for (const QueueServiceEvent& e : events) {
        if (e.kind == QueueServiceEvent::Kind::stateChanged) {
            for (const QueueJob& j : e.jobs)
                if (j.status == QueueJobStatus::running && (runningOrder.empty() || runningOrder.back() != j.id))
                    runningOrder.push_back(j.id);
        } else if (e.kind == QueueServiceEvent::Kind::progress) {
            // Kept reports: a new phase, the end, or a step of half a percent.
            const auto it = lastProgress.find(e.jobID);
            if (it != lastProgress.end() && it->second.first == e.phase && e.fraction < 1.0) {
                EXPECT_GE(std::abs(e.fraction - it->second.second), 0.005 - 1e-9);
            }
            lastProgress[e.jobID] = {e.phase, e.fraction};
        }
    }
    EXPECT_EQ(runningOrder, (std::vector<QUuid>{jobs[0].id, jobs[1].id, jobs[2].id}));
    EXPECT_EQ(lastProgress.size(), 3u);
    ASSERT_EQ(events.back().kind, QueueServiceEvent::Kind::runFinished);
    EXPECT_EQ(events.back().summary, (QueueRunSummary{3, 0, 0, 0}));

    // The saved file agrees, and each attempt has its log.
    const auto loaded = store->load().jobs;
    ASSERT_EQ(loaded.size(), 3u);
    for (const QueueJob& j : loaded) {
        EXPECT_EQ(j.status, QueueJobStatus::completed);
        ASSERT_TRUE(j.attempts[0].logPath);
        const QString log = QString::fromUtf8(Fixtures::readFile(*j.attempts[0].logPath));
        EXPECT_TRUE(log.contains(QStringLiteral("✓ success"))) << log.toStdString();
        EXPECT_TRUE(log.contains(QStringLiteral("----- build log -----")));
    }
}

TEST_F(QueueServiceTest, ARemovedBookIsSkippedAndTheNextBookIsBuiltAndRecorded)
{
    auto books = std::make_shared<BookSource>();
    const QUuid gone = QUuid::createUuid();
    const QUuid kept = QUuid::createUuid();
    QueueBuildInput input;
    input.book = importTone(dir.filePath(QStringLiteral("kept")), QStringLiteral("Kept"), 2, 500);
    input.revision = 7;
    books->books[kept] = input;
    QueueJob a = test::sampleJob(QStringLiteral("Gone"), out());
    a.origin = QueueJobOrigin::book(gone);
    QueueJob b = test::sampleJob(QStringLiteral("Kept"), out());
    b.origin = QueueJobOrigin::book(kept);
    store->save({a, b});

    auto service = std::make_shared<QueueService>(store, std::make_shared<InProcessJobBuilder>(), books, fast());
    std::vector<std::pair<QUuid, int>> recorded;
    service->onBookBuilt = [&recorded](const QUuid& id, int revision, const QString&, const QStringList& files, const ExportSettings&) {
        EXPECT_EQ(files.size(), 1);
        recorded.emplace_back(id, revision);
    };
    ASSERT_EQ(service->start(), QueueService::StartResult::started);
    waitIdle(*service);
    const auto jobs = service->jobs();
    EXPECT_EQ(jobs[0].status, QueueJobStatus::skipped);
    EXPECT_EQ(jobs[0].lastErrorMessage(), QStringLiteral("Book was removed from the library."));
    EXPECT_EQ(jobs[1].status, QueueJobStatus::completed);
    EXPECT_EQ(recorded, (std::vector<std::pair<QUuid, int>>{{kept, 7}}));
    EXPECT_EQ(service->lastRunSummary(), (QueueRunSummary{1, 0, 1, 0}));
    EXPECT_FALSE(service->halt());
}

TEST_F(QueueServiceTest, CancellingTheRunningJobCountsOnceAsCancelled)
{
    QueueJob job = jobFor(importTone(dir.filePath(QStringLiteral("long")), QStringLiteral("Long"), 240, 440), out());
    QueueJob next = test::sampleJob(QStringLiteral("Next"), out());
    store->save({job, next});
    auto service = std::make_shared<QueueService>(store, std::make_shared<InProcessJobBuilder>(), nullptr, fast());
    std::atomic<bool> cancelled{false};
    service->subscribe([&](const QueueServiceEvent& e) {
        if (e.kind == QueueServiceEvent::Kind::progress && e.jobID == job.id && e.fraction > 0.02 && !cancelled.exchange(true)) {
            EXPECT_EQ(service->cancel(job.id), QueueService::CancelResult::cancelling);
            service->stopAfterCurrent();
        }
    });
    ASSERT_EQ(service->start(), QueueService::StartResult::started);
    waitIdle(*service);
    ASSERT_TRUE(cancelled);
    const auto jobs = service->jobs();
    EXPECT_EQ(jobs[0].status, QueueJobStatus::cancelled);
    ASSERT_EQ(jobs[0].attempts.size(), 1u);
    EXPECT_EQ(jobs[0].attempts[0].outcome->kind, JobAttempt::Outcome::Kind::cancelled);
    EXPECT_EQ(jobs[1].status, QueueJobStatus::pending); // stopped after the current job
    EXPECT_EQ(service->lastRunSummary(), (QueueRunSummary{0, 0, 0, 1}));
    EXPECT_FALSE(QFileInfo::exists(jobs[0].plannedOutputPath()));
    EXPECT_TRUE(QDir(out()).entryList(QDir::Files | QDir::Hidden).isEmpty());
}

TEST_F(QueueServiceTest, TheFailureTableDecidesTheJobAndTheQueue)
{
    std::vector<QueueJob> jobs;
    for (const char* t : {"Transient", "Permanent", "Full disk", "Waiting 1", "Waiting 2"})
        jobs.push_back(test::sampleJob(QString::fromLatin1(t), out()));
    store->save(jobs);
    // The tracks must be reachable for the build to be asked at all.
    for (QueueJob& j : jobs)
        Fixtures::writeFile(j.origin.candidate->book->tracks[0].url.toLocalFile(), "x");

    auto builder = std::make_shared<ScriptedBuilder>();
    using C = JobAttempt::ErrorClass;
    builder->steps = {ScriptedBuilder::fail(QueueBuildFailure::classified(C::transient, QStringLiteral("flaky"))),
                      ScriptedBuilder::fail(QueueBuildFailure::classified(C::transient, QStringLiteral("flaky again"))),
                      ScriptedBuilder::fail(QueueBuildFailure::classified(C::permanent, QStringLiteral("damaged source"))),
                      ScriptedBuilder::fail(QueueBuildFailure::classified(C::environment, QStringLiteral("No space left on device"),
                                                                          QueueHalt::Reason::outOfSpace)),
                      ScriptedBuilder::succeed()};
    {
        QueueService service(store, builder, nullptr, fast());
        EventLog events;
        service.subscribe(std::ref(events));
        ASSERT_EQ(service.start(), QueueService::StartResult::started);
        waitIdle(service);
        const auto after = service.jobs();
        // transient: one automatic retry (maxAutoRetries = 1), then failed.
        EXPECT_EQ(after[0].status, QueueJobStatus::failed);
        EXPECT_EQ(after[0].attempts.size(), 2u);
        EXPECT_EQ(after[0].attempts[1].outcome->errorClass, C::transient);
        EXPECT_EQ(after[1].status, QueueJobStatus::failed);
        EXPECT_EQ(after[1].attempts.size(), 1u);
        EXPECT_EQ(after[2].status, QueueJobStatus::failed);
        EXPECT_EQ(after[2].attempts[0].outcome->errorClass, C::environment);
        EXPECT_EQ(after[3].status, QueueJobStatus::pending);
        EXPECT_EQ(after[4].status, QueueJobStatus::pending);
        EXPECT_EQ(service.lastRunSummary(), (QueueRunSummary{0, 3, 0, 0}));
        ASSERT_TRUE(service.halt());
        EXPECT_EQ(service.halt()->reason, QueueHalt::Reason::outOfSpace);
        EXPECT_EQ(service.halt()->jobID, jobs[2].id);
        const auto all = events.all();
        EXPECT_EQ(std::count_if(all.begin(), all.end(), [](const QueueServiceEvent& e) { return e.kind == QueueServiceEvent::Kind::halted; }), 1);
        EXPECT_EQ(builder->calls, 4);
    }
    // The halt holds in a new service on the same queue (another process, a restart).
    QueueService again(store, builder, nullptr, fast());
    ASSERT_TRUE(again.halt());
    EXPECT_EQ(again.halt()->message, QueueHalt::text(QueueHalt::Reason::outOfSpace));
    QueueController controller(std::shared_ptr<QueueService>(&again, [](QueueService*) {}));
    EXPECT_FALSE(controller.start());
    EXPECT_EQ(again.start(), QueueService::StartResult::halted);
    EXPECT_THROW(again.retry(jobs[3].id), QueueError); // pending: nothing to retry
    again.retry(jobs[2].id);
    EXPECT_FALSE(again.halt());
    EXPECT_FALSE(QFileInfo::exists(store->baseURL() + QStringLiteral("/halt.json")));
    ASSERT_EQ(again.start(), QueueService::StartResult::started);
    waitIdle(again);
    const auto last = again.jobs();
    EXPECT_EQ(last[2].status, QueueJobStatus::completed);
    EXPECT_EQ(last[3].status, QueueJobStatus::completed);
    EXPECT_EQ(last[4].status, QueueJobStatus::completed);
    EXPECT_EQ(last[0].status, QueueJobStatus::failed); // not retried: left as it was
}

TEST_F(QueueServiceTest, DestinationAndSourcesThatAreGoneHaltTheQueue)
{
    QueueJob noDestination = test::sampleJob(QStringLiteral("Nowhere"), dir.filePath(QStringLiteral("unplugged")));
    QueueJob other = test::sampleJob(QStringLiteral("Other"), out());
    store->save({noDestination, other});
    auto builder = std::make_shared<ScriptedBuilder>();
    builder->steps = {ScriptedBuilder::succeed()};
    {
        QueueService service(store, builder, nullptr, fast());
        service.start();
        waitIdle(service);
        const auto jobs = service.jobs();
        EXPECT_EQ(jobs[0].status, QueueJobStatus::failed);
        EXPECT_EQ(jobs[0].lastErrorMessage(),
                  QStringLiteral("The destination folder is unavailable. Choose a new folder for the queue and retry."));
        EXPECT_EQ(jobs[1].status, QueueJobStatus::pending);
        ASSERT_TRUE(service.halt());
        EXPECT_EQ(service.halt()->message, QStringLiteral("Folivox can't save into “unplugged” — queue paused."));
        EXPECT_EQ(builder->calls, 0);
        service.retry(jobs[0].id);
        service.remove(jobs[0].id);
        EXPECT_THROW(service.retry(jobs[0].id), QueueError);

        // The other job's audio is not there (its volume is gone): halted again.
        ASSERT_EQ(service.start(), QueueService::StartResult::started);
        waitIdle(service);
        const auto after = service.jobs();
        ASSERT_EQ(after.size(), 1u);
        EXPECT_EQ(after[0].status, QueueJobStatus::failed);
        EXPECT_EQ(after[0].attempts[0].outcome->errorClass, JobAttempt::ErrorClass::sourcesUnavailable);
        EXPECT_EQ(after[0].lastErrorMessage(), QStringLiteral("Source files could not be opened."));
        ASSERT_TRUE(service.halt());
        EXPECT_EQ(service.halt()->reason, QueueHalt::Reason::sourcesLost);
        EXPECT_EQ(builder->calls, 0);
    }
}

TEST_F(QueueServiceTest, InterruptedJobsWaitForResumeAndKeepTheirAttempts)
{
    QueueJob interrupted = test::sampleJob(QStringLiteral("Interrupted"), out());
    interrupted.status = QueueJobStatus::running; // as a killed run left it
    interrupted.attempts.push_back(JobAttempt{QUuid::createUuid(), QDateTime::currentDateTimeUtc(), std::nullopt, std::nullopt, std::nullopt});
    QueueJob later = test::sampleJob(QStringLiteral("Later"), out());
    store->save({interrupted, later});
    for (const QueueJob& j : {interrupted, later})
        Fixtures::writeFile(j.origin.candidate->book->tracks[0].url.toLocalFile(), "x");
    auto builder = std::make_shared<ScriptedBuilder>();
    builder->steps = {ScriptedBuilder::succeed()};
    QueueService service(store, builder, nullptr, fast());
    ASSERT_EQ(service.jobs()[0].status, QueueJobStatus::interrupted);
    ASSERT_EQ(service.start(), QueueService::StartResult::started);
    waitIdle(service);
    EXPECT_EQ(service.jobs()[0].status, QueueJobStatus::interrupted); // not restarted by itself
    EXPECT_EQ(service.jobs()[1].status, QueueJobStatus::completed);
    EXPECT_EQ(service.start(), QueueService::StartResult::nothingToRun);

    EXPECT_EQ(service.resume(), 1);
    waitIdle(service);
    const QueueJob resumed = service.jobs()[0];
    EXPECT_EQ(resumed.status, QueueJobStatus::completed);
    ASSERT_EQ(resumed.attempts.size(), 2u);
    EXPECT_FALSE(resumed.attempts[0].outcome); // the interrupted attempt stays as it was
    EXPECT_EQ(resumed.attempts[1].outcome->kind, JobAttempt::Outcome::Kind::success);
    EXPECT_EQ(service.resume(), 0);
}

TEST_F(QueueServiceTest, PendingJobsCancelAndARemovedRunningJobVanishes)
{
    std::vector<QueueJob> jobs;
    for (const char* t : {"Removed while running", "Cancelled while waiting", "Built"})
        jobs.push_back(test::sampleJob(QString::fromLatin1(t), out()));
    store->save(jobs);
    for (const QueueJob& j : jobs)
        Fixtures::writeFile(j.origin.candidate->book->tracks[0].url.toLocalFile(), "x");
    auto builder = std::make_shared<ScriptedBuilder>();
    std::atomic<bool> inBuild{false};
    builder->steps = {[&inBuild](const QueueBuildOrder&, const CancellationToken& token, const BuildUseCase::Sinks&) -> QueueJobBuilder::Built {
                          inBuild = true;
                          while (!token.isCancelled())
                              QThread::msleep(5);
                          throw QueueBuildFailure::cancellation();
                      },
                      ScriptedBuilder::succeed()};
    QueueService service(store, builder, nullptr, fast());
    EXPECT_EQ(service.cancel(jobs[1].id), QueueService::CancelResult::cancelled);
    EXPECT_THROW(service.cancel(jobs[1].id), QueueError); // already ended
    ASSERT_EQ(service.start(), QueueService::StartResult::started);
    while (!inBuild)
        QThread::msleep(5);
    service.remove(jobs[0].id);
    waitIdle(service);
    const auto after = service.jobs();
    ASSERT_EQ(after.size(), 2u);
    EXPECT_EQ(after[0].status, QueueJobStatus::cancelled);
    EXPECT_TRUE(after[0].attempts.empty());
    EXPECT_EQ(after[1].status, QueueJobStatus::completed);
    EXPECT_EQ(service.lastRunSummary(), (QueueRunSummary{1, 0, 0, 0}));
    EXPECT_FALSE(QFileInfo::exists(store->jobFolder(jobs[0].id)));
    EXPECT_EQ(store->load().jobs.size(), 2u);
}

TEST_F(QueueServiceTest, OneSaveEndsAJobAndStartsTheNextAndAStopOrCancelBetweenThemIsHonoured)
{
    const auto makeJobs = [this](const QString& prefix) {
        std::vector<QueueJob> jobs;
        for (int i = 1; i <= 3; ++i)
            jobs.push_back(test::sampleJob(QStringLiteral("%1 %2").arg(prefix).arg(i), out()));
        for (const QueueJob& j : jobs)
            Fixtures::writeFile(j.origin.candidate->book->tracks[0].url.toLocalFile(), "x");
        return jobs;
    };
    const auto statusOnDisk = [this](const QUuid& id) {
        for (const QueueJob& j : store->load().jobs)
            if (j.id == id)
                return j;
        ADD_FAILURE() << "not in the file";
        return QueueJob();
    };

    // Three jobs, four saves: the start of the first, then one per job that
    // records its end and the start of the next. While the second builds,
    // the file already holds the first job's end, its log and the second
    // job's start.
    {
        const std::vector<QueueJob> jobs = makeJobs(QStringLiteral("Saved"));
        store->save(jobs);
        auto builder = std::make_shared<ScriptedBuilder>();
        std::optional<QueueJob> firstDuringSecond;
        std::optional<QueueJob> secondDuringSecond;
        builder->steps = {ScriptedBuilder::succeed(),
                          [&](const QueueBuildOrder& order, const CancellationToken& t, const BuildUseCase::Sinks& s) {
                              firstDuringSecond = statusOnDisk(jobs[0].id);
                              secondDuringSecond = statusOnDisk(jobs[1].id);
                              return ScriptedBuilder::succeed()(order, t, s);
                          },
                          ScriptedBuilder::succeed()};
        std::atomic<int> saves{0};
        FaultInjection::Scope counting([&saves](const QString& point) {
            if (point == u"queue.save.replaced")
                ++saves;
        });
        QueueService service(store, builder, nullptr, fast());
        ASSERT_EQ(service.start(), QueueService::StartResult::started);
        waitIdle(service);
        EXPECT_EQ(saves, 4);
        EXPECT_EQ(service.lastRunSummary(), (QueueRunSummary{3, 0, 0, 0}));
        ASSERT_TRUE(firstDuringSecond && secondDuringSecond);
        EXPECT_EQ(firstDuringSecond->status, QueueJobStatus::completed);
        ASSERT_EQ(firstDuringSecond->attempts.size(), 1u);
        EXPECT_TRUE(firstDuringSecond->attempts[0].endedAt);
        ASSERT_TRUE(firstDuringSecond->attempts[0].logPath);
        EXPECT_TRUE(Fixtures::readFile(*firstDuringSecond->attempts[0].logPath).contains("success"));
        EXPECT_EQ(secondDuringSecond->status, QueueJobStatus::interrupted); // running, as a restart would read it
        EXPECT_EQ(secondDuringSecond->attempts.size(), 1u);
    }

    // A stop that arrives just after that save: the next job has not built
    // anything, so it waits again as it was, without an attempt.
    {
        const std::vector<QueueJob> jobs = makeJobs(QStringLiteral("Stopped"));
        store->save(jobs);
        auto builder = std::make_shared<ScriptedBuilder>();
        builder->steps = {ScriptedBuilder::succeed()};
        QueueService service(store, builder, nullptr, fast());
        service.subscribe([&](const QueueServiceEvent& e) {
            if (e.kind == QueueServiceEvent::Kind::stateChanged && e.jobs.size() == 3 && e.jobs[0].status == QueueJobStatus::completed
                && e.jobs[1].status == QueueJobStatus::running)
                service.stopAfterCurrent();
        });
        ASSERT_EQ(service.start(), QueueService::StartResult::started);
        waitIdle(service);
        EXPECT_EQ(builder->calls, 1);
        EXPECT_EQ(service.lastRunSummary(), (QueueRunSummary{1, 0, 0, 0}));
        const QueueJob second = statusOnDisk(jobs[1].id);
        EXPECT_EQ(second.status, QueueJobStatus::pending);
        EXPECT_TRUE(second.attempts.empty());
        EXPECT_EQ(service.jobs()[1].status, QueueJobStatus::pending);
        EXPECT_FALSE(service.currentJobID());
    }

    // A cancel of the next job in that instant: it ends cancelled without a
    // build, and the run goes on with the third.
    {
        const std::vector<QueueJob> jobs = makeJobs(QStringLiteral("Cancelled"));
        store->save(jobs);
        auto builder = std::make_shared<ScriptedBuilder>();
        builder->steps = {ScriptedBuilder::succeed()};
        QueueService service(store, builder, nullptr, fast());
        std::atomic<bool> asked{false};
        service.subscribe([&](const QueueServiceEvent& e) {
            if (e.kind == QueueServiceEvent::Kind::stateChanged && e.jobs.size() == 3 && e.jobs[1].status == QueueJobStatus::running
                && !asked.exchange(true)) {
                EXPECT_EQ(service.cancel(jobs[1].id), QueueService::CancelResult::cancelling);
            }
        });
        ASSERT_EQ(service.start(), QueueService::StartResult::started);
        waitIdle(service);
        EXPECT_EQ(builder->calls, 2);
        EXPECT_EQ(service.lastRunSummary(), (QueueRunSummary{2, 0, 0, 1}));
        const auto after = service.jobs();
        EXPECT_EQ(after[1].status, QueueJobStatus::cancelled);
        EXPECT_EQ(after[2].status, QueueJobStatus::completed);
        EXPECT_EQ(statusOnDisk(jobs[1].id).status, QueueJobStatus::cancelled);
    }
}
