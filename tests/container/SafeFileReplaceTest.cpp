#include "FolderGuards.h"
#include "MP4TestBoxes.h"

#include "container/io/FaultInjection.h"
#include "container/io/SafeFileReplace.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace folivox;
using namespace folivox::test;

namespace {
QByteArray pattern(qsizetype size, char seed)
{
    QByteArray b(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        b[i] = char(seed + (i * 7) % 251);
    return b;
}

// Descriptors of this process that still refer to a file named `path` that
// has since been replaced or removed.
int deletedFilesStillOpen(const QString& path)
{
    int n = 0;
    const QString wanted = QFileInfo(path).absoluteFilePath() + QStringLiteral(" (deleted)");
    const auto fds = QDir(QStringLiteral("/proc/self/fd")).entryInfoList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& fd : fds)
        if (fd.symLinkTarget() == wanted)
            ++n;
    return n;
}

// The replaced file is let go on a background thread: allow it a moment.
bool replacedFileReleased(const QString& path)
{
    QElapsedTimer clock;
    clock.start();
    while (deletedFilesStillOpen(path) > 0) {
        if (clock.elapsed() > 5000)
            return false;
        QThread::msleep(5);
    }
    return true;
}

std::uint64_t inodeOf(const QString& path)
{
    struct stat st{};
    ::lstat(QFile::encodeName(path).constData(), &st);
    return std::uint64_t(st.st_ino);
}
} // namespace

TEST(SafeFileReplaceTest, RenamesOnTheSameVolumeAndKeepsTheTargetsPermissions)
{
    QTemporaryDir dir;
    const QString target = dir.filePath("book.m4b");
    const QString finished = dir.filePath(".new.tmp");
    ASSERT_TRUE(writeBytes(target, "old contents"));
    ASSERT_TRUE(writeBytes(finished, "new contents, longer"));
    ::chmod(QFile::encodeName(target).constData(), 0640);
    ::chmod(QFile::encodeName(finished).constData(), 0600);
    const auto finishedInode = inodeOf(finished);

    SafeFileReplace::replace(finished, target);
    EXPECT_EQ(readBytes(target), QByteArray("new contents, longer"));
    EXPECT_EQ(modeOf(target), 0640u);
    EXPECT_EQ(inodeOf(target), finishedInode); // a rename, not a copy
    EXPECT_FALSE(QFile::exists(finished));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 1);

    // A new target simply appears.
    ASSERT_TRUE(writeBytes(finished, "fresh"));
    SafeFileReplace::replace(finished, dir.filePath("new.m4b"));
    EXPECT_EQ(readBytes(dir.filePath("new.m4b")), QByteArray("fresh"));
}

TEST(SafeFileReplaceTest, CopiesBesideTheTargetWhenTheFinishedFileIsOnAnotherVolume)
{
    if (!QFileInfo(QStringLiteral("/dev/shm")).isWritable())
        GTEST_SKIP() << "no second volume (/dev/shm) to copy from";
    QTemporaryDir dir;
    QTemporaryDir other(QStringLiteral("/dev/shm/folivox-test-XXXXXX"));
    ASSERT_TRUE(other.isValid());
    const QString target = dir.filePath("book.m4b");
    const QString finished = other.filePath("finished.tmp");
    const QByteArray fresh = pattern(9 * 1024 * 1024 + 17, 3); // more than two copy pieces
    ASSERT_TRUE(writeBytes(target, "old"));
    ASSERT_TRUE(writeBytes(finished, fresh));
    ::chmod(QFile::encodeName(target).constData(), 0604);

    int pieces = 0;
    {
        FaultInjection::Scope count([&](const QString& point) {
            if (point == QLatin1String("safeReplace.sibling.piece"))
                ++pieces;
        });
        SafeFileReplace::replace(finished, target);
    }
    EXPECT_EQ(pieces, 3);
    EXPECT_EQ(readBytes(target), fresh);
    EXPECT_EQ(modeOf(target), 0604u);
    EXPECT_FALSE(QFile::exists(finished));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 1) << "no sibling copy left behind";

    // A copy that fails midway leaves the old file as it was and no sibling.
    ASSERT_TRUE(writeBytes(finished, fresh));
    ASSERT_TRUE(writeBytes(target, "old"));
    {
        FaultInjection::Scope fail([](const QString& point) {
            if (point == QLatin1String("safeReplace.sibling.piece"))
                throw std::runtime_error("disk full");
        });
        EXPECT_ANY_THROW(SafeFileReplace::replace(finished, target));
    }
    EXPECT_EQ(readBytes(target), QByteArray("old"));
    EXPECT_TRUE(QFile::exists(finished));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 1);
}

TEST(SafeFileReplaceTest, ReplacesASymlinkItselfAndNeverWritesThroughIt)
{
    QTemporaryDir dir;
    const QString real = dir.filePath("elsewhere.m4b");
    const QString link = dir.filePath("book.m4b");
    const QString finished = dir.filePath("finished.tmp");
    ASSERT_TRUE(writeBytes(real, "someone else's file"));
    ASSERT_TRUE(QFile::link(real, link));
    ASSERT_TRUE(writeBytes(finished, "new book"));
    SafeFileReplace::replace(finished, link);
    EXPECT_EQ(readBytes(real), QByteArray("someone else's file"));
    EXPECT_FALSE(QFileInfo(link).isSymLink());
    EXPECT_EQ(readBytes(link), QByteArray("new book"));
}

