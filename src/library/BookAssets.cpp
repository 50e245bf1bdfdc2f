#include "library/BookAssets.h"

#include <QCryptographicHash>

namespace folivox {

namespace {

QString extensionOf(const QByteArray& bytes)
{
    if (bytes.startsWith("\xFF\xD8"))
        return QStringLiteral("jpg");
    if (bytes.startsWith("\x89PNG"))
        return QStringLiteral("png");
    if (bytes.startsWith("GIF8"))
        return QStringLiteral("gif");
    if (bytes.startsWith("RIFF") && bytes.mid(8, 4) == "WEBP")
        return QStringLiteral("webp");
    if (bytes.startsWith("BM"))
        return QStringLiteral("bmp");
    return QStringLiteral("bin");
}

QString artworkKey(const QUuid& bookmarkID)
{
    return QStringLiteral("artwork/") + bookmarkID.toString(QUuid::WithoutBraces).toUpper();
}

} // namespace

QString BookAssets::fileName(const QString& kind, const QByteArray& bytes)
{
    const QByteArray hash = QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex().left(16);
    return kind + u'-' + QString::fromLatin1(hash) + u'.' + extensionOf(bytes);
}

QString BookAssets::coverFile(const StoredBook& book)
{
    if (!book.state.coverRef)
        return {};
    return book.assetRefs.value(*book.state.coverRef);
}

BookAssets::Detached BookAssets::detach(const BookStateDTO& state)
{
    Detached d;
    d.book.state = state;
    BookStateDTO& s = d.book.state;
    s.coverRef.reset();
    s.artworkRefs.clear();
    if (s.metadata.coverImageData && !s.metadata.coverImageData->isEmpty()) {
        const QString name = fileName(QStringLiteral("cover"), *s.metadata.coverImageData);
        d.files.insert(name, *s.metadata.coverImageData);
        d.book.assetRefs.insert(QStringLiteral("cover"), name);
        s.coverRef = QStringLiteral("cover");
        s.metadata.coverImageData.reset();
    }
    for (Bookmark& b : s.bookmarks) {
        if (!b.artworkData || b.artworkData->isEmpty())
            continue;
        const QString name = fileName(QStringLiteral("artwork"), *b.artworkData);
        const QString key = artworkKey(b.id);
        d.files.insert(name, *b.artworkData);
        d.book.assetRefs.insert(key, name);
        s.artworkRefs.insert(b.id, key);
        b.artworkData.reset();
    }
    return d;
}

BookStateDTO BookAssets::attach(const StoredBook& book, const std::function<QByteArray(const QString&)>& readFile)
{
    BookStateDTO s = book.state;
    if (s.coverRef) {
        const QString name = book.assetRefs.value(*s.coverRef);
        const QByteArray bytes = name.isEmpty() ? QByteArray() : readFile(name);
        if (!bytes.isEmpty())
            s.metadata.coverImageData = bytes;
    }
    for (Bookmark& b : s.bookmarks) {
        const QString key = s.artworkRefs.value(b.id);
        const QString name = key.isEmpty() ? QString() : book.assetRefs.value(key);
        const QByteArray bytes = name.isEmpty() ? QByteArray() : readFile(name);
        if (!bytes.isEmpty())
            b.artworkData = bytes;
    }
    s.coverRef.reset();
    s.artworkRefs.clear();
    return s;
}

} // namespace folivox
