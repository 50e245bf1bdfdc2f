// Work folders are owned through a lock for exactly as long as they live, so
// that a run after a crash can tell the dead ones from those still in use.
#include "platform/AppPaths.h"
#include "platform/Error.h"
#include "platform/FileLock.h"
#include "platform/WorkDirectory.h"
#include "support/Fixtures.h"
#include "support/ScriptedTool.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cerrno>

using namespace folivox;
using folivox::test::Fixtures;

TEST(FileLockTest, OneHolderAtATimeAndTheLockGoesWithItsDescriptor)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("x.lock"));
    FileLock first = FileLock::tryAcquire(path, FileLock::Open::createNew);
    ASSERT_TRUE(first.isHeld());
    EXPECT_TRUE(FileLock::isHeldElsewhere(path));
    FileLock second = FileLock::tryAcquire(path, FileLock::Open::existing);
    EXPECT_FALSE(second.isHeld());
    EXPECT_EQ(second.errorNumber(), EWOULDBLOCK);
    EXPECT_EQ(FileLock::tryAcquire(path, FileLock::Open::createNew).errorNumber(), EEXIST);

    ASSERT_TRUE(first.writeContents("1234\n"));
    EXPECT_EQ(Fixtures::readFile(path), QByteArray("1234\n"));
    FileLock moved = std::move(first);
    EXPECT_FALSE(first.isHeld());
    EXPECT_TRUE(FileLock::isHeldElsewhere(path));
    moved.release();
    EXPECT_FALSE(FileLock::isHeldElsewhere(path));
    EXPECT_TRUE(QFileInfo::exists(path));

    FileLock again = FileLock::tryAcquire(path, FileLock::Open::existing);
    ASSERT_TRUE(again.isHeld());
    EXPECT_TRUE(again.pathStillNamesLockedFile());
    again.removeAndRelease();
    EXPECT_FALSE(QFileInfo::exists(path));
}

TEST(WorkDirectorySweepTest, AFolderIsLockedWhileItLivesAndBothGoTogether)
{
    QString path;
    {
        WorkDirectory work;
        path = work.path();
        EXPECT_TRUE(FileLock::isHeldElsewhere(path + QStringLiteral(".lock")));
        ASSERT_TRUE(Fixtures::writeFile(work.filePath(QStringLiteral("a/b.flac")), "x"));
        // A live folder survives a sweep.
        WorkDirectory::sweepAbandoned();
        EXPECT_TRUE(QFileInfo::exists(work.filePath(QStringLiteral("a/b.flac"))));
        WorkDirectory moved = std::move(work);
        EXPECT_TRUE(FileLock::isHeldElsewhere(path + QStringLiteral(".lock")));
    }
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_FALSE(QFileInfo::exists(path + QStringLiteral(".lock")));
}

TEST(WorkDirectorySweepTest, FoldersWhoseOwnerIsGoneAreRemovedAndHandedOverOnesKept)
{
    // A folder handed over to the rest of the program (an extracted source).
    // Made first: the first work folder of a process sweeps by itself.
    WorkDirectory kept;
    const QString keptPath = kept.path();
    kept.release();
    const QString root = AppPaths::workRoot();
    // What a killed process leaves: the folder and a lock file nobody holds.
    const QString dead = root + QStringLiteral("/6A1B0000-0000-4000-8000-000000000001");
    ASSERT_TRUE(Fixtures::writeFile(dead + QStringLiteral("/seg.m4a"), "partial"));
    ASSERT_TRUE(Fixtures::writeFile(dead + QStringLiteral(".lock"), ""));
    // A folder made without a lock, and a lock whose folder is gone.
    const QString lockless = root + QStringLiteral("/6A1B0000-0000-4000-8000-000000000002");
    QDir().mkpath(lockless);
    const QString strayLock = root + QStringLiteral("/6A1B0000-0000-4000-8000-000000000003.lock");
    ASSERT_TRUE(Fixtures::writeFile(strayLock, ""));
    // Files that are not work folders are left alone.
    const QString loose = root + QStringLiteral("/notes.txt");
    ASSERT_TRUE(Fixtures::writeFile(loose, "x"));

    EXPECT_EQ(WorkDirectory::sweepAbandoned(), 2);
    EXPECT_FALSE(QFileInfo::exists(dead));
    EXPECT_FALSE(QFileInfo::exists(dead + QStringLiteral(".lock")));
    EXPECT_FALSE(QFileInfo::exists(lockless));
    EXPECT_FALSE(QFileInfo::exists(strayLock));
    EXPECT_TRUE(QFileInfo(keptPath).isDir());
    EXPECT_TRUE(FileLock::isHeldElsewhere(keptPath + QStringLiteral(".lock")));
    EXPECT_TRUE(QFileInfo::exists(loose));
    QDir(keptPath).removeRecursively();
    QFile::remove(loose);
}

TEST(WorkDirectorySweepTest, ATemporaryFolderThatCannotHoldWorkIsNamedWithWhatToDo)
{
    // A temporary folder where the work root's name is taken by a file.
    QTemporaryDir dir;
    ASSERT_TRUE(Fixtures::writeFile(dir.filePath(QStringLiteral("FolivoxWork")), "x"));
    const QString temp = QFileInfo(dir.path()).canonicalFilePath();
    test::ScopedEnvironment env("TMPDIR", temp);
    try {
        WorkDirectory work;
        ADD_FAILURE() << "no work folder can be made under a file";
    } catch (const Error& e) {
        const QString text = e.description();
        EXPECT_TRUE(text.contains(QStringLiteral("“") + temp + QStringLiteral("”"))) << text.toStdString();
        EXPECT_TRUE(text.contains(QStringLiteral("set TMPDIR"))) << text.toStdString();
    }
}
