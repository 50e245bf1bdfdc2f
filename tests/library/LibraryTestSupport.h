#pragma once

#include "support/KillAtPoint.h"

// States and folders for the library tests: books whose tracks are real
// (empty) files in the test's own folder, so "sources gone" can be made true.

#include "container/io/FaultInjection.h"
#include "core/book/BookStateDTO.h"
#include "library/files/LibraryPersistence.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

#include <gtest/gtest.h>

#include <functional>

#include <sys/wait.h>
#include <unistd.h>

namespace folivox::test {

inline QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

inline void writeAll(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    f.write(bytes);
}

// A book of `tracks` files named 01.mp3... in folder/title, one chapter each.
inline BookStateDTO bookIn(const QString& folder, const QString& title, int tracks = 2)
{
    BookStateDTO s = BookStateDTO::makeNew();
    const QString dir = folder + u'/' + title;
    QDir().mkpath(dir);
    s.sources = {QUrl::fromLocalFile(QFileInfo(dir).canonicalFilePath())};
    for (int i = 1; i <= tracks; ++i) {
        const QString path = dir + QStringLiteral("/%1.mp3").arg(i, 2, 10, QChar(u'0'));
        writeAll(path, "not really audio");
        Track t;
        t.url = QUrl::fromLocalFile(path);
        t.title = QStringLiteral("Part %1").arg(i);
        t.duration = 60.0 * i;
        s.tracks.push_back(t);
        Bookmark b;
        b.title = t.title;
        b.tracks = {t};
        b.duration = t.duration;
        s.bookmarks.push_back(b);
    }
    s.metadata.title = title;
    return s;
}

} // namespace folivox::test
