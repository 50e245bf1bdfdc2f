// Exact lengths of what `folivox build` writes, read back after every step
// (tags, cover and chapters included): one file per chapter in M4A and MP3,
// each carrying its gapless fields, and a transcoded M4B whose priming skip
// and iTunes gapless item survive the metadata step.
#include "export/strategies/MP4GaplessTrim.h"
#include "export/engine/EngineTestSupport.h"
#include "support/CommandRunner.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

using namespace folivox;
using folivox::test::CommandRun;
using folivox::test::CommandRunner;
using folivox::test::Fixtures;

namespace {

constexpr int kRate = 44100;

QByteArray probe(const QStringList& args)
{
    QProcess p;
    p.start(QStringLiteral("ffprobe"), QStringList{QStringLiteral("-v"), QStringLiteral("error")} + args);
    p.waitForFinished(60000);
    return p.readAllStandardOutput().trimmed();
}

// The audio stream's length in its own time base (samples for M4A).
qint64 streamTicks(const QString& file)
{
    return probe({QStringLiteral("-select_streams"), QStringLiteral("a:0"), QStringLiteral("-show_entries"),
                  QStringLiteral("stream=duration_ts"), QStringLiteral("-of"), QStringLiteral("csv=p=0"), file})
        .toLongLong();
}

double formatDuration(const QString& file)
{
    return probe({QStringLiteral("-show_entries"), QStringLiteral("format=duration"), QStringLiteral("-of"),
                  QStringLiteral("csv=p=0"), file})
        .toDouble();
}

QString formatTag(const QString& file, const QString& key)
{
    return QString::fromUtf8(probe({QStringLiteral("-show_entries"), QStringLiteral("format_tags=") + key,
                                    QStringLiteral("-of"), QStringLiteral("csv=p=0"), file}));
}

// What ffmpeg decodes from the file (mono, 16 bit, at the file's rate).
std::vector<qint16> decode(const QString& file)
{
    QProcess p;
    p.start(QStringLiteral("ffmpeg"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"), file,
                                       QStringLiteral("-ac"), QStringLiteral("1"), QStringLiteral("-f"),
                                       QStringLiteral("s16le"), QStringLiteral("-")});
    p.waitForFinished(120000);
    const QByteArray bytes = p.readAllStandardOutput();
    std::vector<qint16> out(std::size_t(bytes.size() / 2));
    std::memcpy(out.data(), bytes.constData(), out.size() * 2);
    return out;
}

qint64 decodedSamples(const QString& file)
{
    return qint64(decode(file).size());
}

// The iTunes gapless item: priming, padding, sample count.
struct Smpb {
    qint64 priming = -1;
    qint64 padding = -1;
    qint64 samples = -1;
};

Smpb smpb(const QString& file)
{
    const QStringList fields = formatTag(file, QStringLiteral("iTunSMPB")).split(u' ', Qt::SkipEmptyParts);
    Smpb s;
    if (fields.size() >= 4) {
        s.priming = fields[1].toLongLong(nullptr, 16);
        s.padding = fields[2].toLongLong(nullptr, 16);
        s.samples = fields[3].toLongLong(nullptr, 16);
    }
    return s;
}

// The gapless fields of an MP3's Info/Xing frame: its frame count and the
// LAME extension's encoder delay and padding.
struct LameFields {
    qint64 frames = -1;
    int delay = -1;
    int padding = -1;
};

LameFields lameFields(const QString& file)
{
    const QByteArray d = Fixtures::readFile(file);
    LameFields f;
    qsizetype at = d.indexOf("Info");
    if (at < 0)
        at = d.indexOf("Xing");
    if (at < 0 || at + 16 > d.size())
        return f;
    auto be32 = [&](qsizetype i) {
        return (quint32(quint8(d[i])) << 24) | (quint32(quint8(d[i + 1])) << 16) | (quint32(quint8(d[i + 2])) << 8)
            | quint32(quint8(d[i + 3]));
    };
    const quint32 flags = be32(at + 4);
    qsizetype next = at + 8;
    if (flags & 1) {
        f.frames = be32(next);
        next += 4;
    }
    if (flags & 2)
        next += 4;
    if (flags & 4)
        next += 100;
    if (flags & 8)
        next += 4;
    // Encoder name (9), revision (1), lowpass (1), peak (4), two gains (4),
    // flags (1), bitrate (1), then 12 bits of delay and 12 of padding.
    const qsizetype dp = next + 21;
    if (dp + 3 > d.size())
        return f;
    const auto b0 = quint8(d[dp]), b1 = quint8(d[dp + 1]), b2 = quint8(d[dp + 2]);
    f.delay = (b0 << 4) | (b1 >> 4);
    f.padding = ((b1 & 0x0F) << 8) | b2;
    return f;
}

class GaplessOutputs : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (CommandRunner::folivoxBinary().isEmpty())
            GTEST_SKIP() << "the folivox command is not built";
        ASSERT_TRUE(dir_.isValid());
        QDir().mkpath(path(QStringLiteral("src")));
        ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                      QStringLiteral("color=c=teal:s=320x320"), QStringLiteral("-frames:v"),
                                      QStringLiteral("1"), path(QStringLiteral("cover.jpg"))}));
    }
    QString path(const QString& name) const { return dir_.filePath(name); }

    // One 60 s WAV tone and a chapter file whose marks fall on no frame
    // boundary; returns each chapter's length in samples.
    std::vector<qint64> longFileWithMarks()
    {
        EXPECT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                      QStringLiteral("sine=frequency=440:sample_rate=44100:duration=60"),
                                      QStringLiteral("-ac"), QStringLiteral("1"), path(QStringLiteral("src/book.wav"))}));
        EXPECT_TRUE(Fixtures::writeFile(path(QStringLiteral("marks.txt")),
                                        "00:00:00.000 Intro\n00:00:13.377 Second\n00:00:31.123 Third\n"
                                        "00:00:47.001 Fourth\n"));
        const std::vector<double> marks{0.0, 13.377, 31.123, 47.001, 60.0};
        std::vector<qint64> lengths;
        for (std::size_t i = 0; i + 1 < marks.size(); ++i)
            lengths.push_back(std::llround(marks[i + 1] * kRate) - std::llround(marks[i] * kRate));
        return lengths;
    }

    CommandRun build(const QStringList& inputs, const QStringList& options)
    {
        return CommandRunner::run(QStringList{QStringLiteral("build")} + inputs
                                      + QStringList{QStringLiteral("--title"), QStringLiteral("Exact"),
                                                    QStringLiteral("--author"), QStringLiteral("Someone"),
                                                    QStringLiteral("--cover"), path(QStringLiteral("cover.jpg")),
                                                    QStringLiteral("--bitrate"), QStringLiteral("64"),
                                                    QStringLiteral("--no-sidecar"), QStringLiteral("-q"),
                                                    QStringLiteral("-j"), QStringLiteral("2")}
                                      + options,
                                  dir_.path());
    }

    QStringList outputs(const QString& folder, const QString& extension) const
    {
        QStringList files;
        const QDir d(path(folder));
        for (const QString& name : d.entryList({QStringLiteral("*.") + extension}, QDir::Files, QDir::Name))
            files << d.filePath(name);
        return files;
    }

    QTemporaryDir dir_;
};

