// `folivox library` on real audio made by ffmpeg: adding a tree of books
// (disc folders, finished M4Bs, covers, chapter files), adding it again,
// listing, showing, removing and restoring, and the library's recovery and
// lock as another process meets them.
#include "LibraryTestSupport.h"
#include "support/Fixtures.h"

#include "library/files/LibraryPersistence.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;

namespace {

struct CommandRun {
    int exitCode = -1;
    QByteArray out;
    QString err;
    QJsonObject json() const { return QJsonDocument::fromJson(out).object(); }
};

class LibraryIntegrationTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString library() const { return dir.filePath(QStringLiteral("Library")); }
    QString tree() const { return dir.filePath(QStringLiteral("Audiobooks")); }

    CommandRun folivox(const QStringList& args)
    {
        QProcess p;
        p.setProgram(QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("folivox")));
        p.setArguments(QStringList{QStringLiteral("library")} + args + QStringList{QStringLiteral("--library"), library()});
        p.setStandardInputFile(QProcess::nullDevice());
        p.start();
        EXPECT_TRUE(p.waitForFinished(120000));
        CommandRun r;
        r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
        r.out = p.readAllStandardOutput();
        r.err = QString::fromUtf8(p.readAllStandardError());
        return r;
    }

    static bool mp3(const QString& path, const QString& album, int track)
    {
        QDir().mkpath(QFileInfo(path).absolutePath());
        return Fixtures::tone(path, 1.5,
                              {QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), QStringLiteral("64k"),
                               QStringLiteral("-metadata"), QStringLiteral("album=") + album, QStringLiteral("-metadata"),
                               QStringLiteral("artist=Ann Author"), QStringLiteral("-metadata"),
                               QStringLiteral("track=%1").arg(track)},
                              22050, 1);
    }

    void makeTree()
    {
        // Two loose books under an author, one of them on two discs, and a
        // finished M4B with two chapters.
        ASSERT_TRUE(mp3(tree() + "/Ann Author/First Book/01 Opening.mp3", "First Book", 1));
        ASSERT_TRUE(mp3(tree() + "/Ann Author/First Book/02 Ending.mp3", "First Book", 2));
        QImage cover(700, 700, QImage::Format_RGB32);
        cover.fill(Qt::darkGreen);
        ASSERT_TRUE(cover.save(tree() + "/Ann Author/First Book/cover.jpg"));
        // Disc 2 is named so that its files would come first without the disc rule.
        ASSERT_TRUE(mp3(tree() + "/Ann Author/Second Book/CD2/01 c.mp3", "Second Book", 1));
        ASSERT_TRUE(mp3(tree() + "/Ann Author/Second Book/CD1/01 a.mp3", "Second Book", 1));
        ASSERT_TRUE(mp3(tree() + "/Ann Author/Second Book/CD1/02 b.mp3", "Second Book", 2));
        const QString meta = dir.filePath(QStringLiteral("chapters.txt"));
        writeAll(meta, ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=1000\ntitle=One\n"
                       "[CHAPTER]\nTIMEBASE=1/1000\nSTART=1000\nEND=2500\ntitle=Two\n");
        const QString plain = dir.filePath(QStringLiteral("plain.m4a"));
        ASSERT_TRUE(Fixtures::tone(plain, 2.5, {QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"), QStringLiteral("48k")},
                                   22050, 1));
        ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-i"), plain, QStringLiteral("-i"), meta, QStringLiteral("-map_metadata"),
                                      QStringLiteral("1"), QStringLiteral("-map_chapters"), QStringLiteral("1"),
                                      QStringLiteral("-c"), QStringLiteral("copy"), QStringLiteral("-f"), QStringLiteral("ipod"),
                                      tree() + QStringLiteral("/Finished Book.m4b")}));
    }

    QJsonObject bookTitled(const QJsonArray& books, const QString& title)
    {
        for (const QJsonValue& b : books)
            if (b.toObject().value(QStringLiteral("title")).toString() == title)
                return b.toObject();
        ADD_FAILURE() << "no book " << title.toStdString();
        return {};
    }
};

} // namespace

