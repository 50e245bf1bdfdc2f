// Sources that open and report a length but whose audio a build can't read,
// and files the user can't read at all: the import refuses each by its name
// with the reason and what to do, instead of a build failing later on a work
// file ("segment_000.m4a") or blaming a tool. Every file here is real: made
// by ffmpeg, then edited byte by byte where the fault is in the container.
#include "AudioFixtures.h"
#include "FolivoxCli.h"

#include "process/FFmpegWrapper.h"
#include "import/probe/AudioMetadataService.h"
#include "import/ImportCoordinator.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace folivox;
using namespace folivox::test;
using Reason = TrackLoadOutcome::FailureReason;

namespace {

std::uint32_t be32(const QByteArray& b, qsizetype at)
{
    return (std::uint32_t(std::uint8_t(b[at])) << 24) | (std::uint32_t(std::uint8_t(b[at + 1])) << 16)
        | (std::uint32_t(std::uint8_t(b[at + 2])) << 8) | std::uint32_t(std::uint8_t(b[at + 3]));
}

// Offset and size of the first top-level box of a type; {-1, 0} when none.
std::pair<qsizetype, qsizetype> topLevelBox(const QByteArray& b, const char* type)
{
    qsizetype at = 0;
    while (at + 8 <= b.size()) {
        const qsizetype size = be32(b, at);
        if (b.mid(at + 4, 4) == type)
            return {at, size};
        if (size < 8)
            break;
        at += size;
    }
    return {-1, 0};
}

// Writes the bad sources into dir; each name says what is wrong with it.
class BadSources {
public:
    explicit BadSources(const QString& dir)
        : dir_(dir)
    {
    }

    QString path(const QString& name) const { return dir_ + u'/' + name; }

    bool make()
    {
        // A self-contained M4B with its moov in front of the media.
        if (!Fixtures::tone(path("good.m4b"), 20.0, {"-c:a", "aac", "-b:a", "64k", "-movflags", "+faststart", "-f", "ipod"}))
            return false;
        const QByteArray good = Fixtures::readFile(path("good.m4b"));
        const auto [mdat, mdatSize] = topLevelBox(good, "mdat");
        EXPECT_GT(mdat, 0);
        if (mdat <= 0)
            return false;

        // A reference movie: the moov alone, its data reference not marked
        // self-contained (the media would be in another file).
        QByteArray external = good.left(mdat);
        const qsizetype url = external.indexOf("url ");
        EXPECT_GT(url, 0);
        external.replace(url + 4, 4, QByteArray(4, '\0'));

        // A copy cut short: a tenth of the media is there.
        const QByteArray truncated = good.left(mdat + mdatSize / 10);

        // A codec nothing decodes: an unknown sample entry and an object type
        // from the private range.
        QByteArray undecodable = good;
        const qsizetype stsd = undecodable.indexOf("stsd");
        EXPECT_EQ(undecodable.mid(stsd + 16, 4), QByteArray("mp4a"));
        undecodable.replace(stsd + 16, 4, "zzzz");
        const qsizetype decoderConfig = undecodable.indexOf(QByteArray::fromHex("0480808017"), undecodable.indexOf("esds"));
        EXPECT_GT(decoderConfig, 0);
        EXPECT_EQ(std::uint8_t(undecodable[decoderConfig + 5]), 0x40);  // MPEG-4 audio
        undecodable[decoderConfig + 5] = char(0xC0);

        // A movie whose audio track lists no samples, beside a video track
        // that gives the file its length.
        if (!Fixtures::ffmpeg({"-f", "lavfi", "-i", "testsrc=d=5:s=64x64:r=10", "-f", "lavfi", "-i", "sine=d=5", "-c:v",
                               "mpeg4", "-c:a", "aac", "-movflags", "+faststart", path("movie.mp4")}))
            return false;
        QByteArray emptyAudio = Fixtures::readFile(path("movie.mp4"));
        const qsizetype sound = emptyAudio.indexOf("soun");
        const qsizetype stsz = emptyAudio.indexOf("stsz", sound);
        const qsizetype stts = emptyAudio.indexOf("stts", sound);
        EXPECT_GT(sound, 0);
        EXPECT_GT(stsz, sound);
        emptyAudio.replace(stsz + 12, 4, QByteArray(4, '\0'));  // sample count
        emptyAudio.replace(stts + 8, 4, QByteArray(4, '\0'));   // entry count

        return Fixtures::writeFile(path("external.m4b"), external) && Fixtures::writeFile(path("truncated.m4b"), truncated)
            && Fixtures::writeFile(path("undecodable.m4b"), undecodable)
            && Fixtures::writeFile(path("emptyaudio.m4a"), emptyAudio)
            && Fixtures::writeFile(path("emptyaudio.mp4"), emptyAudio)
            && ::mkfifo(QFile::encodeName(path("pipe.mp3")).constData(), 0644) == 0;
    }

private:
    QString dir_;
};

class UnusableSourcesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(shared.isValid());
        ASSERT_TRUE(sources.make());
    }
    SharedTestFolder shared;
    BadSources sources{shared.path(QStringLiteral("in"))};
};

} // namespace

