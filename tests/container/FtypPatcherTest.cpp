#include "MP4TestBoxes.h"

#include "container/mp4/FtypPatcher.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;

namespace {
std::optional<FtypPatcherError::Kind> patchError(const QString& path, QString* text = nullptr)
{
    try {
        FtypPatcher::patch(path);
    } catch (const FtypPatcherError& e) {
        if (text)
            *text = e.description();
        return e.kind();
    }
    return std::nullopt;
}
} // namespace

TEST(FtypPatcherTest, MarksTheFileAsAnAudiobookAndRewritesM4ACompatibleBrands)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("a.m4b");
    const QByteArray rest = box("mdat", "xyz");
    ASSERT_TRUE(writeBytes(path, box("ftyp", "M4A " + u32(512) + "M4A isommp42") + rest));
    EXPECT_TRUE(FtypPatcher::patch(path));
    EXPECT_EQ(readBytes(path), box("ftyp", "M4B " + u32(512) + "M4B isommp42") + rest);
    // Already "M4B ": left alone, compatible brands included.
    const QByteArray already = box("ftyp", "M4B " + u32(0) + "M4A isom");
    ASSERT_TRUE(writeBytes(path, already));
    EXPECT_FALSE(FtypPatcher::patch(path));
    EXPECT_EQ(readBytes(path), already);
    // Size 16: major brand only; the bytes behind the box are not brands.
    ASSERT_TRUE(writeBytes(path, box("ftyp", "mp42" + u32(0)) + "M4A " + "more"));
    EXPECT_TRUE(FtypPatcher::patch(path));
    EXPECT_EQ(readBytes(path), box("ftyp", "M4B " + u32(0)) + "M4A " + "more");
}

TEST(FtypPatcherTest, RefusesWhatIsNotAnFtypWithItsText)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("a.m4b");
    QString text;
    ASSERT_TRUE(writeBytes(path, box("ftyp", "M4A ")));
    EXPECT_EQ(patchError(path, &text), FtypPatcherError::Kind::fileTooSmall);
    EXPECT_EQ(text, QStringLiteral("File too small to contain ftyp atom"));
    ASSERT_TRUE(writeBytes(path, box("free", "M4A " + u32(0))));
    EXPECT_EQ(patchError(path, &text), FtypPatcherError::Kind::noFtypAtom);
    EXPECT_EQ(text, QStringLiteral("First atom is not ftyp"));
    // An impossible size is reported after the major brand was written.
    ASSERT_TRUE(writeBytes(path, u32(5000) + "ftyp" + "M4A " + u32(0) + "M4A "));
    EXPECT_EQ(patchError(path, &text), FtypPatcherError::Kind::invalidFtypSize);
    EXPECT_EQ(text, QStringLiteral("Invalid ftyp atom size: 5000"));
    EXPECT_EQ(readBytes(path), u32(5000) + "ftyp" + "M4B " + u32(0) + "M4A ");
    // A size running past the file's end: the brands that are there are patched.
    ASSERT_TRUE(writeBytes(path, u32(40) + "ftyp" + "M4A " + u32(0) + "M4A " + "isom" + "M4A"));
    EXPECT_TRUE(FtypPatcher::patch(path));
    EXPECT_EQ(readBytes(path), u32(40) + "ftyp" + "M4B " + u32(0) + "M4B " + "isom" + "M4A");
}
