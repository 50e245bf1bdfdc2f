// The library's files on a real disk: schema checks, quarantine, assets,
// thumbnails, the index with its backup and recovery, the trash, the lock,
// and a process killed at every step of a save.
#include "LibraryTestSupport.h"

#include "core/json/JsonReader.h"
#include "library/files/LibraryLockError.h"
#include "library/files/LibraryPersistence.h"
#include "library/LibraryStore.h"
#include "platform/Log.h"

#include <QBuffer>
#include <QColor>
#include <QImage>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;

namespace {

class LibraryPersistenceTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString root() const { return dir.filePath(QStringLiteral("Library")); }
    QString sources() const { return dir.filePath(QStringLiteral("sources")); }

    StoredBook stored(const BookStateDTO& s)
    {
        StoredBook b;
        b.state = s;
        return b;
    }
};

} // namespace

TEST_F(LibraryPersistenceTest, BookFromANewerSchemaIsLeftUntouchedAndReported)
{
    LibraryPersistence p(root());
    const BookStateDTO s = bookIn(sources(), QStringLiteral("Dune"));
    p.writeBook(s.id, stored(s));
    QJsonObject newer = JsonReader::parseObject(readAll(p.bookFile(s.id)));
    newer.insert(QStringLiteral("schemaVersion"), 2);
    newer.insert(QStringLiteral("state"), QStringLiteral("a shape this program does not know"));
    const QByteArray bytes = QJsonDocument(newer).toJson();
    writeAll(p.bookFile(s.id), bytes);

    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            p.readBook(s.id);
            FAIL() << "read a newer book";
        } catch (const LibraryPersistenceError& e) {
            EXPECT_EQ(e.kind(), LibraryPersistenceError::Kind::newerLibrary);
            EXPECT_EQ(e.version(), 2);
            EXPECT_TRUE(e.description().contains(p.bookFile(s.id))) << e.description().toStdString();
        }
    }
    EXPECT_EQ(p.newerLibraryVersion(), 2);
    EXPECT_EQ(readAll(p.bookFile(s.id)), bytes);
    EXPECT_FALSE(QFileInfo::exists(p.bookFile(s.id) + QStringLiteral(".corrupt")));

    // A version no program writes is refused and kept as well.
    newer.insert(QStringLiteral("schemaVersion"), 0);
    writeAll(p.bookFile(s.id), QJsonDocument(newer).toJson());
    try {
        p.readBook(s.id);
        FAIL() << "read schema 0";
    } catch (const LibraryPersistenceError& e) {
        EXPECT_EQ(e.kind(), LibraryPersistenceError::Kind::unsupportedSchema);
    }
    EXPECT_TRUE(QFileInfo::exists(p.bookFile(s.id)));
}

TEST_F(LibraryPersistenceTest, UndecodableBookIsQuarantinedAndASecondOneReplacesTheFirst)
{
    LibraryPersistence p(root());
    const BookStateDTO s = bookIn(sources(), QStringLiteral("Dune"));
    p.writeBook(s.id, stored(s), {{QStringLiteral("cover-1.jpg"), QByteArray("image")}});
    const QString corrupt = p.bookFile(s.id) + QStringLiteral(".corrupt");

    writeAll(p.bookFile(s.id), "{\"schemaVersion\":1,\"state\":{\"id\":");
    LogCapture log;
    try {
        p.readBook(s.id);
        FAIL() << "read a broken book";
    } catch (const LibraryPersistenceError& e) {
        EXPECT_EQ(e.kind(), LibraryPersistenceError::Kind::quarantined);
        EXPECT_EQ(e.bookID(), s.id);
        EXPECT_TRUE(e.description().contains(corrupt));
    }
    EXPECT_FALSE(QFileInfo::exists(p.bookFile(s.id)));
    EXPECT_EQ(readAll(corrupt), QByteArray("{\"schemaVersion\":1,\"state\":{\"id\":"));
    EXPECT_TRUE(QFileInfo::exists(p.assetsFolder(s.id) + QStringLiteral("/cover-1.jpg")));
    EXPECT_TRUE(log.contains(QStringLiteral("[Library] record ")));

    // Reading again still says quarantined, not "not found".
    try {
        p.readBook(s.id);
        FAIL();
    } catch (const LibraryPersistenceError& e) {
        EXPECT_EQ(e.kind(), LibraryPersistenceError::Kind::quarantined);
    }

    // A decodable JSON with a missing key is just as unreadable; its copy replaces the first.
    writeAll(p.bookFile(s.id), "{\"schemaVersion\":1,\"assetRefs\":{}}");
    EXPECT_THROW(p.readBook(s.id), LibraryPersistenceError);
    EXPECT_EQ(readAll(corrupt), QByteArray("{\"schemaVersion\":1,\"assetRefs\":{}}"));

    try {
        p.readBook(QUuid::createUuid());
        FAIL();
    } catch (const LibraryPersistenceError& e) {
        EXPECT_EQ(e.kind(), LibraryPersistenceError::Kind::bookNotFound);
    }
}

