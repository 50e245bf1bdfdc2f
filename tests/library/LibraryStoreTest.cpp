// The store over real library folders: summaries, images through assets,
// autosave coalescing, removal that a late save can't undo, restore at its
// place, builds and attention.
#include "LibraryTestSupport.h"

#include "core/settings/SettingsFingerprint.h"
#include "library/BookBuildInputs.h"
#include "library/BookIdPrefix.h"
#include "library/BuildStatus.h"
#include "library/LibraryAttention.h"
#include "library/LibraryStore.h"

#include <QBuffer>
#include <QImage>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;
using namespace std::chrono_literals;

namespace {

QByteArray png(int w, int h, Qt::GlobalColor color)
{
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

class LibraryStoreTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    std::shared_ptr<LibraryPersistence> persistence = std::make_shared<LibraryPersistence>(dir.filePath("Library"));
    QString sources() const { return dir.filePath(QStringLiteral("sources")); }

    static QList<QUuid> idsOf(const std::vector<LibraryBookSummary>& books)
    {
        QList<QUuid> ids;
        for (const auto& b : books)
            ids << b.id;
        return ids;
    }
};

} // namespace

TEST_F(LibraryStoreTest, SummariesComeFromTheStateAndImagesGoThroughAssets)
{
    LibraryStore store(persistence);
    store.load();
    BookStateDTO s = bookIn(sources(), QStringLiteral("Dune"), 3);
    s.tracks[2] = s.tracks[2].withUrl(QUrl::fromLocalFile(sources() + QStringLiteral("/Dune/03.M4A")));
    writeAll(s.tracks[2].url.toLocalFile(), "x");
    s.bookmarks[2].tracks = {s.tracks[2]};
    s.metadata.author = QStringLiteral("Frank Herbert");
    s.metadata.summary = QStringLiteral("Sand");
    s.metadata.coverImageData = png(1200, 900, Qt::blue);
    s.bookmarks[0].artworkData = png(10, 10, Qt::green);
    store.saveNow(s);

    const LibraryBookSummary sum = *store.summary(s.id);
    EXPECT_EQ(sum.title, QStringLiteral("Dune"));
    EXPECT_EQ(sum.sourceFormats, (QStringList{"m4a", "mp3"}));
    EXPECT_EQ(sum.totalDuration, 60.0 + 120.0 + 180.0);
    EXPECT_EQ(sum.hasArtwork, true);
    EXPECT_TRUE(sum.hasThumb);
    EXPECT_EQ(sum.missingTags, (QStringList{"narrator", "year", "genre", "language"}));
    EXPECT_EQ(sum.settingsFingerprint, SettingsFingerprint::of(s.settings));
    EXPECT_FALSE(sum.needsAttention);
    EXPECT_EQ(sum.builtRevision, 0);
    EXPECT_TRUE(sum.changedSinceBuild());
    EXPECT_EQ(store.findBySource(sources() + QStringLiteral("/Dune")), s.id);

    // The record holds no image bytes; the state read back is the one saved.
    const QByteArray record = readAll(persistence->bookFile(s.id));
    EXPECT_LT(record.size(), s.metadata.coverImageData->size());
    EXPECT_FALSE(record.contains(s.metadata.coverImageData->toBase64().left(40)));
    EXPECT_EQ(store.loadState(s.id), s);
    const QImage thumb = QImage::fromData(readAll(persistence->assetsFolder(s.id) + QStringLiteral("/thumb.jpg")));
    EXPECT_EQ(thumb.width(), 512);
    EXPECT_EQ(thumb.height(), 384);

    // A new cover makes a new thumbnail; no cover, no thumbnail.
    s.metadata.coverImageData = png(100, 200, Qt::red);
    store.saveNow(s);
    EXPECT_EQ(QImage::fromData(readAll(persistence->assetsFolder(s.id) + QStringLiteral("/thumb.jpg"))).size(), QSize(100, 200));
    s.metadata.coverImageData.reset();
    store.saveNow(s);
    EXPECT_FALSE(store.summary(s.id)->hasThumb);
    EXPECT_EQ(store.summary(s.id)->hasArtwork, false);

    // Sources gone: the book needs attention.
    QFile::remove(s.tracks[1].url.toLocalFile());
    store.saveNow(s);
    EXPECT_TRUE(store.summary(s.id)->needsAttention);
}