TEST_F(LibraryIntegrationTest, ATreeBecomesOneBookPerLeafAndAddingItAgainAddsNothing)
{
    makeTree();
    const CommandRun first = folivox({QStringLiteral("add"), tree(), QStringLiteral("--json")});
    ASSERT_EQ(first.exitCode, 0) << first.err.toStdString();
    const QJsonObject added = first.json();
    EXPECT_EQ(added.value(QStringLiteral("added")).toArray().size(), 3) << first.out.constData();
    EXPECT_TRUE(added.value(QStringLiteral("refused")).toArray().isEmpty());
    EXPECT_GT(added.value(QStringLiteral("booksPerSecond")).toDouble(), 0);

    const CommandRun again = folivox({QStringLiteral("add"), tree(), tree() + "/Ann Author/Second Book"});
    EXPECT_EQ(again.exitCode, 0) << again.err.toStdString();
    EXPECT_EQ(QString::fromUtf8(again.out).count(QStringLiteral("skipped ")), 4) << again.out.constData();
    EXPECT_FALSE(again.out.contains("added "));

    const CommandRun list = folivox({QStringLiteral("list"), QStringLiteral("--json")});
    ASSERT_EQ(list.exitCode, 0);
    const QJsonArray books = list.json().value(QStringLiteral("books")).toArray();
    ASSERT_EQ(books.size(), 3);

    // The disc book: one book, its tracks in disc order.
    const QJsonObject second = bookTitled(books, QStringLiteral("Second Book"));
    const CommandRun show = folivox({QStringLiteral("show"), second.value(QStringLiteral("shortID")).toString().left(5), QStringLiteral("--json")});
    ASSERT_EQ(show.exitCode, 0) << show.err.toStdString();
    QStringList files;
    for (const QJsonValue& t : show.json().value(QStringLiteral("state")).toObject().value(QStringLiteral("tracks")).toArray())
        files << QUrl(t.toObject().value(QStringLiteral("url")).toString()).toLocalFile().section(u'/', -2);
    EXPECT_EQ(files, (QStringList{"CD1/01 a.mp3", "CD1/02 b.mp3", "CD2/01 c.mp3"}));
    EXPECT_TRUE(show.json().value(QStringLiteral("rebuildDue")).toBool());
    EXPECT_EQ(show.json().value(QStringLiteral("rebuildReasons")).toArray().first().toString(), QStringLiteral("never built"));

    // The cover beside the audio became the book's, with a thumbnail.
    const QJsonObject firstBook = bookTitled(books, QStringLiteral("First Book"));
    EXPECT_TRUE(firstBook.value(QStringLiteral("hasThumb")).toBool());
    EXPECT_TRUE(firstBook.value(QStringLiteral("hasArtwork")).toBool());
    EXPECT_EQ(firstBook.value(QStringLiteral("author")).toString(), QStringLiteral("Ann Author"));
    const QUuid firstID = QUuid::fromString(firstBook.value(QStringLiteral("id")).toString());
    EXPECT_FALSE(QImage(library() + "/books/" + LibraryPersistence::folderName(firstID) + "/assets/thumb.jpg").isNull());

    // The finished M4B is a book of its own, with its embedded chapters.
    const QJsonObject finished = bookTitled(books, QStringLiteral("Finished Book"));
    EXPECT_EQ(finished.value(QStringLiteral("sourceFormats")).toArray(), QJsonArray{QStringLiteral("m4b")});
    const CommandRun shown = folivox({QStringLiteral("show"), finished.value(QStringLiteral("id")).toString()});
    ASSERT_EQ(shown.exitCode, 0) << shown.err.toStdString();
    EXPECT_TRUE(shown.out.contains("1. 0:00:00  One")) << shown.out.constData();
    EXPECT_TRUE(shown.out.contains("2. 0:00:01  Two")) << shown.out.constData();
    EXPECT_TRUE(shown.out.contains("Rebuild due: yes (never built)"));
}

