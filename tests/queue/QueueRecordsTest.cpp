// The queue's records in their saved form: keys, shapes and order.
#include "queue/QueueTestSupport.h"

#include "core/json/JsonReader.h"
#include "queue/records/JobAttempt.h"
#include "queue/records/OutputOrganization.h"
#include "queue/store/QueueFile.h"
#include "queue/records/QueueHalt.h"
#include "queue/records/QueueJob.h"
#include "queue/records/QueueJobStatus.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

using namespace folivox;

namespace {

QStringList keysOf(const QJsonObject& o)
{
    QStringList keys = o.keys();
    keys.sort();
    return keys;
}

} // namespace

TEST(QueueRecords, JobSavesEveryCodingKeyAndNeverTheLiveProgress)
{
    QueueJob job = test::sampleJob(QStringLiteral("Dune"));
    job.displayAuthor = QStringLiteral("Frank Herbert");
    job.coverThumbnailData = QByteArray("thumb");
    job.outputBookmarkData = QByteArray("bookmark");
    job.forcedOutputFormat = OutputFormat::m4b;
    job.progress = 0.42;
    job.progressPhase = QStringLiteral("Encoding audio…");
    job.attempts.push_back(JobAttempt{QUuid::createUuid(), QDateTime::currentDateTimeUtc(), std::nullopt, std::nullopt, std::nullopt});

    const QJsonObject json = job.toJson();
    QStringList expected;
    for (const char* key : QueueJob::kCodingKeys)
        expected << QString::fromLatin1(key);
    EXPECT_EQ(expected.first(), QStringLiteral("id"));
    EXPECT_EQ(expected.last(), QStringLiteral("plannedBasename"));
    EXPECT_EQ(expected.indexOf(QStringLiteral("status")) + 2, expected.indexOf(QStringLiteral("organizationIsPinned")));
    expected.sort();
    EXPECT_EQ(keysOf(json), expected);
    EXPECT_FALSE(json.contains(QStringLiteral("progress")));
    EXPECT_FALSE(json.contains(QStringLiteral("progressPhase")));

    const QueueJob back = QueueJob::fromJson(json);
    EXPECT_EQ(back.id, job.id);
    EXPECT_EQ(back.displayAuthor, job.displayAuthor);
    EXPECT_EQ(back.coverThumbnailData, job.coverThumbnailData);
    EXPECT_EQ(back.attempts, job.attempts);
    EXPECT_EQ(back.progress, 0);
    EXPECT_FALSE(back.progressPhase);
    EXPECT_EQ(back.plannedOutputPath(), QStringLiteral("/tmp/out/Dune.m4b"));
    EXPECT_EQ(back.origin.candidate->book->tracks.size(), 1u);

    // An empty optional is left out, never null.
    QueueJob bare = test::sampleJob(QStringLiteral("Bare"));
    bare.plannedBasename.reset();
    const QJsonObject bareJson = bare.toJson();
    for (const char* key : {"displayAuthor", "coverThumbnailData", "outputBookmarkData", "forcedOutputFormat", "plannedBasename"})
        EXPECT_FALSE(bareJson.contains(QLatin1String(key))) << key;
}

TEST(QueueRecords, OriginHasItsTwoShapes)
{
    const QUuid id = QUuid::createUuid();
    const QJsonObject book = QueueJobOrigin::book(id).toJson();
    EXPECT_EQ(keysOf(book), QStringList{QStringLiteral("book")});
    EXPECT_EQ(keysOf(book.value(QStringLiteral("book")).toObject()), QStringList{QStringLiteral("id")});
    EXPECT_EQ(QueueJobOrigin::fromJson(book).bookID, id);

    const QJsonObject candidate = test::sampleJob(QStringLiteral("X")).origin.toJson();
    EXPECT_EQ(keysOf(candidate), QStringList{QStringLiteral("candidate")});
    const QJsonObject inner = candidate.value(QStringLiteral("candidate")).toObject();
    EXPECT_EQ(keysOf(inner), QStringList{QStringLiteral("_0")});
    EXPECT_TRUE(inner.value(QStringLiteral("_0")).toObject().contains(QStringLiteral("book")));
    EXPECT_FALSE(QueueJobOrigin::fromJson(candidate).isBook());

    EXPECT_THROW(QueueJobOrigin::fromJson(QJsonObject{{QStringLiteral("other"), QJsonObject()}}), DecodingError);
}

