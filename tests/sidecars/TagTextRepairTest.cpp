#include "SidecarTestHelpers.h"

#include "core/chapters/NormalizedChapter.h"
#include "core/book/TagTextRepair.h"
#include "core/json/DecodingError.h"

#include <QJsonDocument>

using namespace folivox;
using Kind = TagTextRepair::Kind;

namespace {
// The text a program shows when it reads these UTF-8 bytes as Windows-1252.
QString misread1252(const QString& original)
{
    static const char16_t high[32] = {0x20AC, 0, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
                                      0x2039, 0x0152, 0, 0x017D, 0, 0, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
                                      0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0, 0x017E, 0x0178};
    QString out;
    for (char c : original.toUtf8()) {
        const auto b = static_cast<unsigned char>(c);
        out += (b >= 0x80 && b < 0xA0 && high[b - 0x80]) ? QChar(high[b - 0x80]) : QChar(b);
    }
    return out;
}
} // namespace

TEST(TagTextRepairTest, RepairsUtf8ReadAsLatin1OrWindows1252)
{
    EXPECT_EQ(TagTextRepair::repair(QStringLiteral("CafÃ©"), Kind::title), QStringLiteral("Café"));
    for (const QString& original : {QStringLiteral("Der Brückenbauer – Kapitel 1"), QStringLiteral("“Quoted” €5 naïve"),
                                    QStringLiteral("Ærøskøbing · Ørsted"), QStringLiteral("日本語のタイトル"),
                                    QStringLiteral("Emoji 🎧 title")}) {
        const QString broken = misread1252(original);
        ASSERT_NE(broken, original);
        EXPECT_EQ(TagTextRepair::repair(broken, Kind::chapterTitle), original) << broken.toStdString();
        // Latin-1 readers turn 0x80..0x9F into C1 controls; also repaired.
        EXPECT_EQ(TagTextRepair::repair(QString::fromLatin1(original.toUtf8()), Kind::chapterTitle), original);
    }
    // Read wrongly twice.
    EXPECT_EQ(TagTextRepair::repair(misread1252(misread1252(QStringLiteral("Olá"))), Kind::title),
              QStringLiteral("Olá"));
}

TEST(TagTextRepairTest, LeavesGenuineAndAmbiguousTextAlone)
{
    // Genuine accented text is no valid UTF-8 once turned back into bytes, and
    // text mixing broken and good characters is ambiguous: both stay.
    for (const QString& good : {QStringLiteral("Café"), QStringLiteral("naïve façade"), QStringLiteral("Straße"),
                                QStringLiteral("CafÃ© and é mixed"), QStringLiteral("1984"),
                                QStringLiteral("Ünïcödé"), QStringLiteral("Â"), QStringLiteral("Ã")}) {
        EXPECT_EQ(TagTextRepair::repair(good, Kind::title), good) << good.toStdString();
        EXPECT_FALSE(TagTextRepair::repairMojibake(good).has_value()) << good.toStdString();
    }
    // Characters outside both code pages can't come from a misreading.
    EXPECT_FALSE(TagTextRepair::repairMojibake(QStringLiteral("CafÃ© Ω")).has_value());
}

TEST(TagTextRepairTest, StripsInvisibleCharactersAndFoldsWhiteSpace)
{
    EXPECT_EQ(TagTextRepair::repair(QStringLiteral("\uFEFFChap\u200Bter\u00AD 1\u0007"), Kind::chapterTitle),
              QStringLiteral("Chapter 1"));
    EXPECT_EQ(TagTextRepair::repair(QStringLiteral("  Part\t\tOne \n Two  "), Kind::chapterTitle),
              QStringLiteral("Part One Two"));
    // Joiners shape emoji and stay inside; at the ends they go.
    const QString family = QStringLiteral("👩\u200D👧");
    EXPECT_EQ(TagTextRepair::repair(QStringLiteral("\u200D") + family + QStringLiteral("\u200E"), Kind::title), family);
    EXPECT_EQ(TagTextRepair::repair(QStringLiteral("\u202Eevil\u202C"), Kind::title), QStringLiteral("evil"));
    EXPECT_EQ(TagTextRepair::repair(QStringLiteral("\u200B\uFEFF\u2060"), Kind::chapterTitle), QString());
    // A single no-break space is kept; decomposed text is composed.
    EXPECT_EQ(TagTextRepair::repair(QStringLiteral("Chapitre\u00A0:"), Kind::title), QStringLiteral("Chapitre\u00A0:"));
    EXPECT_EQ(TagTextRepair::repair(QStringLiteral("Cafe\u0301"), Kind::title), QStringLiteral("Café"));
    // A stray zero-width space does not block a repair.
    EXPECT_EQ(TagTextRepair::repair(QStringLiteral("CafÃ©\u200B"), Kind::title), QStringLiteral("Café"));
}

TEST(TagTextRepairTest, FreeTextKeepsLineBreaks)
{
    EXPECT_EQ(TagTextRepair::repair(QStringLiteral("\r\nLine one\r\n\tLine two\u2028\n"), Kind::freeText),
              QStringLiteral("Line one\n\tLine two"));
}

TEST(NormalizedChapterTest, TitleCleaningEqualityAndJson)
{
    const auto a = NormalizedChapter::make(QStringLiteral("  \u200BIntro  "), 1500, 9000);
    EXPECT_EQ(a.title, QStringLiteral("Intro"));
    EXPECT_FALSE(a.id.isNull());
    EXPECT_EQ(NormalizedChapter::make(QStringLiteral("\uFEFF"), 0).title, QStringLiteral("Untitled"));
    EXPECT_NE(NormalizedChapter::make(QStringLiteral("x"), 0).id, NormalizedChapter::make(QStringLiteral("x"), 0).id);

    NormalizedChapter b = a;
    EXPECT_EQ(a, b);
    b.endMs.reset();
    EXPECT_NE(a, b);

    const QJsonObject json = a.toJson();
    EXPECT_EQ(json.keys(), (QStringList{"endMs", "id", "startMs", "title"}));
    EXPECT_EQ(NormalizedChapter::fromJson(json), a);
    const QJsonObject noEnd = b.toJson();
    EXPECT_FALSE(noEnd.contains(QStringLiteral("endMs")));
    EXPECT_EQ(NormalizedChapter::fromJson(noEnd), b);

    QJsonObject missing = json;
    missing.remove(QStringLiteral("startMs"));
    EXPECT_THROW(NormalizedChapter::fromJson(missing), DecodingError);
    QJsonObject badId = json;
    badId.insert(QStringLiteral("id"), QStringLiteral("not-a-uuid"));
    EXPECT_THROW(NormalizedChapter::fromJson(badId), DecodingError);
}