// An M4A of a chapter: its audio track and its edit list present exactly the
// chapter's samples, its iTunes item says the same, and the packets hold
// priming, those samples and less than a frame of padding.
void expectExactM4a(const QString& file, qint64 expected)
{
    SCOPED_TRACE(file.toStdString());
    const qint64 ticks = streamTicks(file);
    EXPECT_LE(std::abs(ticks - expected), 1);
    EXPECT_NEAR(formatDuration(file), double(expected) / kRate, 0.0015);
    const Smpb s = smpb(file);
    EXPECT_EQ(s.priming, 1024);
    EXPECT_EQ(s.samples, ticks);
    EXPECT_GE(s.padding, 0);
    EXPECT_LT(s.padding, 1024);
    EXPECT_EQ(qint64(test::audioPacketCount(file)) * 1024, s.priming + s.samples + s.padding);
    const MP4GaplessTrim::Layout layout = MP4GaplessTrim::read(file);
    EXPECT_EQ(layout.framing.priming, 1024);
    EXPECT_EQ(layout.mediaSamples, 1024 + ticks);
    // ffmpeg skips the priming; it may keep the last frame's padding.
    EXPECT_LE(std::abs(decodedSamples(file) - expected), 1024);
    EXPECT_EQ(formatTag(file, QStringLiteral("artist")), QStringLiteral("Someone"));
}

} // namespace