TEST_F(LibraryStoreTest, AutosaveCoalescesManyChangesIntoOneWrite)
{
    LibraryStore store(persistence, 300ms);
    store.load();
    BookStateDTO s = bookIn(sources(), QStringLiteral("Dune"));
    BookStateDTO t = bookIn(sources(), QStringLiteral("Emma"));
    for (int i = 0; i < 20; ++i) {
        s.revision = i + 1;
        store.save(s);
        if (i % 5 == 0)
            store.save(t);
    }
    EXPECT_EQ(persistence->writeBookCallCount(), 0);
    EXPECT_TRUE(store.hasPendingSave(s.id));
    for (int i = 0; i < 300 && store.hasPendingSave(s.id); ++i)
        QThread::msleep(10);
    for (int i = 0; i < 100 && persistence->saveIndexCallCount() == 0; ++i)
        QThread::msleep(10);
    EXPECT_EQ(persistence->writeBookCallCount(), 2); // one per book
    EXPECT_EQ(persistence->saveIndexCallCount(), 1);
    EXPECT_EQ(persistence->readBook(s.id).state.revision, 20);

    // flush() writes at once.
    s.revision = 21;
    store.save(s);
    store.flush();
    EXPECT_EQ(persistence->readBook(s.id).state.revision, 21);
    EXPECT_EQ(persistence->writeBookCallCount(), 3);
}

TEST_F(LibraryStoreTest, ARemovedBookStaysRemovedWhateverSaveComesLate)
{
    LibraryStore store(persistence, 200ms);
    store.load();
    BookStateDTO s = bookIn(sources(), QStringLiteral("Dune"));
    store.saveNow(s);
    s.revision = 2;
    store.save(s); // pending when the book goes
    const auto removed = store.remove({s.id});
    ASSERT_EQ(removed.size(), 1u);
    EXPECT_TRUE(removed[0].restorable);
    EXPECT_TRUE(store.removedIDs().contains(s.id));
    s.revision = 3;
    store.save(s); // arrives after the removal
    store.saveNow(s);
    QThread::msleep(400);
    store.flush();
    EXPECT_FALSE(QFileInfo::exists(persistence->bookFolder(s.id)));
    EXPECT_FALSE(store.summary(s.id));

    store.restore(removed[0]);
    EXPECT_FALSE(store.removedIDs().contains(s.id));
    EXPECT_EQ(store.loadState(s.id).revision, 1);
    store.save(s);
    store.flush();
    EXPECT_EQ(store.loadState(s.id).revision, 3);
}

TEST_F(LibraryStoreTest, RemoveThenRestoreBringsBooksBackInTheirPlaces)
{
    QList<QUuid> order;
    {
        LibraryStore store(persistence);
        store.load();
        for (const char* t : {"A", "B", "C", "D", "E"}) {
            const BookStateDTO s = bookIn(sources(), QString::fromLatin1(t));
            store.saveNow(s);
            order << s.id;
        }
        // In this process, through the records remove() gives, undone in reverse.
        const auto removed = store.remove({order[3], order[1]});
        EXPECT_EQ(removed[0].index, 3);
        EXPECT_EQ(removed[1].index, 1);
        EXPECT_EQ(idsOf(store.summaries()), (QList<QUuid>{order[0], order[2], order[4]}));
        store.restore(removed[1]);
        store.restore(removed[0]);
        EXPECT_EQ(idsOf(store.summaries()), order);

        store.remove({order[2]});
    }
    persistence.reset();
    // In a later process, from the trash alone.
    persistence = std::make_shared<LibraryPersistence>(dir.filePath("Library"));
    LibraryStore store(persistence);
    store.load(true);
    EXPECT_EQ(store.summaries().size(), 4u);
    EXPECT_EQ(store.trash().keys(), QList<QUuid>{order[2]});
    const QUuid id = BookIdPrefix::resolve(BookIdPrefix::shortForm(order[2]).left(6), store.trash().keys());
    store.restoreFromTrash(id);
    EXPECT_EQ(idsOf(store.summaries()), order);
    EXPECT_TRUE(store.trash().isEmpty());
}

