#include "export/strategies/ConcatList.h"

#include "platform/Error.h"
#include "support/Fixtures.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;

TEST(ConcatListTest, QuotesEveryApostropheAndWritesInpointAndDurationLines)
{
    ConcatList list;
    list.add(QStringLiteral("/books/it's here/01 don't.m4a"));
    list.add(QStringLiteral("/books/plain.m4a"), 1.5, 2.0433333);
    list.add(QStringLiteral("/books/third.m4a"), std::nullopt, 3.25);
    EXPECT_EQ(list.text(),
              QStringLiteral("file '/books/it'\\''s here/01 don'\\''t.m4a'\n"
                             "file '/books/plain.m4a'\n"
                             "inpoint 1.500000\n"
                             "duration 2.043333\n"
                             "file '/books/third.m4a'\n"
                             "duration 3.250000\n"));
    EXPECT_EQ(ConcatList::quote(QStringLiteral("''")), QStringLiteral("''\\'''\\'''"));
}

TEST(ConcatListTest, ParseReadsBackWhatWasWritten)
{
    ConcatList list;
    list.add(QStringLiteral("/a/O'Brien's tale.m4a"), 0.25, 10.0);
    list.add(QStringLiteral("/a/b c.m4a"));
    const ConcatList back = ConcatList::parse(list.text());
    ASSERT_EQ(back.size(), 2);
    EXPECT_EQ(back.entries()[0].path, QStringLiteral("/a/O'Brien's tale.m4a"));
    EXPECT_DOUBLE_EQ(*back.entries()[0].inpoint, 0.25);
    EXPECT_DOUBLE_EQ(*back.entries()[0].duration, 10.0);
    EXPECT_EQ(back.entries()[1].path, QStringLiteral("/a/b c.m4a"));
    EXPECT_FALSE(back.entries()[1].inpoint.has_value());
}

TEST(ConcatListTest, WriteIsUtf8OnDiskAndFailsWithTheFileName)
{
    QTemporaryDir dir;
    ConcatList list;
    list.add(QStringLiteral("/tmp/Kapitel Ä – ü.m4a"));
    const QString path = dir.filePath(QStringLiteral("list.txt"));
    list.write(path);
    EXPECT_EQ(test::Fixtures::readFile(path), QStringLiteral("file '/tmp/Kapitel Ä – ü.m4a'\n").toUtf8());

    try {
        list.write(dir.filePath(QStringLiteral("missing/folder/list.txt")));
        FAIL() << "writing into a missing folder must fail";
    } catch (const Error& e) {
        EXPECT_TRUE(e.description().contains(QStringLiteral("list.txt"))) << e.description().toStdString();
    }
}
