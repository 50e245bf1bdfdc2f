#include "container/mp3/MP3FileBytes.h"
#include "container/mp3/MP3IntegrityError.h"
#include "container/mp3/MP3IntegrityService.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;

TEST(MP3FileBytesTest, LocalFilesAreMappedRemoteOnesReadUpToTheLimit)
{
    QTemporaryDir dir;
    const QString small = dir.filePath("small.mp3");
    {
        QFile f(small);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(QByteArray(5000, 'x'));
    }
    const MP3FileBytes mapped(small);
    EXPECT_EQ(mapped.access(), MP3FileBytes::Access::mapped);
    EXPECT_EQ(mapped.size(), 5000u);
    const MP3FileBytes read(small, {}, MP3FileBytes::Placement::remote);
    EXPECT_EQ(read.access(), MP3FileBytes::Access::read);
    ASSERT_EQ(read.size(), 5000u);
    EXPECT_EQ(read.data()[4999], 'x');

    // A sparse file one byte over the limit is not read at all.
    const QString large = dir.filePath("large.mp3");
    {
        QFile f(large);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        ASSERT_TRUE(f.resize(MP3FileBytes::kMaxReadBytes + 1));
    }
    const MP3FileBytes tooLarge(large, {}, MP3FileBytes::Placement::remote);
    EXPECT_EQ(tooLarge.access(), MP3FileBytes::Access::tooLarge);
    EXPECT_EQ(tooLarge.data(), nullptr);
    const auto report = MP3IntegrityService::scanFile(large, {}, MP3FileBytes::Placement::remote);
    ASSERT_TRUE(report.has_value());
    EXPECT_EQ(report->verdict, MP3IntegrityVerdict::unknown);
    EXPECT_EQ(report->fileSize, MP3FileBytes::kMaxReadBytes + 1);

    EXPECT_TRUE(MP3FileBytes::isRemoteFileSystemType(0x6969));     // NFS
    EXPECT_TRUE(MP3FileBytes::isRemoteFileSystemType(0x65735546)); // FUSE
    EXPECT_FALSE(MP3FileBytes::isRemoteFileSystemType(0xEF53));    // ext4
    EXPECT_FALSE(MP3FileBytes::isRemoteFileSystemType(0x01021994)); // tmpfs

    try {
        MP3FileBytes missing(dir.filePath("gone.mp3"));
        FAIL() << "no error for a missing file";
    } catch (const MP3IntegrityError& e) {
        EXPECT_TRUE(e.description().contains("gone.mp3")) << e.description().toStdString();
    }
}