TEST_F(GaplessOutputs, ChapterM4asOfOneLongFileHaveTheirChaptersExactLengths)
{
    const std::vector<qint64> lengths = longFileWithMarks();
    const CommandRun r = build({path(QStringLiteral("src/book.wav"))},
                               {QStringLiteral("--chapters"), path(QStringLiteral("marks.txt")), QStringLiteral("--format"),
                                QStringLiteral("m4a"), QStringLiteral("-o"), path(QStringLiteral("m4a"))});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const QStringList files = outputs(QStringLiteral("m4a"), QStringLiteral("m4a"));
    ASSERT_EQ(files.size(), 4);
    for (int i = 0; i < 4; ++i)
        expectExactM4a(files[i], lengths[std::size_t(i)]);
}

TEST_F(GaplessOutputs, ChapterM4asOfSixFilesAreEachTwentySeconds)
{
    QStringList inputs;
    for (int i = 0; i < 6; ++i) {
        const QString file = path(QStringLiteral("src/%1.mp3").arg(i + 1));
        test::mp3Tone(file, 20.0, 300 + 50 * i);
        inputs << file;
    }
    const CommandRun r = build(inputs, {QStringLiteral("--format"), QStringLiteral("m4a"), QStringLiteral("-o"),
                                        path(QStringLiteral("m4a"))});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const QStringList files = outputs(QStringLiteral("m4a"), QStringLiteral("m4a"));
    ASSERT_EQ(files.size(), 6);
    for (const QString& file : files)
        expectExactM4a(file, 20 * kRate);
}

TEST_F(GaplessOutputs, ChapterMp3sCarryTheirDelayAndPaddingAndDecodeToTheirLengths)
{
    const std::vector<qint64> lengths = longFileWithMarks();
    const CommandRun r = build({path(QStringLiteral("src/book.wav"))},
                               {QStringLiteral("--chapters"), path(QStringLiteral("marks.txt")), QStringLiteral("--format"),
                                QStringLiteral("mp3"), QStringLiteral("-o"), path(QStringLiteral("mp3"))});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const QStringList files = outputs(QStringLiteral("mp3"), QStringLiteral("mp3"));
    ASSERT_EQ(files.size(), 4);
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(files[i].toStdString());
        const qint64 expected = lengths[std::size_t(i)];
        const qint64 decoded = decodedSamples(files[i]);
        EXPECT_LE(std::abs(decoded - expected), 1);
        // What the Info frame says the file holds, without decoding it.
        const LameFields f = lameFields(files[i]);
        ASSERT_GT(f.frames, 0);
        EXPECT_GE(f.delay, 528);
        EXPECT_GT(f.padding, 0);
        EXPECT_LT(f.padding, 1152 + 1152);
        EXPECT_EQ(f.frames * 1152 - f.delay - f.padding, decoded);
        EXPECT_EQ(formatTag(files[i], QStringLiteral("artist")), QStringLiteral("Someone"));
    }
}

