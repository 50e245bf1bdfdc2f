// Putting a finished book in the user's place, the lock that keeps two
// builds off one output, and the sweep of what killed builds left beside it.
#include "container/io/FaultInjection.h"
#include "export/engine/DestinationWritability.h"
#include "export/engine/ExportError.h"
#include "process/ManualCancellationToken.h"
#include "export/engine/OutputLock.h"
#include "export/engine/OutputPlacement.h"
#include "export/engine/EngineTestSupport.h"
#include "platform/FileLock.h"
#include "support/Fixtures.h"
#include "support/SmallVolume.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace folivox;
using folivox::test::Fixtures;

namespace {

QStringList entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

mode_t modeOf(const QString& path)
{
    struct stat st{};
    ::stat(QFile::encodeName(path).constData(), &st);
    return st.st_mode & 07777;
}

} // namespace

TEST(OutputPlacementTest, ARenameReplacesTheOldBookWithItsModeAndLeavesNothingBeside)
{
    QTemporaryDir work;
    QTemporaryDir shelf;
    const QString finished = work.filePath(QStringLiteral("book.m4b"));
    const QString target = shelf.filePath(QStringLiteral("Book.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(finished, "the new book"));
    ASSERT_TRUE(Fixtures::writeFile(target, "the old book"));
    ASSERT_TRUE(QFile::setPermissions(target, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup));

    OutputPlacement::put(finished, target, CancellationToken::never());
    EXPECT_EQ(Fixtures::readFile(target), QByteArray("the new book"));
    EXPECT_EQ(modeOf(target), mode_t(0640));
    EXPECT_FALSE(QFileInfo::exists(finished));
    EXPECT_EQ(entriesOf(shelf.path()), QStringList{QStringLiteral("Book.m4b")});

    // A link at the output is replaced as a name; the file it points to stays.
    const QString elsewhere = work.filePath(QStringLiteral("elsewhere.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(elsewhere, "linked book"));
    const QString link = shelf.filePath(QStringLiteral("Link.m4b"));
    ASSERT_TRUE(QFile::link(elsewhere, link));
    ASSERT_TRUE(Fixtures::writeFile(finished, "newer"));
    OutputPlacement::put(finished, link, CancellationToken::never());
    EXPECT_FALSE(QFileInfo(link).isSymLink());
    EXPECT_EQ(Fixtures::readFile(link), QByteArray("newer"));
    EXPECT_EQ(Fixtures::readFile(elsewhere), QByteArray("linked book"));
}

TEST(OutputPlacementTest, AFolderThatRefusesTheNewNameLeavesTheOldBookUntouched)
{
    QTemporaryDir work;
    QTemporaryDir top;
    const QString shelf = top.filePath(QStringLiteral("Shelf"));
    const QString target = QDir(shelf).filePath(QStringLiteral("Book.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(target, "the old book"));
    const QString finished = work.filePath(QStringLiteral("book.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(finished, "the new book"));
    if (!test::makeFolderRefuseNewEntries(shelf))
        GTEST_SKIP() << "cannot make a folder refuse new files here";
    try {
        OutputPlacement::put(finished, target, CancellationToken::never());
        ADD_FAILURE() << "the put must fail";
    } catch (const ExportError& e) {
        EXPECT_TRUE(e.description().startsWith(QStringLiteral("Folivox can't put the finished book into “Shelf”")))
            << e.description().toStdString();
    }
    const QStringList entries = entriesOf(shelf);
    test::allowNewEntries(shelf);
    EXPECT_EQ(Fixtures::readFile(target), QByteArray("the old book"));
    EXPECT_EQ(entries, QStringList{QStringLiteral("Book.m4b")});
    EXPECT_TRUE(QFileInfo::exists(finished));
}

TEST(OutputPlacementTest, FromAnotherVolumeTheOldBookStaysWholeUntilTheNewOneIsComplete)
{
    // A small tmpfs of its own, so that the put crosses volumes.
    QTemporaryDir work;
    const test::SmallVolume volume(work.filePath(QStringLiteral("shelf")), "size=8m");
    if (!volume.mounted())
        GTEST_SKIP() << volume.failure().toStdString();
    const QString finished = work.filePath(QStringLiteral("book.m4b"));
    QByteArray book(6 * 1024 * 1024, 'n'); // two pieces of the copier and a bit
    ASSERT_TRUE(Fixtures::writeFile(finished, book));
    const QString target = volume.filePath(QStringLiteral("Book.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(target, "the old book"));

    // Stopped in the middle of the copy, as a crash would stop it.
    {
        FaultInjection::Scope fault([](const QString& point) {
            if (point == QLatin1String("export.incoming.piece"))
                throw GenericError(QStringLiteral("stopped"));
        });
        EXPECT_THROW(OutputPlacement::put(finished, target, CancellationToken::never()), GenericError);
    }
    EXPECT_EQ(Fixtures::readFile(target), QByteArray("the old book"));
    EXPECT_EQ(entriesOf(volume.path()), QStringList{QStringLiteral("Book.m4b")});

    // Cancelled during the copy: nothing changes either.
    ManualCancellationToken cancelled;
    cancelled.cancel();
    try {
        OutputPlacement::put(finished, target, cancelled);
        ADD_FAILURE() << "a cancelled copy must stop";
    } catch (const ExportError& e) {
        EXPECT_EQ(e.kind(), ExportError::Kind::cancelled);
    }
    EXPECT_EQ(Fixtures::readFile(target), QByteArray("the old book"));

    // While the copy is written it is locked: a sweep leaves it alone.
    int sweptDuringCopy = -1;
    QStringList seenDuringCopy;
    {
        FaultInjection::Scope watch([&](const QString& point) {
            if (point == QLatin1String("export.incoming.complete")) {
                seenDuringCopy = entriesOf(volume.path());
                sweptDuringCopy = OutputPlacement::sweepAbandoned(volume.path());
            }
        });
        OutputPlacement::put(finished, target, CancellationToken::never());
    }
    EXPECT_EQ(sweptDuringCopy, 0);
    EXPECT_EQ(seenDuringCopy.size(), 2);
    EXPECT_EQ(Fixtures::readFile(target), book);
    EXPECT_EQ(entriesOf(volume.path()), QStringList{QStringLiteral("Book.m4b")});
    EXPECT_FALSE(QFileInfo::exists(finished));
}

TEST(OutputPlacementTest, TheSweepRemovesOnlyProbesAndCopiesWhoseWriterIsGone)
{
    QTemporaryDir shelf;
    const QString deadProbe = shelf.filePath(QStringLiteral(".folivox-write-probe-aaaa"));
    const QString deadCopy = shelf.filePath(QStringLiteral(".folivox-incoming-bbbb"));
    const QString liveCopy = shelf.filePath(QStringLiteral(".folivox-incoming-cccc"));
    const QString users = shelf.filePath(QStringLiteral(".folivox-notes"));
    for (const QString& f : {deadProbe, deadCopy, users})
        ASSERT_TRUE(Fixtures::writeFile(f, "x"));
    FileLock live = FileLock::tryAcquire(liveCopy, FileLock::Open::createNew);
    ASSERT_TRUE(live.isHeld());

    EXPECT_EQ(OutputPlacement::sweepAbandoned(shelf.path()), 2);
    EXPECT_EQ(entriesOf(shelf.path()), (QStringList{QStringLiteral(".folivox-incoming-cccc"), QStringLiteral(".folivox-notes")}));
    live.removeAndRelease();
    EXPECT_EQ(entriesOf(shelf.path()), QStringList{QStringLiteral(".folivox-notes")});
}

TEST(OutputLockTest, OneBuildPerOutputWhateverTheSpellingAndNothingLeftAfter)
{
    QTemporaryDir shelf;
    QDir().mkpath(shelf.filePath(QStringLiteral("a")));
    const QString output = shelf.filePath(QStringLiteral("Book.m4b"));
    const QString lockFile = OutputLock::lockFileFor(output);
    EXPECT_EQ(OutputLock::lockFileFor(shelf.filePath(QStringLiteral("a/../Book.m4b"))), lockFile);
    EXPECT_NE(OutputLock::lockFileFor(shelf.filePath(QStringLiteral("Other.m4b"))), lockFile);
    EXPECT_FALSE(lockFile.startsWith(shelf.path())) << "nothing is written beside the output";
    {
        OutputLock first = OutputLock::acquire(output);
        ASSERT_TRUE(first.isHeld());
        EXPECT_EQ(OutputLock::holderOf(output), std::optional<qint64>(::getpid()));
        try {
            OutputLock::acquire(shelf.filePath(QStringLiteral("a/../Book.m4b")));
            ADD_FAILURE() << "a second lock on one output must be refused";
        } catch (const ExportError& e) {
            EXPECT_EQ(e.kind(), ExportError::Kind::validationFailed);
            EXPECT_TRUE(e.description().contains(QStringLiteral("(process %1)").arg(::getpid())));
            EXPECT_TRUE(e.description().contains(QFileInfo(shelf.path()).canonicalFilePath() + QStringLiteral("/Book.m4b")));
        }
        // Another output in the same folder is free.
        EXPECT_TRUE(OutputLock::acquire(shelf.filePath(QStringLiteral("Other.m4b"))).isHeld());
    }
    EXPECT_FALSE(QFileInfo::exists(lockFile));
    EXPECT_FALSE(OutputLock::holderOf(output).has_value());

    // A lock file a killed build left (nobody holds it) does not block, and
    // the sweep takes it away; a held one stays.
    ASSERT_TRUE(Fixtures::writeFile(lockFile, "999999\n"));
    EXPECT_TRUE(OutputLock::acquire(output).isHeld());
    EXPECT_FALSE(QFileInfo::exists(lockFile));
    ASSERT_TRUE(Fixtures::writeFile(lockFile, "999999\n"));
    {
        OutputLock other = OutputLock::acquire(shelf.filePath(QStringLiteral("Other.m4b")));
        EXPECT_GE(OutputLock::sweepAbandoned(), 1);
        EXPECT_FALSE(QFileInfo::exists(lockFile));
        EXPECT_TRUE(QFileInfo::exists(OutputLock::lockFileFor(shelf.filePath(QStringLiteral("Other.m4b")))));
    }
}
