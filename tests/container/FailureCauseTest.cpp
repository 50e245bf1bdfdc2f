// A full or read-only disk is told by the error's cause, taken from the
// failing call itself: real writes to a small tmpfs of its own.
#include "container/io/FileRangeCopier.h"
#include "container/io/SafeFileReplace.h"
#include "container/mp4/MP4File.h"
#include "platform/FailureCause.h"
#include "support/Fixtures.h"
#include "support/SmallVolume.h"

#include <QTemporaryDir>

#include <cerrno>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::Fixtures;
using Cause = Error::Cause;

TEST(FailureCauseTest, ErrnoNamesAFullDiskAQuotaAndAReadOnlyVolumeOnly)
{
    EXPECT_EQ(FailureCause::fromErrno(ENOSPC), Cause::outOfSpace);
    EXPECT_EQ(FailureCause::fromErrno(EDQUOT), Cause::outOfSpace);
    EXPECT_EQ(FailureCause::fromErrno(EROFS), Cause::readOnlyVolume);
    for (const int other : {0, EIO, EACCES, EPERM, ENOENT})
        EXPECT_EQ(FailureCause::fromErrno(other), Cause::none) << other;
}

TEST(FailureCauseTest, AWriteToAFullDiskAndAReplaceOnAReadOnlyOneCarryTheirCause)
{
    QTemporaryDir dir;
    test::SmallVolume volume(dir.filePath(QStringLiteral("small")), "size=64k");
    if (!volume.mounted())
        GTEST_SKIP() << volume.failure().toStdString();
    ASSERT_TRUE(Fixtures::writeFile(dir.filePath(QStringLiteral("big.bin")), QByteArray(256 * 1024, 'a')));

    // A room to spare: nothing to report.
    EXPECT_EQ(FailureCause::ofVolumeAt(volume.filePath(QStringLiteral("later/book.m4b"))), Cause::none);

    // The copy runs out of room midway.
    try {
        FileRangeCopier::copyFile(dir.filePath(QStringLiteral("big.bin")), volume.filePath(QStringLiteral("copy.bin")), 0600);
        FAIL() << "256 KiB fit on a 64 KiB disk";
    } catch (const MP4FileError& e) {
        EXPECT_EQ(e.cause(), Cause::outOfSpace) << e.description().toStdString();
        EXPECT_TRUE(e.description().contains(QStringLiteral("copy.bin"))) << e.description().toStdString();
    }
    volume.fill();
    EXPECT_EQ(FailureCause::ofVolumeAt(volume.filePath(QStringLiteral("book.m4b"))), Cause::outOfSpace);
    EXPECT_EQ(FailureCause::ofFailedWrite(volume.filePath(QStringLiteral("book.m4b")), EIO), Cause::outOfSpace);
    EXPECT_FALSE(FailureCause::volumeIsReadOnly(volume.path()));

    // Read-only: a replace of a file there is refused with that cause, and
    // the file is left as it was.
    ASSERT_TRUE(QFile::remove(volume.filePath(QStringLiteral("filler"))));
    ASSERT_TRUE(Fixtures::writeFile(volume.filePath(QStringLiteral("Book.m4b")), "the old book"));
    ASSERT_TRUE(volume.remount("ro"));
    EXPECT_TRUE(FailureCause::volumeIsReadOnly(volume.filePath(QStringLiteral("no/such/folder/Book.m4b"))));
    EXPECT_EQ(FailureCause::ofVolumeAt(volume.filePath(QStringLiteral("Book.m4b"))), Cause::readOnlyVolume);
    ASSERT_TRUE(Fixtures::writeFile(dir.filePath(QStringLiteral("new.m4b")), "the new book"));
    try {
        SafeFileReplace::replace(dir.filePath(QStringLiteral("new.m4b")), volume.filePath(QStringLiteral("Book.m4b")));
        FAIL() << "a read-only volume took a new file";
    } catch (const folivox::Error& e) {
        EXPECT_EQ(e.cause(), Cause::readOnlyVolume) << e.description().toStdString();
    }
    EXPECT_EQ(Fixtures::readFile(volume.filePath(QStringLiteral("Book.m4b"))), QByteArray("the old book"));
    EXPECT_TRUE(QFileInfo::exists(dir.filePath(QStringLiteral("new.m4b"))));
}