TEST_F(LibraryPersistenceTest, AssetsAreWrittenOnceAndThumbnailsReplaced)
{
    LibraryPersistence p(root());
    BookStateDTO s = bookIn(sources(), QStringLiteral("Dune"));
    StoredBook b = stored(s);
    b.assetRefs.insert(QStringLiteral("cover"), QStringLiteral("cover-a.jpg"));
    p.writeBook(s.id, b, {{QStringLiteral("cover-a.jpg"), QByteArray("first")}});
    EXPECT_EQ(p.writeBookCallCount(), 1);
    p.writeBook(s.id, b, {{QStringLiteral("cover-a.jpg"), QByteArray("second")}});
    EXPECT_EQ(readAll(p.assetsFolder(s.id) + QStringLiteral("/cover-a.jpg")), QByteArray("first"));
    EXPECT_EQ(p.writeBookCallCount(), 2);
    EXPECT_EQ(p.readBook(s.id).assetRefs.value(QStringLiteral("cover")), QStringLiteral("cover-a.jpg"));

    p.writeThumbnail(s.id, "jpeg one", QStringLiteral("cover-a.jpg"));
    p.writeThumbnail(s.id, "jpeg two", QStringLiteral("cover-b.jpg"));
    EXPECT_EQ(readAll(p.assetsFolder(s.id) + QStringLiteral("/thumb.jpg")), QByteArray("jpeg two"));
    EXPECT_EQ(p.thumbnailSource(s.id), QStringLiteral("cover-b.jpg"));
    EXPECT_TRUE(p.hasThumbnail(s.id));
}

TEST_F(LibraryPersistenceTest, IndexKeepsABackupAndANewerIndexMakesTheLibraryReadOnly)
{
    {
        LibraryPersistence p(root());
        IndexFile index;
        const BookStateDTO a = bookIn(sources(), QStringLiteral("A"));
        index.books.push_back(LibraryBookSummary::from(a, false, false));
        p.saveIndex(index);
        EXPECT_EQ(p.readIndex().books.size(), 1u);
        index.books.push_back(LibraryBookSummary::from(bookIn(sources(), QStringLiteral("B")), false, false));
        p.saveIndex(index);
        EXPECT_EQ(p.saveIndexCallCount(), 2);
        // The backup is the index as it was before the last save.
        const IndexFile bak = IndexFile::fromJson(JsonReader::parseObject(readAll(p.indexBakURL())));
        EXPECT_EQ(bak.books.size(), 1u);
        EXPECT_EQ(bak.books[0].title, QStringLiteral("A"));
    }
    const QByteArray newer = "{\"schemaVersion\":3,\"books\":\"unknown shape\"}";
    writeAll(root() + QStringLiteral("/index.json"), newer);
    LibraryPersistence p(root());
    const IndexFile index = p.readIndex();
    EXPECT_TRUE(p.indexIsNewer());
    EXPECT_EQ(p.newerLibraryVersion(), 3);
    EXPECT_TRUE(index.books.empty());
    EXPECT_THROW(p.saveIndex(IndexFile{}), LibraryPersistenceError);
    const BookStateDTO c = bookIn(sources(), QStringLiteral("C"));
    EXPECT_THROW(p.writeBook(c.id, stored(c)), LibraryPersistenceError);
    EXPECT_EQ(readAll(p.indexURL()), newer);
}