TEST(SafeFileReplaceTest, RefusesDirectoriesAndMissingSourcesWithoutTouchingAnything)
{
    QTemporaryDir dir;
    const QString finished = dir.filePath("finished.tmp");
    ASSERT_TRUE(writeBytes(finished, "x"));
    QDir(dir.path()).mkdir("folder");
    try {
        SafeFileReplace::replace(finished, dir.filePath("folder"));
        FAIL();
    } catch (const SafeFileReplace::Error& e) {
        EXPECT_EQ(e.kind(), SafeFileReplace::Error::Kind::targetNotAFile);
        EXPECT_TRUE(e.description().contains(QStringLiteral("\"folder\"")));
    }
    EXPECT_TRUE(QFile::exists(finished));
    try {
        SafeFileReplace::replace(dir.filePath("gone.tmp"), dir.filePath("book.m4b"));
        FAIL();
    } catch (const SafeFileReplace::Error& e) {
        EXPECT_EQ(e.kind(), SafeFileReplace::Error::Kind::sourceUnreadable);
        EXPECT_TRUE(e.description().contains(QStringLiteral("gone.tmp")));
    }
    EXPECT_FALSE(QFile::exists(dir.filePath("book.m4b")));
}

TEST(SafeFileReplaceTest, OverwritesInPlaceWhenTheFolderRefusesNewFilesAndKeepsACopyIfInterrupted)
{
    QTemporaryDir dir;
    QTemporaryDir work;
    const QString folder = dir.filePath("locked");
    QDir(dir.path()).mkdir("locked");
    const QString target = folder + "/book.m4b";
    const QString finished = work.filePath("finished.tmp");
    const QByteArray fresh = pattern(10 * 1024 * 1024, 9);
    ASSERT_TRUE(writeBytes(target, pattern(12 * 1024 * 1024, 1)));
    ::chmod(QFile::encodeName(target).constData(), 0664);
    {
        FolderRefusingNewFiles lock(folder);
        if (!lock.ok())
            GTEST_SKIP() << "cannot make a folder refuse new files here";

        // Interrupted after the first piece: the target is damaged, the
        // finished file is whole and named in the error.
        ASSERT_TRUE(writeBytes(finished, fresh));
        {
            FaultInjection::Scope crash([](const QString& point) {
                if (point == QLatin1String("safeReplace.inplace.piece"))
                    throw std::runtime_error("power cut");
            });
            try {
                SafeFileReplace::replace(finished, target);
                FAIL() << "expected WriteInterruptedError";
            } catch (const SafeFileReplace::WriteInterruptedError& e) {
                EXPECT_EQ(e.preservedCopyPath(), finished);
                EXPECT_EQ(e.targetPath(), target);
                EXPECT_TRUE(e.description().contains(finished));
            }
        }
        EXPECT_EQ(readBytes(finished), fresh);

        // Uninterrupted: the target gets the new bytes and length, keeps its
        // permissions, and the finished file goes away.
        SafeFileReplace::replace(finished, target);
        EXPECT_EQ(readBytes(target), fresh);
        EXPECT_EQ(modeOf(target), 0664u);
        EXPECT_FALSE(QFile::exists(finished));
    }
}

TEST(SafeFileReplaceTest, TheReplacedFileIsLetGoOnEveryPath)
{
    QTemporaryDir dir;
    const QString target = dir.filePath("book.m4b");
    const QString finished = dir.filePath(".new.tmp");

    // A rename over an existing book.
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(writeBytes(target, pattern(3 * 1024 * 1024, char(round))));
        ASSERT_TRUE(writeBytes(finished, pattern(1024, char(40 + round))));
        SafeFileReplace::replace(finished, target);
        EXPECT_EQ(readBytes(target), pattern(1024, char(40 + round)));
        EXPECT_TRUE(replacedFileReleased(target)) << "round " << round;
    }

    // A failed replace (the finished file is missing) holds nothing either.
    EXPECT_ANY_THROW(SafeFileReplace::replace(dir.filePath("missing.tmp"), target));
    EXPECT_EQ(readBytes(target), pattern(1024, char(42)));

    // Across volumes, through the copy beside the target.
    QTemporaryDir other(QStringLiteral("/dev/shm/folivox-test-XXXXXX"));
    if (other.isValid()) {
        const QString remote = other.filePath("finished.tmp");
        ASSERT_TRUE(writeBytes(remote, pattern(2048, 7)));
        SafeFileReplace::replace(remote, target);
        EXPECT_EQ(readBytes(target), pattern(2048, 7));
        EXPECT_TRUE(replacedFileReleased(target));
    }
    EXPECT_EQ(deletedFilesStillOpen(target), 0);
}
