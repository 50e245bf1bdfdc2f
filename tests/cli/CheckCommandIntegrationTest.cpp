// `folivox check` run as a child process on MP3s made by ffmpeg and damaged
// by the test.
#include "container/mp3/Mp3TestFiles.h"
#include "support/Fixtures.h"

#include "support/CommandRunner.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using folivox::test::Fixtures;
using folivox::test::Mp3TestFiles;

using folivox::test::CommandRun;
using folivox::test::CommandRunner;

namespace {

CommandRun runFolivoxHere(const QStringList& args)
{
    return CommandRunner::run(args, QDir::tempPath());
}

QByteArray md5(const QString& path)
{
    return QCryptographicHash::hash(Fixtures::readFile(path), QCryptographicHash::Md5);
}

// The bytes of the audio frames of a file (its Info frame left out).
QByteArray audioFrames(const QByteArray& bytes)
{
    const auto frames = Mp3TestFiles::frames(bytes);
    if (frames.size() < 2)
        return {};
    const auto& last = frames.back();
    return bytes.mid(frames[1].offset, last.offset + last.length - frames[1].offset);
}

class CheckCommandIntegrationTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        clean_ = Mp3TestFiles::make(path("src/clean.mp3"), 20.0, {"-b:a", "96k", "-metadata", "title=Chapter One"});
        frames_ = Mp3TestFiles::frames(clean_);
        ASSERT_GT(frames_.size(), 700u);
    }
    QString path(const QString& name) const { return dir_.filePath(name); }

    // The clean file with a 40000-byte hole at frame 300 (about 3.3 s).
    QByteArray damaged() const
    {
        QByteArray bytes = clean_;
        bytes.insert(frames_[300].offset, Mp3TestFiles::garbage(40000, 9));
        return bytes;
    }

    QTemporaryDir dir_;
    QByteArray clean_;
    std::vector<Mp3TestFiles::Frame> frames_;
};

} // namespace

TEST_F(CheckCommandIntegrationTest, VerdictsHolesAndExitStatus)
{
    ASSERT_TRUE(Fixtures::writeFile(path("book/01 clean.mp3"), clean_));
    ASSERT_TRUE(Fixtures::writeFile(path("book/02 damaged.mp3"), damaged()));

    CommandRun r = runFolivoxHere({"check", "--json", "-q", path("book")});
    EXPECT_EQ(r.exitCode, 3) << r.err.toStdString();
    QJsonObject doc = r.json();
    QJsonArray files = doc["files"].toArray();
    ASSERT_EQ(files.size(), 2);
    EXPECT_EQ(files[0].toObject()["verdict"].toString(), "clean");
    EXPECT_TRUE(files[0].toObject()["holes"].toArray().isEmpty());
    const QJsonObject bad = files[1].toObject();
    EXPECT_EQ(bad["verdict"].toString(), "damaged");
    ASSERT_EQ(bad["holes"].toArray().size(), 1);
    const QJsonObject hole = bad["holes"].toArray()[0].toObject();
    EXPECT_EQ(hole["byteOffset"].toInteger(), frames_[300].offset);
    EXPECT_EQ(hole["byteLength"].toInteger(), 40000);
    EXPECT_NEAR(hole["startTime"].toDouble(), 299 * 1152.0 / 44100, 1e-9);
    EXPECT_GT(hole["missingSeconds"].toDouble(), 3.0);
    EXPECT_EQ(bad["claimedBy"].toString(), "Xing header");
    EXPECT_EQ(doc["summary"].toObject()["damaged"].toInt(), 1);
    EXPECT_EQ(doc["summary"].toObject()["exitStatus"].toInt(), 3);

    // Text: a line per hole and the summary.
    r = runFolivoxHere({"check", "-q", path("book/02 damaged.mp3")});
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_TRUE(r.out.contains(QStringLiteral("hole 1: byte %1, 40000 bytes, at 00:00:07.811").arg(frames_[300].offset).toUtf8()))
        << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("1 file: 0 clean, 1 damaged, 0 could not be checked")) << r.out.toStdString();

    // All clean: 0. A file without frames or a missing one: 1, named.
    EXPECT_EQ(runFolivoxHere({"check", "-q", path("book/01 clean.mp3")}).exitCode, 0);
    ASSERT_TRUE(Fixtures::writeFile(path("tag-only.mp3"), clean_.left(frames_[0].offset)));
    r = runFolivoxHere({"check", "-q", path("book"), path("tag-only.mp3"), path("gone.mp3")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.contains("tag-only.mp3: unknown")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("gone.mp3: could not be checked")) << r.out.toStdString();
    EXPECT_EQ(runFolivoxHere({"check"}).exitCode, 2);
    EXPECT_EQ(runFolivoxHere({"check", "--bogus", path("book")}).exitCode, 2);
}