// The priming skip and the padding trim of a transcoded M4B are written
// before its tags, cover and chapters; the metadata step must keep them.
TEST_F(GaplessOutputs, TheBooksGaplessFieldsSurviveTagsCoverAndChapters)
{
    (void)longFileWithMarks();
    const QString book = path(QStringLiteral("Exact.m4b"));
    const CommandRun r = build({path(QStringLiteral("src/book.wav"))},
                               {QStringLiteral("--chapters"), path(QStringLiteral("marks.txt")), QStringLiteral("-o"),
                                book});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    expectExactM4a(book, 60 * kRate);
    const QByteArray chapters = probe({QStringLiteral("-show_chapters"), QStringLiteral("-of"),
                                       QStringLiteral("csv=p=0"), book});
    EXPECT_EQ(chapters.count('\n') + 1, 4) << chapters.toStdString();
    EXPECT_FALSE(probe({QStringLiteral("-show_entries"), QStringLiteral("format_tags=title"), book}).isEmpty());
}

// AAC files copied into one book: each later file's priming frame and each
// file's padding are skipped by the book's edit list, so the book decodes to
// exactly what its files decode to one after the other, with its chapter
// marks where each file's audio starts.
TEST_F(GaplessOutputs, ACopyJoinOfAacFilesAddsNoPrimingOrPaddingAtTheJoins)
{
    QStringList inputs;
    std::vector<qint16> expected;
    std::vector<qint64> starts;
    qint64 exactTotal = 0;
    const std::vector<double> seconds{6.3, 7.3, 8.3};
    for (std::size_t i = 0; i < seconds.size(); ++i) {
        const QString file = path(QStringLiteral("src/%1.m4a").arg(i + 1));
        test::aacTone(file, seconds[i], 300 + 150 * int(i));
        inputs << file;
        starts.push_back(exactTotal);
        exactTotal += std::llround(seconds[i] * kRate);
        const std::vector<qint16> own = decode(file);
        expected.insert(expected.end(), own.begin(), own.end());
    }
    const QString book = path(QStringLiteral("Joined.m4b"));
    const CommandRun r = build(inputs, {QStringLiteral("--passthrough"), QStringLiteral("force"), QStringLiteral("--json"),
                                        QStringLiteral("-o"), book});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    ASSERT_TRUE(r.out.contains("\"passthroughConcat\"")) << r.out.toStdString();

    // The edit list presents exactly the files' own samples.
    EXPECT_EQ(streamTicks(book), exactTotal);
    EXPECT_NEAR(formatDuration(book), double(exactTotal) / kRate, 0.0015);
    // Decoded, the book is its files' decodes laid end to end: same length
    // within a frame, and the same samples right across every join.
    const std::vector<qint16> joined = decode(book);
    ASSERT_LE(std::abs(qint64(joined.size()) - qint64(expected.size())), 1024);
    for (std::size_t k = 1; k < starts.size(); ++k) {
        // Where file k begins in the files' decodes laid end to end.
        std::size_t at = 0;
        for (std::size_t j = 0; j < k; ++j)
            at += decode(inputs[qsizetype(j)]).size();
        int worst = 0;
        for (std::size_t i = at - 2048; i < at + 2048 && i < joined.size(); ++i)
            worst = std::max(worst, std::abs(int(joined[i]) - int(expected[i])));
        // Not bit for bit: the decoder's noise substitution draws from one
        // random sequence that runs on across the files. A dropped or an
        // added frame moves the tone (peak 4096) and fails by thousands.
        EXPECT_LE(worst, 64) << "join " << k;
    }
    // Chapter marks at each file's first sample.
    const QList<QByteArray> marks = probe({QStringLiteral("-show_chapters"), QStringLiteral("-show_entries"),
                                           QStringLiteral("chapter=start_time"), QStringLiteral("-of"),
                                           QStringLiteral("csv=p=0"), book})
                                        .split('\n');
    ASSERT_EQ(marks.size(), 3);
    for (std::size_t k = 0; k < starts.size(); ++k)
        EXPECT_NEAR(marks[qsizetype(k)].split(',').front().toDouble(), double(starts[k]) / kRate, 0.001) << k;
}