TEST_F(LibraryIntegrationTest, RemoveRestoreRecoveryAttentionAndTheLockAsTheCommandSeesThem)
{
    for (const char* name : {"Alpha", "Beta", "Gamma"})
        ASSERT_TRUE(mp3(tree() + u'/' + QLatin1String(name) + QStringLiteral("/01.mp3"), QLatin1String(name), 1));
    ASSERT_EQ(folivox({QStringLiteral("add"), tree(), QStringLiteral("-q")}).exitCode, 0);
    const auto titles = [this] {
        QStringList t;
        for (const QJsonValue& b : folivox({QStringLiteral("list"), QStringLiteral("--json")}).json().value(QStringLiteral("books")).toArray())
            t << b.toObject().value(QStringLiteral("title")).toString();
        return t;
    };
    ASSERT_EQ(titles(), (QStringList{"Alpha", "Beta", "Gamma"}));
    const QJsonArray books = folivox({QStringLiteral("list"), QStringLiteral("--json")}).json().value(QStringLiteral("books")).toArray();
    const QString beta = books[1].toObject().value(QStringLiteral("id")).toString();

    // Remove, then restore: back at its place.
    const CommandRun removed = folivox({QStringLiteral("remove"), beta.left(8).toLower()});
    ASSERT_EQ(removed.exitCode, 0) << removed.err.toStdString();
    EXPECT_EQ(titles(), (QStringList{"Alpha", "Gamma"}));
    const CommandRun restored = folivox({QStringLiteral("restore"), beta.left(8)});
    ASSERT_EQ(restored.exitCode, 0) << restored.err.toStdString();
    EXPECT_EQ(titles(), (QStringList{"Alpha", "Beta", "Gamma"}));

    // A deleted index comes back with every book.
    QFile::remove(library() + QStringLiteral("/index.json"));
    QFile::remove(library() + QStringLiteral("/index.json.bak"));
    const CommandRun recovered = folivox({QStringLiteral("list"), QStringLiteral("--json")});
    EXPECT_EQ(recovered.json().value(QStringLiteral("indexRecovery")).toString(), QStringLiteral("rebuilt"));
    EXPECT_EQ(titles(), (QStringList{"Alpha", "Beta", "Gamma"}));

    // An undecodable record: show fails naming the set-aside file; the list marks the book.
    const QString record = library() + "/books/" + beta.toUpper() + "/book.json";
    writeAll(record, "{\"schemaVersion\":1,");
    const CommandRun broken = folivox({QStringLiteral("show"), beta.left(8)});
    EXPECT_EQ(broken.exitCode, 1);
    EXPECT_TRUE(broken.err.contains(record + QStringLiteral(".corrupt"))) << broken.err.toStdString();
    const QJsonObject listed = folivox({QStringLiteral("list"), QStringLiteral("--json")}).json();
    EXPECT_TRUE(listed.value(QStringLiteral("books")).toArray()[1].toObject().value(QStringLiteral("needsAttention")).toBool());
    EXPECT_TRUE(folivox({QStringLiteral("list")}).out.contains("[needs attention"));

    // Another holder of the library: refused at once, naming the library.
    {
        LibraryPersistence holder(library());
        QElapsedTimer clock;
        clock.start();
        const CommandRun locked = folivox({QStringLiteral("list")});
        EXPECT_EQ(locked.exitCode, 1);
        EXPECT_TRUE(locked.err.contains(QFileInfo(library()).absoluteFilePath())) << locked.err.toStdString();
        EXPECT_TRUE(locked.err.contains(QStringLiteral("in use by another Folivox process"))) << locked.err.toStdString();
        EXPECT_LT(clock.elapsed(), 20000);
    }
    EXPECT_EQ(folivox({QStringLiteral("list")}).exitCode, 0);

    // Emptying the trash deletes removed books for good.
    ASSERT_EQ(folivox({QStringLiteral("remove"), beta}).exitCode, 0);
    const CommandRun emptied = folivox({QStringLiteral("empty-trash")});
    EXPECT_TRUE(emptied.out.contains("deleted 1 book(s)"));
    EXPECT_NE(folivox({QStringLiteral("restore"), beta}).exitCode, 0);
}
