// `folivox build --book`: a library book is built from its saved state, and
// the build is recorded on it, so the library can tell when it is due again.
#include "library/files/LibraryPersistence.h"
#include "library/LibraryStore.h"
#include "support/CommandRunner.h"
#include "support/Fixtures.h"
#include "support/MediaReaders.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::CommandRun;
using folivox::test::CommandRunner;
using folivox::test::Fixtures;

TEST(LibraryBookBuild, AnEditedBookIsDueThenBuiltAtItsRevisionWithTheEditedTags)
{
    if (CommandRunner::folivoxBinary().isEmpty())
        GTEST_SKIP() << "the folivox command is not built";
    QTemporaryDir dir;
    for (const char* name : {"Book/01.mp3", "Book/02.mp3"})
        ASSERT_TRUE(Fixtures::tone(dir.filePath(QString::fromLatin1(name)), 2.0,
                                   {QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), QStringLiteral("64k")},
                                   44100, 1));
    const QString library = dir.filePath(QStringLiteral("lib"));
    const CommandRun added = CommandRunner::run({QStringLiteral("library"), QStringLiteral("add"), dir.filePath(QStringLiteral("Book")),
                                                 QStringLiteral("--library"), library, QStringLiteral("-q")},
                                                dir.path());
    ASSERT_EQ(added.exitCode, 0) << added.errText().toStdString();

    // Edit a tag, as the window will, through the store.
    QUuid id;
    int revision = 0;
    {
        LibraryStore store(std::make_shared<LibraryPersistence>(library));
        store.load();
        ASSERT_EQ(store.summaries().size(), 1u);
        id = store.summaries().front().id;
        BookStateDTO state = store.loadState(id);
        state.metadata.title = QStringLiteral("Edited Title");
        state.revision += 1;
        revision = state.revision;
        store.saveNow(state);
    }
    const QString idText = id.toString(QUuid::WithoutBraces).left(6);
    const auto show = [&] {
        return CommandRunner::run({QStringLiteral("library"), QStringLiteral("show"), idText, QStringLiteral("--json"),
                                   QStringLiteral("--library"), library},
                                  dir.path())
            .json();
    };
    EXPECT_TRUE(show().value(QStringLiteral("rebuildDue")).toBool());

    const QString book = dir.filePath(QStringLiteral("out.m4b"));
    const CommandRun built = CommandRunner::run({QStringLiteral("build"), QStringLiteral("--book"), idText, QStringLiteral("--library"),
                                                 library, QStringLiteral("-o"), book, QStringLiteral("--json")},
                                                dir.path());
    ASSERT_EQ(built.exitCode, 0) << built.errText().toStdString();
    EXPECT_EQ(built.json().value(QStringLiteral("chapters")).toArray().size(), 2);
    const QJsonObject tags = test::MediaReaders::ffprobe(book).value(QStringLiteral("format")).toObject().value(QStringLiteral("tags")).toObject();
    EXPECT_EQ(tags.value(QStringLiteral("title")).toString(), QStringLiteral("Edited Title"));

    const QJsonObject after = show();
    EXPECT_FALSE(after.value(QStringLiteral("rebuildDue")).toBool()) << QJsonDocument(after).toJson().toStdString();
    LibraryStore store(std::make_shared<LibraryPersistence>(library));
    store.load();
    const BookStateDTO state = store.loadState(id);
    ASSERT_TRUE(state.lastBuild.has_value());
    EXPECT_EQ(state.lastBuild->revision, revision);
    ASSERT_EQ(state.lastBuild->outputs.size(), 1u);
    EXPECT_EQ(state.lastBuild->outputs.front().path, book);
}