TEST_F(LibraryPersistenceTest, ALostIndexIsRecoveredWithEveryBook)
{
    QList<QUuid> ids;
    {
        auto p = std::make_shared<LibraryPersistence>(root());
        LibraryStore store(p);
        store.load();
        for (const char* title : {"First", "Second", "Third"}) {
            const BookStateDTO s = bookIn(sources(), QString::fromLatin1(title));
            store.saveNow(s);
            ids << s.id;
        }
    }
    // Deleted, with its backup: rebuilt from the book folders, in the order made.
    QFile::remove(root() + QStringLiteral("/index.json"));
    QFile::remove(root() + QStringLiteral("/index.json.bak"));
    {
        auto p = std::make_shared<LibraryPersistence>(root());
        LibraryStore store(p);
        store.load();
        EXPECT_EQ(p->lastIndexRecovery(), LibraryPersistence::IndexRecovery::rebuilt);
        const auto books = store.summaries();
        ASSERT_EQ(books.size(), 3u);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(books[static_cast<size_t>(i)].id, ids[i]);
        EXPECT_EQ(books[1].title, QStringLiteral("Second"));
        EXPECT_TRUE(QFileInfo::exists(p->indexURL()));
        // A fourth book, then a garbled index: the backup (which lacks the
        // fourth) is brought up to date from the folders.
        const BookStateDTO s = bookIn(sources(), QStringLiteral("Fourth"));
        store.saveNow(s);
        ids << s.id;
        BookStateDTO renamed = store.loadState(ids[0]);
        renamed.metadata.title = QStringLiteral("First, renamed");
        store.saveNow(renamed);
    }
    writeAll(root() + QStringLiteral("/index.json"), "garbage");
    {
        auto p = std::make_shared<LibraryPersistence>(root());
        LibraryStore store(p);
        store.load();
        EXPECT_EQ(p->lastIndexRecovery(), LibraryPersistence::IndexRecovery::fromBackup);
        const auto books = store.summaries();
        ASSERT_EQ(books.size(), 4u);
        QList<QUuid> got;
        for (const auto& b : books)
            got << b.id;
        EXPECT_EQ(got, ids);
        EXPECT_EQ(books[0].title, QStringLiteral("First, renamed"));
        EXPECT_EQ(readAll(root() + QStringLiteral("/index.json.corrupt")), QByteArray("garbage"));
    }
}

TEST_F(LibraryPersistenceTest, TrashAndRestoreMoveTheFolderAndLogFailures)
{
    LibraryPersistence p(root());
    const BookStateDTO s = bookIn(sources(), QStringLiteral("Dune"));
    p.writeBook(s.id, stored(s));
    QJsonObject record;
    record.insert(QStringLiteral("index"), 4);
    p.trashBook(s.id, record);
    EXPECT_FALSE(QFileInfo::exists(p.bookFolder(s.id)));
    EXPECT_TRUE(QFileInfo::exists(p.trashURL() + u'/' + LibraryPersistence::folderName(s.id) + QStringLiteral("/book.json")));
    EXPECT_EQ(p.trashedBooks().value(s.id).value(QStringLiteral("index")).toInt(), 4);

    LogCapture log;
    EXPECT_THROW(p.trashBook(s.id, {}), LibraryPersistenceError);
    EXPECT_TRUE(log.contains(QStringLiteral("[Library] could not trash record ") + LibraryPersistence::folderName(s.id) + QStringLiteral(": ")));

    EXPECT_EQ(p.restoreBook(s.id).value(QStringLiteral("index")).toInt(), 4);
    EXPECT_EQ(p.readBook(s.id).state.metadata.title, QStringLiteral("Dune"));
    EXPECT_THROW(p.restoreBook(s.id), LibraryPersistenceError);
    EXPECT_TRUE(log.contains(QStringLiteral("[Library] could not restore record ") + LibraryPersistence::folderName(s.id) + QStringLiteral(": ")));

    p.trashBook(s.id, {});
    EXPECT_EQ(p.emptyTrash(), 1);
    EXPECT_TRUE(QDir(p.trashURL()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).isEmpty());
}

