// LastSession.json: a saved book reads back as it was; a damaged file is set
// aside and never stops the start.
#include "app/book/WorkingStateError.h"
#include "app/book/WorkingStateStore.h"
#include "main/WindowDriver.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::Fixtures;

TEST(WorkingStateStore, SavesReadsBackAndSetsADamagedFileAside)
{
    QTemporaryDir dir;
    const WorkingStateStore store(dir.filePath(QStringLiteral("LastSession.json")));
    EXPECT_FALSE(store.load().state.has_value()); // nothing saved: nothing, and no problem
    EXPECT_TRUE(store.load().problem.isEmpty());

    BookStateDTO state = BookStateDTO::makeNew();
    Track t;
    t.url = QUrl::fromLocalFile(QStringLiteral("/books/a.mp3"));
    t.title = QStringLiteral("a");
    t.duration = 12.5;
    state.tracks = {t};
    Bookmark b;
    b.title = QStringLiteral("Only Chapter");
    b.tracks = {t};
    b.duration = 12.5;
    state.bookmarks = {b};
    state.metadata.title = QStringLiteral("Saved");
    state.settings.outputFormat = OutputFormat::m4a;
    store.save(state);
    const auto loaded = store.load();
    ASSERT_TRUE(loaded.state.has_value());
    EXPECT_EQ(*loaded.state, state);

    for (const QByteArray& damage : {QByteArray("{\"id\": "), QByteArray("[1, 2]"), QByteArray("{\"id\": \"x\"}")}) {
        ASSERT_TRUE(Fixtures::writeFile(store.path(), damage));
        const auto broken = store.load();
        EXPECT_FALSE(broken.state.has_value());
        EXPECT_FALSE(broken.problem.isEmpty());
        EXPECT_FALSE(QFile::exists(store.path()));
        ASSERT_TRUE(QFile::exists(broken.setAsidePath));
        EXPECT_EQ(Fixtures::readFile(broken.setAsidePath), damage);
        QFile::remove(broken.setAsidePath);
    }

    store.clear();
    EXPECT_FALSE(QFile::exists(store.path()));
    // A folder where the file should go: the save fails with the path named.
    ASSERT_TRUE(QDir().mkpath(store.path()));
    try {
        store.save(state);
        FAIL() << "saving over a folder succeeded";
    } catch (const WorkingStateError& e) {
        EXPECT_TRUE(e.description().contains(store.path()));
    }
}