TEST_F(CheckCommandIntegrationTest, RepairCopiesTheValidFramesAndLeavesTheSourceAlone)
{
    const QByteArray bytes = damaged() + QByteArray("TAG") + QByteArray(125, ' ');
    ASSERT_TRUE(Fixtures::writeFile(path("in/book.mp3"), bytes));
    const QByteArray before = md5(path("in/book.mp3"));

    CommandRun r = runFolivoxHere({"check", "--json", "-q", "--repair", path("out"), path("in/book.mp3")});
    EXPECT_EQ(r.exitCode, 3) << r.err.toStdString();
    const QJsonObject repair = r.json()["files"].toArray()[0].toObject()["repair"].toObject();
    EXPECT_EQ(repair["method"].toString(), "frameCopy") << r.out.toStdString();
    EXPECT_EQ(md5(path("in/book.mp3")), before);

    const QByteArray copy = Fixtures::readFile(path("out/book.mp3"));
    EXPECT_EQ(repair["bytes"].toInteger(), copy.size());
    // Tags kept at both ends; every audio frame exactly as in the undamaged file.
    EXPECT_EQ(copy.left(frames_[0].offset), clean_.left(frames_[0].offset));
    EXPECT_EQ(copy.right(128), bytes.right(128));
    EXPECT_EQ(audioFrames(copy), audioFrames(clean_));
    // Our own scan finds nothing; the Info frame tells the new length.
    r = runFolivoxHere({"check", "--json", "-q", path("out/book.mp3")});
    EXPECT_EQ(r.exitCode, 0);
    const QJsonObject again = r.json()["files"].toArray()[0].toObject();
    EXPECT_TRUE(again["holes"].toArray().isEmpty());
    EXPECT_EQ(again["trailingBytes"].toInteger(), 0);
    EXPECT_DOUBLE_EQ(again["claimedDuration"].toDouble(), again["trueDuration"].toDouble());
    // ffmpeg decodes it without a complaint, to the same length as the original.
    QProcess ffmpeg;
    ffmpeg.start("ffmpeg", {"-v", "error", "-nostdin", "-i", path("out/book.mp3"), "-f", "null", "-"});
    ASSERT_TRUE(ffmpeg.waitForFinished(60000));
    EXPECT_EQ(ffmpeg.exitCode(), 0);
    EXPECT_TRUE(ffmpeg.readAllStandardError().trimmed().isEmpty());
    EXPECT_NEAR(Fixtures::decodedDuration(path("out/book.mp3")), Fixtures::decodedDuration(path("src/clean.mp3")), 1e-3);

    // An existing copy is replaced only with --force.
    r = runFolivoxHere({"check", "-q", "--repair", path("out"), path("in/book.mp3")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.contains("exists (use --force")) << r.out.toStdString();
    EXPECT_EQ(runFolivoxHere({"check", "-q", "-f", "--repair", path("out"), path("in/book.mp3")}).exitCode, 3);
    // Never onto the source itself.
    r = runFolivoxHere({"check", "-q", "-f", "--repair", path("in"), path("in/book.mp3")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(md5(path("in/book.mp3")), before);
}

TEST_F(CheckCommandIntegrationTest, OnlyTheStretchesWhoseFramesDoNotDecodeAreReEncoded)
{
    struct Case {
        const char* name;
        QStringList encode;
        int rate;
        int channels;
    };
    const Case cases[] = {
        {"cbr", {"-b:a", "128k"}, 44100, 2},
        {"vbr", {"-q:a", "4"}, 44100, 2},
        {"mpeg2-mono", {"-b:a", "48k"}, 22050, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const QString name = QString::fromLatin1(c.name);
        // Pink noise: the bit reservoir is in use in nearly every frame.
        const QByteArray clean =
            Mp3TestFiles::make(path(name + "/clean.mp3"), 20.0, c.encode, c.rate, c.channels, true);
        const auto frames = Mp3TestFiles::frames(clean);
        ASSERT_GT(frames.size(), 700u);
        const int spf = c.rate >= 32000 ? 1152 : 576;
        // 20 frames at audio frame 99 and 3 at 399 whose headers stand but
        // whose data is noise (frames[0] is the Info frame), and a hole.
        QByteArray bytes = clean;
        Mp3TestFiles::spoil(bytes, frames, 100, 20, 3);
        Mp3TestFiles::spoil(bytes, frames, 400, 3, 4);
        bytes.insert(frames[600].offset, Mp3TestFiles::garbage(40000, 9));
        ASSERT_TRUE(Fixtures::writeFile(path(name + "/noisy.mp3"), bytes));

        const CommandRun r =
            runFolivoxHere({"check", "--json", "-q", "--repair", path(name + "/fixed"), path(name + "/noisy.mp3")});
        ASSERT_EQ(r.exitCode, 3) << r.err.toStdString();
        const QJsonObject repair = r.json()["files"].toArray()[0].toObject()["repair"].toObject();
        ASSERT_EQ(repair["method"].toString(), "partialReencode") << r.out.toStdString();
        const QString fixedPath = path(name + "/fixed/noisy.mp3");

        // Two stretches, each around one run of spoiled frames, a little
        // longer than it (the frames its damage reaches through the
        // reservoir, a frame either side, and what the next frame reads).
        const QJsonArray regions = repair["reencodedRegions"].toArray();
        ASSERT_EQ(regions.size(), 2) << r.out.toStdString();
        const std::pair<qint64, qint64> spoiled[] = {{99, 119}, {399, 402}};
        std::vector<std::pair<qint64, qint64>> replaced;
        for (int i = 0; i < 2; ++i) {
            const QJsonObject region = regions[i].toObject();
            const qint64 first = region["firstFrame"].toInteger();
            const qint64 end = first + region["frameCount"].toInteger();
            replaced.emplace_back(first, end);
            EXPECT_LE(first, spoiled[i].first);
            EXPECT_GE(end, spoiled[i].second);
            EXPECT_LE(end - first, spoiled[i].second - spoiled[i].first + 16);
            EXPECT_GE(region["undecodableFrames"].toInteger(), 1);
            // Spoiled frames, and at most the next two, where the decoder
            // still plays noise of them far beyond full scale.
            EXPECT_LE(region["undecodableFrames"].toInteger(), spoiled[i].second - spoiled[i].first + 2);
            EXPECT_GE(region["lostFrames"].toInteger(), region["undecodableFrames"].toInteger());
            EXPECT_NEAR(region["startTime"].toDouble(), double(first) * spf / c.rate, 1e-9);
            EXPECT_NEAR(region["duration"].toDouble(), double(end - first) * spf / c.rate, 1e-9);
        }

        // Every frame outside the stretches is the source's, byte for
        // byte; the copy has as many frames as the source.
        const QByteArray fixed = Fixtures::readFile(fixedPath);
        const auto fixedFrames = Mp3TestFiles::frames(fixed);
        ASSERT_EQ(fixedFrames.size(), frames.size());
        int kept = 0;
        for (std::size_t k = 1; k < frames.size(); ++k) {
            const auto audio = qint64(k) - 1;
            bool inside = false;
            for (const auto& [first, end] : replaced)
                inside = inside || (audio >= first && audio < end);
            if (inside)
                continue;
            ++kept;
            EXPECT_EQ(fixed.mid(fixedFrames[k].offset, fixedFrames[k].length),
                      clean.mid(frames[k].offset, frames[k].length))
                << "audio frame " << audio;
        }
        EXPECT_GT(kept, int(frames.size()) - 60);

        // ffmpeg decodes it without a complaint, to the length of the
        // undamaged file.
        QProcess ffmpeg;
        ffmpeg.start("ffmpeg", {"-v", "error", "-nostdin", "-i", fixedPath, "-f", "null", "-"});
        ASSERT_TRUE(ffmpeg.waitForFinished(60000));
        EXPECT_TRUE(ffmpeg.readAllStandardError().trimmed().isEmpty());
        EXPECT_NEAR(Fixtures::decodedDuration(fixedPath), Fixtures::decodedDuration(path(name + "/clean.mp3")),
                    0.5 * spf / c.rate);

        // The new frames play at the very samples of the frames they stand
        // in for: the first frame after a stretch, whose start overlaps the
        // stretch's last frame in the decoder, plays close to the original,
        // and the frames after it exactly as before.
        const auto original = Mp3TestFiles::decodedSamples(path(name + "/clean.mp3"));
        const auto repaired = Mp3TestFiles::decodedSamples(fixedPath);
        ASSERT_EQ(repaired.size(), original.size());
        const std::size_t delay = 1105; // trimmed by ffmpeg from the start
        for (const auto& [first, end] : replaced) {
            const auto at = [&](qint64 frame) { return std::size_t(frame) * std::size_t(spf) - delay; };
            EXPECT_GT(Mp3TestFiles::snr(original, repaired, at(first - 20), at(first)), 100.0);
            EXPECT_GT(Mp3TestFiles::snr(original, repaired, at(end), at(end + 1)), 10.0);
            EXPECT_GT(Mp3TestFiles::snr(original, repaired, at(end + 2), at(end + 40)), 100.0);
        }

        // The text report names the stretches.
        const CommandRun text =
            runFolivoxHere({"check", "-q", "-f", "--repair", path(name + "/fixed"), path(name + "/noisy.mp3")});
        EXPECT_TRUE(text.out.contains("frames copied, 2 stretches re-encoded")) << text.out.toStdString();
        const qint64 ms = qint64(double(replaced[0].first) * spf / c.rate * 1000.0 + 0.5);
        const QString line = QString::asprintf("    re-encoded 00:00:%02lld.%03lld to ", ms / 1000, ms % 1000);
        EXPECT_TRUE(text.out.contains(line.toUtf8())) << text.out.toStdString();
    }
    // No work folders left behind.
    EXPECT_TRUE(QDir(QDir::tempPath() + "/FolivoxWork").entryList(QDir::Dirs | QDir::NoDotAndDotDot).isEmpty());
}
