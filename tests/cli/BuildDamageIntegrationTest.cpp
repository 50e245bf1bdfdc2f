// MP3 sources with holes: the build names each damaged file and the chapters
// its holes fall in, goes on, and with --repair-damaged builds from a clean
// copy without touching the source.
#include "support/CommandRunner.h"
#include "support/Fixtures.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::CommandRun;
using folivox::test::CommandRunner;
using folivox::test::Fixtures;

TEST(BuildDamage, DamagedMp3SourcesAreReportedWithTheirChaptersAndCanBeBuiltFromRepairedCopies)
{
    if (CommandRunner::folivoxBinary().isEmpty())
        GTEST_SKIP() << "the folivox command is not built";
    QTemporaryDir dir;
    const QStringList mp3{QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), QStringLiteral("64k")};
    ASSERT_TRUE(Fixtures::tone(dir.filePath(QStringLiteral("in/01 Clean.mp3")), 12.0, mp3, 44100, 1, 440));
    ASSERT_TRUE(Fixtures::tone(dir.filePath(QStringLiteral("whole.mp3")), 12.0, mp3, 44100, 1, 300));
    // 16,000 bytes of noise in the middle: two seconds at 64 kb/s that players skip.
    QByteArray bytes = Fixtures::readFile(dir.filePath(QStringLiteral("whole.mp3")));
    QByteArray noise(16000, Qt::Uninitialized);
    for (char& c : noise)
        c = static_cast<char>(QRandomGenerator::global()->bounded(256) & 0x7f); // never a frame sync
    // At a frame boundary past the middle (a header followed by another one
    // a frame later), so that no frame is cut and the hole is the noise alone.
    qsizetype at = bytes.size() / 2;
    const auto isHeader = [&bytes](qsizetype p) {
        return p + 1 < bytes.size() && uchar(bytes[p]) == 0xFF && (uchar(bytes[p + 1]) & 0xE0) == 0xE0;
    };
    while (at < bytes.size() && !(isHeader(at) && (isHeader(at + 208) || isHeader(at + 209))))
        ++at;
    ASSERT_LT(at, bytes.size());
    bytes.insert(at, noise);
    const QString damaged = dir.filePath(QStringLiteral("in/02 Damaged.mp3"));
    ASSERT_TRUE(Fixtures::writeFile(damaged, bytes));

    const CommandRun reported = CommandRunner::run({QStringLiteral("build"), dir.filePath(QStringLiteral("in")), QStringLiteral("-o"),
                                                    dir.filePath(QStringLiteral("a.m4b")), QStringLiteral("--json"), QStringLiteral("-q")},
                                                   dir.path());
    ASSERT_EQ(reported.exitCode, 0) << reported.errText().toStdString();
    EXPECT_TRUE(reported.errText().contains(damaged)) << reported.errText().toStdString();
    EXPECT_TRUE(reported.errText().contains(QStringLiteral("in chapter \"02 Damaged\""))) << reported.errText().toStdString();
    const QJsonArray files = reported.json().value(QStringLiteral("damagedFiles")).toArray();
    ASSERT_EQ(files.size(), 1);
    const QJsonObject file = files.first().toObject();
    EXPECT_EQ(file.value(QStringLiteral("verdict")).toString(), QStringLiteral("damaged"));
    const QJsonArray chapterHoles = file.value(QStringLiteral("chapters")).toArray();
    ASSERT_EQ(chapterHoles.size(), 1);
    const QJsonObject hole = chapterHoles.first().toObject().value(QStringLiteral("holes")).toArray().first().toObject();
    EXPECT_NEAR(hole.value(QStringLiteral("missingSeconds")).toDouble(), 2.0, 0.1);
    EXPECT_NEAR(hole.value(QStringLiteral("chapterTime")).toDouble(), 6.0, 0.3);

    const QByteArray sourceBefore = Fixtures::readFile(damaged);
    const CommandRun repaired = CommandRunner::run({QStringLiteral("build"), dir.filePath(QStringLiteral("in")), QStringLiteral("-o"),
                                                    dir.filePath(QStringLiteral("b.m4b")), QStringLiteral("--json"), QStringLiteral("-q"),
                                                    QStringLiteral("--repair-damaged")},
                                                   dir.path());
    ASSERT_EQ(repaired.exitCode, 0) << repaired.errText().toStdString();
    EXPECT_TRUE(repaired.json().value(QStringLiteral("damagedFiles")).toArray().first().toObject().value(QStringLiteral("repaired")).toBool());
    EXPECT_EQ(Fixtures::readFile(damaged), sourceBefore);
    // The second chapter is the source's twelve seconds of real audio.
    const QJsonArray chapters = repaired.json().value(QStringLiteral("chapters")).toArray();
    ASSERT_EQ(chapters.size(), 2);
    EXPECT_NEAR(chapters[1].toObject().value(QStringLiteral("duration")).toDouble(), 12.0, 0.1);
    EXPECT_NEAR(Fixtures::decodedDuration(dir.filePath(QStringLiteral("b.m4b"))), 24.0, 0.2);
}