TEST_F(LibraryStoreTest, AnUnreadableRecordIsListedAsNeedingAttention)
{
    QUuid id;
    {
        LibraryStore store(persistence);
        store.load();
        const BookStateDTO s = bookIn(sources(), QStringLiteral("Dune"));
        store.saveNow(s);
        id = s.id;
        EXPECT_FALSE(store.summary(id)->needsAttention);
        writeAll(persistence->bookFile(id), "{ not json");
        EXPECT_THROW(store.loadState(id), LibraryPersistenceError);
        EXPECT_TRUE(store.summary(id)->needsAttention);
    }
    persistence.reset();
    persistence = std::make_shared<LibraryPersistence>(dir.filePath("Library"));
    LibraryStore store(persistence);
    store.load();
    ASSERT_TRUE(store.summary(id));
    EXPECT_TRUE(store.summary(id)->needsAttention);
    EXPECT_EQ(store.summary(id)->title, QStringLiteral("Dune"));
}

TEST_F(LibraryStoreTest, EachKindOfAttentionSaysWhyAndASourceThatCameBackClearsIt)
{
    LibraryStore store(persistence);
    store.load();
    const BookStateDTO fine = bookIn(sources(), QStringLiteral("Fine"));
    const BookStateDTO gone = bookIn(sources(), QStringLiteral("Gone"), 3);
    const BookStateDTO broken = bookIn(sources(), QStringLiteral("Broken"));
    const BookStateDTO newer = bookIn(sources(), QStringLiteral("Newer"));
    for (const BookStateDTO& s : {fine, gone, broken, newer})
        store.saveNow(s);
    EXPECT_FALSE(LibraryAttention::find(store, fine.id));

    // Sources gone: which files, by path.
    const QString missing = gone.tracks[1].url.toLocalFile();
    ASSERT_TRUE(QFile::rename(missing, missing + QStringLiteral(".away")));
    store.refreshAttention(gone.id, true);
    auto a = LibraryAttention::find(store, gone.id);
    ASSERT_TRUE(a);
    EXPECT_EQ(a->kind, LibraryAttention::Kind::sourcesGone);
    EXPECT_EQ(a->missing, QStringList{missing});
    EXPECT_TRUE(a->text().contains(missing)) << a->text().toStdString();

    // A record that can't be decoded is set aside, and the text names the copy.
    writeAll(persistence->bookFile(broken.id), "{ not json");
    EXPECT_THROW(store.loadState(broken.id), LibraryPersistenceError);
    a = LibraryAttention::find(store, broken.id);
    ASSERT_TRUE(a);
    EXPECT_EQ(a->kind, LibraryAttention::Kind::quarantined);
    EXPECT_TRUE(a->text().contains(persistence->bookFile(broken.id) + QStringLiteral(".corrupt"))) << a->text().toStdString();

    // A record of a newer program: left as it is, with its version.
    const QByteArray future = R"({"schemaVersion":3,"state":{}})";
    writeAll(persistence->bookFile(newer.id), future);
    EXPECT_THROW(store.loadState(newer.id), LibraryPersistenceError);
    a = LibraryAttention::find(store, newer.id);
    ASSERT_TRUE(a);
    EXPECT_EQ(a->kind, LibraryAttention::Kind::newerLibrary);
    EXPECT_EQ(a->version, 3);
    EXPECT_TRUE(a->text().contains(QStringLiteral("version 3"))) << a->text().toStdString();
    EXPECT_EQ(readAll(persistence->bookFile(newer.id)), future);

    // The missing file is back: the mark goes, in the index too.
    ASSERT_TRUE(QFile::rename(missing + QStringLiteral(".away"), missing));
    EXPECT_FALSE(LibraryAttention::find(store, gone.id));
    EXPECT_FALSE(store.summary(gone.id)->needsAttention);
    for (const LibraryBookSummary& listed : persistence->readIndex().books) {
        if (listed.id == gone.id) {
            EXPECT_FALSE(listed.needsAttention);
        }
    }
}