TEST(QueueRecords, AttemptOutcomesAndErrorClasses)
{
    const QJsonObject success = JobAttempt::Outcome::success(QStringLiteral("/b.m4b")).toJson();
    EXPECT_EQ(success.value(QStringLiteral("success")).toObject().value(QStringLiteral("outputPath")).toString(), QStringLiteral("/b.m4b"));
    const QJsonObject failure = JobAttempt::Outcome::failure(JobAttempt::ErrorClass::environment, QStringLiteral("full")).toJson();
    const QJsonObject f = failure.value(QStringLiteral("failure")).toObject();
    EXPECT_EQ(keysOf(f), (QStringList{QStringLiteral("class"), QStringLiteral("message")}));
    EXPECT_EQ(f.value(QStringLiteral("class")).toString(), QStringLiteral("environment"));
    const QJsonObject cancelled = JobAttempt::Outcome::cancelled().toJson();
    EXPECT_EQ(keysOf(cancelled), QStringList{QStringLiteral("cancelled")});
    EXPECT_TRUE(cancelled.value(QStringLiteral("cancelled")).toObject().isEmpty());
    for (const QJsonObject& o : {success, failure, cancelled})
        EXPECT_EQ(JobAttempt::Outcome::fromJson(o).toJson(), o);

    const auto classes = enumCases<JobAttempt::ErrorClass>();
    QStringList names;
    for (auto c : classes)
        names << enumName(c);
    EXPECT_EQ(names, (QStringList{"licenseBlock", "environment", "sourcesUnavailable", "permanent", "transient"}));

    QStringList statuses;
    for (auto s : enumCases<QueueJobStatus>())
        statuses << QueueJobStatusLabel::key(s);
    EXPECT_EQ(statuses, (QStringList{"queue.status.pending", "queue.status.running", "queue.status.completed", "queue.status.failed",
                                     "queue.status.cancelled", "queue.status.interrupted", "queue.status.skipped"}));
}

TEST(QueueRecords, QueueFileAndHaltKeys)
{
    const QJsonObject file = QueueFile{1, {test::sampleJob(QStringLiteral("A"))}}.toJson();
    EXPECT_EQ(keysOf(file), (QStringList{QStringLiteral("jobs"), QStringLiteral("schemaVersion")}));
    EXPECT_EQ(file.value(QStringLiteral("schemaVersion")).toInt(), 1);

    EXPECT_EQ(QueueHalt::key(QueueHalt::Reason::outOfSpace), QStringLiteral("queue.halt.outOfSpace"));
    EXPECT_EQ(QueueHalt::key(QueueHalt::Reason::readOnlyVolume), QStringLiteral("queue.halt.readOnlyVolume"));
    EXPECT_EQ(QueueHalt::text(QueueHalt::Reason::destination, QStringLiteral("Books")),
              QStringLiteral("Folivox can't save into “Books” — queue paused."));
    const QueueHalt halt = QueueHalt::make(QueueHalt::Reason::sourcesLost, {}, QUuid::createUuid());
    const QueueHalt back = QueueHalt::fromJson(halt.toJson());
    EXPECT_EQ(back.reason, QueueHalt::Reason::sourcesLost);
    EXPECT_EQ(back.message, halt.message);
    EXPECT_EQ(back.jobID, halt.jobID);
}

TEST(QueueRecords, OrganizationFillsFoldersAndLeavesOutEmptyOnes)
{
    OrganizationContext c;
    c.title = QStringLiteral("A Wizard of Earthsea");
    c.author = QStringLiteral("Ursula K. Le Guin");
    c.series = QStringLiteral("Earthsea");
    c.seriesIndex = QStringLiteral("1");
    const OutputOrganization org{QStringLiteral("{author}/{series} {seriesIndex}/{title}")};
    EXPECT_EQ(org.folderFor(c), QStringLiteral("Ursula K. Le Guin/Earthsea 1/A Wizard of Earthsea"));
    EXPECT_TRUE(org.unknownPlaceholders().isEmpty());

    OrganizationContext noSeries = c;
    noSeries.series.reset();
    noSeries.seriesIndex.reset();
    EXPECT_EQ(org.folderFor(noSeries), QStringLiteral("Ursula K. Le Guin/A Wizard of Earthsea"));

    // Separators and leading dots in values never make new folders or climb out.
    OrganizationContext hostile;
    hostile.title = QStringLiteral("../../etc");
    hostile.author = QStringLiteral("AC/DC");
    EXPECT_EQ(OutputOrganization{QStringLiteral("{author}/{title}")}.folderFor(hostile), QStringLiteral("AC_DC/_.._etc"));

    EXPECT_EQ(OutputOrganization{QStringLiteral("{author}/{publisher}/{titel}")}.unknownPlaceholders(),
              (QStringList{QStringLiteral("publisher"), QStringLiteral("titel")}));
    EXPECT_TRUE(OutputOrganization{}.folderFor(c).isEmpty());

    QueueJob job = test::sampleJob(QStringLiteral("Book"), QStringLiteral("/media/out"));
    job.organization = org;
    job.organizationContext = c;
    EXPECT_EQ(job.plannedOutputPath(), QStringLiteral("/media/out/Ursula K. Le Guin/Earthsea 1/A Wizard of Earthsea/Book.m4b"));
}