TEST_F(UnusableSourcesTest, LoadingRefusesEachWithItsOwnReason)
{
    AudioMetadataService service(std::make_shared<FFmpegWrapper>());
    const QStringList names{"good.m4b", "external.m4b", "truncated.m4b", "undecodable.m4b", "emptyaudio.m4a", "pipe.mp3"};
    QList<QUrl> urls;
    for (const QString& n : names)
        urls << QUrl::fromLocalFile(sources.path(n));
    const TrackLoadOutcome outcome = service.load(urls);

    ASSERT_EQ(outcome.tracks.size(), 1u);
    EXPECT_EQ(outcome.tracks[0].url, urls[0]);
    const std::vector<TrackLoadOutcome::UnreadableFile> expected{
        {urls[1], Reason::externalMedia}, {urls[2], Reason::incompleteFile}, {urls[3], Reason::undecodableAudio},
        {urls[4], Reason::zeroDuration},  {urls[5], Reason::notRegularFile},
    };
    EXPECT_EQ(outcome.unreadableFiles, expected);
    for (const auto& f : outcome.unreadableFiles) {
        const QString text = TrackLoadOutcome::reasonText(f.reason);
        EXPECT_FALSE(text.contains(QStringLiteral("may be damaged"))) << text.toStdString();
    }
}

TEST_F(UnusableSourcesTest, ABuildFromThemFailsAtImportNamingTheUsersFile)
{
    struct Case {
        const char* file;
        Reason reason;
    };
    for (const Case& c : {Case{"external.m4b", Reason::externalMedia}, Case{"truncated.m4b", Reason::incompleteFile},
                          Case{"undecodable.m4b", Reason::undecodableAudio}, Case{"emptyaudio.m4a", Reason::zeroDuration},
                          Case{"pipe.mp3", Reason::notRegularFile}}) {
        SCOPED_TRACE(c.file);
        for (const char* passthrough : {"auto", "disabled"}) {
            CliOptions options = shared.options(false);
            options.timeoutMs = 60'000;
            const CliRun r = runFolivox({"build", "--quiet", "--passthrough", passthrough, "-o",
                                         shared.path("out/book.m4b"), sources.path(c.file)},
                                        options);
            ASSERT_TRUE(r.finished);
            EXPECT_EQ(r.exitCode, 1);
            EXPECT_TRUE(r.err.contains(QString::fromLatin1(c.file))) << r.err.toStdString();
            EXPECT_TRUE(r.err.contains(TrackLoadOutcome::reasonText(c.reason))) << r.err.toStdString();
            for (const char* internal : {"segment_", "mp4tags", "mp4chaps", "FolivoxWork"})
                EXPECT_FALSE(r.err.contains(QString::fromLatin1(internal))) << r.err.toStdString();
            EXPECT_FALSE(QFileInfo::exists(shared.path("out/book.m4b")));
        }
    }

    // A video whose audio track is empty: the user is told about the video,
    // never about the audio Folivox took out of it.
    const CliRun video = runFolivox({"build", "--quiet", "-o", shared.path("out/book.m4b"), sources.path("emptyaudio.mp4")},
                                    shared.options(false));
    EXPECT_EQ(video.exitCode, 1);
    EXPECT_TRUE(video.err.contains(QStringLiteral("emptyaudio.mp4"))) << video.err.toStdString();
    EXPECT_FALSE(video.err.contains(QStringLiteral("emptyaudio.m4a"))) << video.err.toStdString();
}

TEST_F(UnusableSourcesTest, FilesAndFoldersTheUserCantReadSayPermissionDenied)
{
    // Run unprivileged: root would read them whatever their mode.
    const QString folder = shared.path("locked");
    ASSERT_TRUE(QDir().mkpath(folder));
    ASSERT_TRUE(Fixtures::tone(folder + "/01.mp3", 2.0));
    ASSERT_TRUE(Fixtures::tone(shared.path("in/secret.mp3"), 2.0));
    ASSERT_EQ(::chmod(QFile::encodeName(folder).constData(), 0), 0);
    ASSERT_EQ(::chmod(QFile::encodeName(shared.path("in/secret.mp3")).constData(), 0), 0);

    const QString denied = TrackLoadOutcome::reasonText(Reason::permissionDenied);
    for (const QString& input : {folder, shared.path("in/secret.mp3")}) {
        SCOPED_TRACE(input.toStdString());
        const CliRun r = runFolivox({"build", "--quiet", "-o", shared.path("out/book.m4b"), input}, shared.options(true));
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_TRUE(r.err.contains(QFileInfo(input).fileName())) << r.err.toStdString();
        EXPECT_TRUE(r.err.contains(denied)) << r.err.toStdString();
        EXPECT_FALSE(r.err.contains(QStringLiteral("may be damaged"))) << r.err.toStdString();
    }
    ::chmod(QFile::encodeName(folder).constData(), 0755);
}

TEST_F(UnusableSourcesTest, APictureNamedM4BInAFolderIsNamedInTheRefusal)
{
    const QString book = shared.path("book");
    ASSERT_TRUE(QDir().mkpath(book + "/art"));
    ASSERT_TRUE(Fixtures::tone(book + "/01.mp3", 2.0));
    ASSERT_TRUE(Fixtures::ffmpeg({"-f", "lavfi", "-i", "color=c=red:s=64x64", "-frames:v", "1", shared.path("cover.jpg")}));
    ASSERT_TRUE(QFile::copy(shared.path("cover.jpg"), book + "/art/cover.m4b"));

    ImportCoordinator coordinator;
    const ImportResult result = coordinator.import({QUrl::fromLocalFile(book)});
    ASSERT_EQ(result.status, ImportResult::Status::refused);
    ASSERT_TRUE(result.alert);
    EXPECT_TRUE(result.alert->message.contains(QStringLiteral("book/art/cover.m4b is not an M4B audiobook at all")))
        << result.alert->message.toStdString();
    EXPECT_TRUE(coordinator.bookTracks().empty());
}