TEST_F(LibraryStoreTest, ABuildIsRecordedAndTellsWhenARebuildIsDue)
{
    LibraryStore store(persistence);
    store.load();
    BookStateDTO s = bookIn(sources(), QStringLiteral("Dune"));
    s.revision = 4;
    store.saveNow(s);
    EXPECT_EQ(BuildStatus::rebuildReasons(store.loadState(s.id)), QStringList{"never built"});

    const BookBuildInputs in = store.buildInputs(s.id);
    EXPECT_EQ(in.revision, 4);
    EXPECT_EQ(in.tracks, s.tracks);
    EXPECT_EQ(in.bookmarks, s.bookmarks);
    const QString output = dir.filePath(QStringLiteral("out/Dune.m4b"));
    writeAll(output, QByteArray(1234, 'x'));
    store.recordBuild(s.id, in.record({output}));

    BookStateDTO built = store.loadState(s.id);
    ASSERT_TRUE(built.lastBuild);
    EXPECT_EQ(built.lastBuild->revision, 4);
    EXPECT_EQ(built.lastBuild->outputs[0].size, 1234u);
    // The chapters built, on the book's own clock, with their first tracks.
    ASSERT_EQ(built.lastBuild->chapters.size(), s.bookmarks.size());
    EXPECT_EQ(built.lastBuild->chapters[1].title, s.bookmarks[1].title);
    EXPECT_DOUBLE_EQ(built.lastBuild->chapters[1].startTime, s.bookmarks[0].duration);
    EXPECT_DOUBLE_EQ(built.lastBuild->chapters[1].duration, s.bookmarks[1].duration);
    EXPECT_EQ(built.lastBuild->chapters[1].firstTrackURL, s.bookmarks[1].tracks.front().url);
    EXPECT_TRUE(BuildStatus::rebuildReasons(built).isEmpty());
    const LibraryBookSummary sum = *store.summary(s.id);
    EXPECT_EQ(sum.builtRevision, 4);
    EXPECT_EQ(sum.lastBuildOutputPath, QFileInfo(output).absoluteFilePath());
    EXPECT_EQ(sum.lastBuildFormat, QStringLiteral("m4b"));
    EXPECT_FALSE(sum.changedSinceBuild());

    built.revision = 5;
    built.settings.cbrBitrateKbps = 64;
    store.saveNow(built);
    EXPECT_TRUE(store.summary(s.id)->changedSinceBuild());
    writeAll(output, QByteArray(10, 'y'));
    const QStringList reasons = BuildStatus::rebuildReasons(store.loadState(s.id));
    EXPECT_EQ(reasons.size(), 3);
    EXPECT_TRUE(reasons.contains(QStringLiteral("edited since the last build (revision 5, built 4)")));
    EXPECT_TRUE(reasons.contains(QStringLiteral("export settings changed since the last build")));
    EXPECT_TRUE(reasons.contains(QStringLiteral("output changed on disk: ") + QFileInfo(output).absoluteFilePath()));
    QFile::remove(output);
    EXPECT_TRUE(BuildStatus::rebuildReasons(store.loadState(s.id)).contains(QStringLiteral("output missing: ")
                                                                           + QFileInfo(output).absoluteFilePath()));
}

TEST(BookIdPrefixTest, AUniquePrefixNamesOneBook)
{
    const QUuid a = QUuid::fromString(QStringLiteral("ABCDEF01-0000-0000-0000-000000000001"));
    const QUuid b = QUuid::fromString(QStringLiteral("ABCDEF02-0000-0000-0000-000000000002"));
    EXPECT_EQ(BookIdPrefix::resolve(QStringLiteral("abcdef01"), {a, b}), a);
    EXPECT_EQ(BookIdPrefix::resolve(QStringLiteral("{ABCDEF02-0000-0000-0000-000000000002}"), {a, b}), b);
    try {
        BookIdPrefix::resolve(QStringLiteral("abc"), {a, b});
        FAIL();
    } catch (const Error& e) {
        EXPECT_TRUE(e.description().contains(QStringLiteral("fits 2 books"))) << e.description().toStdString();
    }
    EXPECT_THROW(BookIdPrefix::resolve(QStringLiteral("0"), {a, b}), Error);
    EXPECT_THROW(BookIdPrefix::resolve(QString(), {a, b}), Error);
}
