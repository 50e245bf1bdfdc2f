// Reading a chapter file the user named: what is not a readable regular file
// is refused at once, with the file's name and what to do about it.
#include "sidecars/discovery/SidecarDiscoveryService.h"
#include "sidecars/SidecarError.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace folivox;
using folivox::test::Fixtures;

namespace {

// The error readText throws for a path, or nothing when it reads.
std::optional<SidecarError> readError(const QString& path)
{
    try {
        SidecarDiscoveryService().readText(path);
    } catch (const SidecarError& e) {
        return e;
    }
    return std::nullopt;
}

} // namespace

TEST(ChapterFileReading, WhatIsNotARegularFileIsRefusedWithoutOpeningIt)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());

    // A pipe nobody writes to: opening it would wait for ever.
    const QString fifo = dir.filePath(QStringLiteral("chapters.txt"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0644), 0);
    auto e = readError(fifo);
    ASSERT_TRUE(e);
    EXPECT_EQ(e->kind(), SidecarError::Kind::notRegularFile);
    EXPECT_EQ(e->description(), QStringLiteral("Cannot read chapters.txt: it is not a regular file (a pipe, socket "
                                               "or device) — save the chapters to a file and give that"));

    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("book.cue")));
    e = readError(dir.filePath(QStringLiteral("book.cue")));
    ASSERT_TRUE(e);
    EXPECT_EQ(e->kind(), SidecarError::Kind::folder);
    EXPECT_TRUE(e->description().startsWith(QStringLiteral("Cannot read book.cue: it is a folder")));

    e = readError(dir.filePath(QStringLiteral("absent.cue")));
    ASSERT_TRUE(e);
    EXPECT_EQ(e->kind(), SidecarError::Kind::notFound);
    EXPECT_TRUE(e->description().contains(QStringLiteral("absent.cue")));

    ASSERT_TRUE(Fixtures::writeFile(dir.filePath(QStringLiteral("ok.cue")), "TRACK 01 AUDIO\n"));
    EXPECT_FALSE(readError(dir.filePath(QStringLiteral("ok.cue"))));
}

TEST(ChapterFileReading, AFileThisUserMayNotReadSaysPermissionDenied)
{
    if (::geteuid() == 0)
        GTEST_SKIP() << "root reads any file whatever its mode; the command-line test runs this case as "
                        "an unprivileged user";
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("book.cue"));
    ASSERT_TRUE(Fixtures::writeFile(path, "TRACK 01 AUDIO\n"));
    ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), 0), 0);
    const auto e = readError(path);
    ASSERT_TRUE(e);
    EXPECT_EQ(e->kind(), SidecarError::Kind::permissionDenied);
    EXPECT_TRUE(e->description().contains(QStringLiteral("permission denied"))) << e->description().toStdString();
}