TEST_F(LibraryPersistenceTest, ASecondHolderIsRefusedAtOnceNamingTheLibrary)
{
    LibraryPersistence first(root());
    try {
        LibraryPersistence second(root());
        FAIL() << "two holders of one library";
    } catch (const LibraryLockError& e) {
        EXPECT_EQ(e.kind(), LibraryLockError::Kind::heldByAnotherProcess);
        EXPECT_TRUE(e.description().contains(QFileInfo(root()).absoluteFilePath())) << e.description().toStdString();
        EXPECT_TRUE(e.description().contains(QString::number(::getpid()))) << e.description().toStdString();
    }
    // A file where the folder should be.
    writeAll(dir.filePath(QStringLiteral("plain")), "x");
    try {
        LibraryPersistence p(dir.filePath(QStringLiteral("plain")));
        FAIL();
    } catch (const LibraryPersistenceError& e) {
        EXPECT_EQ(e.kind(), LibraryPersistenceError::Kind::rootUnavailable);
    }
}

TEST_F(LibraryPersistenceTest, AProcessKilledAtAnyStepOfASaveLeavesTheLastCompleteFiles)
{
    BookStateDTO s = bookIn(sources(), QStringLiteral("Dune"));
    {
        auto p = std::make_shared<LibraryPersistence>(root());
        LibraryStore store(p);
        store.load();
        store.saveNow(s);
        store.saveNow(s); // an index with a backup
    }
    QImage image(40, 30, QImage::Format_RGB32);
    image.fill(Qt::red);
    const QStringList points{"library.asset.staged", "library.asset.replaced", "library.book.staged",
                             "library.book.replaced", "library.thumb.staged", "library.thumb.replaced",
                             "library.thumbsrc.staged", "library.thumbsrc.replaced", "library.indexBackup.staged",
                             "library.indexBackup.replaced", "library.index.staged", "library.index.replaced"};
    int revision = s.revision;
    for (const QString& point : points) {
        SCOPED_TRACE(point.toStdString());
        BookStateDTO next = s;
        next.revision = revision + 1;
        next.metadata.title = QStringLiteral("Dune r%1").arg(next.revision);
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        image.fill(QColor::fromHsv(next.revision * 20 % 360, 200, 200));
        image.save(&buffer, "PNG");
        next.metadata.coverImageData = png;
        const bool died = killedAt(point, 1, [&] {
            auto p = std::make_shared<LibraryPersistence>(root());
            LibraryStore store(p);
            store.load();
            store.saveNow(next);
        });
        ASSERT_TRUE(died);

        auto p = std::make_shared<LibraryPersistence>(root());
        EXPECT_TRUE(QDir(root() + QStringLiteral("/.staging")).isEmpty());
        LibraryStore store(p);
        store.load();
        EXPECT_EQ(p->lastIndexRecovery(), LibraryPersistence::IndexRecovery::none);
        const auto listed = store.summary(s.id);
        ASSERT_TRUE(listed);
        const BookStateDTO onDisk = store.loadState(s.id);
        EXPECT_TRUE(onDisk.revision == revision || onDisk.revision == revision + 1) << onDisk.revision;
        // The index never runs ahead of the record, and reading the record
        // brings a summary that lags (killed before the index save) up to date.
        EXPECT_LE(listed->revision, onDisk.revision);
        EXPECT_EQ(store.summary(s.id)->revision, onDisk.revision);
        EXPECT_EQ(store.summary(s.id)->title, onDisk.metadata.title);
        revision = onDisk.revision;
        s = onDisk;
    }
    // The last points lie after book.json was replaced: the new record is there.
    EXPECT_GT(revision, 1);
}
