#include "build/SourceDamage.h"

#include "container/mp3/MP3IntegrityService.h"
#include "platform/L10n.h"

#include <QFileInfo>
#include <QJsonArray>

#include <cmath>

namespace folivox {

namespace {

QString clock(double seconds)
{
    const qint64 s = static_cast<qint64>(std::floor(std::max(0.0, seconds)));
    return QStringLiteral("%1:%2:%3").arg(s / 3600).arg((s / 60) % 60, 2, 10, QChar(u'0')).arg(s % 60, 2, 10, QChar(u'0'));
}

} // namespace

std::optional<SourceDamage> SourceDamage::scan(const std::vector<Track>& tracks, const std::vector<Bookmark>& chapters,
                                               const CancellationToken& token)
{
    QStringList paths;
    for (const Track& t : tracks) {
        const QString path = t.url.toLocalFile();
        if (path.endsWith(QStringLiteral(".mp3"), Qt::CaseInsensitive) && !paths.contains(path))
            paths << path;
    }
    SourceDamage damage;
    if (paths.isEmpty())
        return damage;
    MP3IntegrityService service;
    const auto reports = service.scanFiles(paths, [&token] { return token.isCancelled(); });
    if (!reports)
        return std::nullopt;
    for (const MP3IntegrityReport& report : *reports) {
        if (report.verdict != MP3IntegrityVerdict::damaged)
            continue;
        File file;
        file.report = report;
        for (const Bookmark& chapter : chapters) {
            std::vector<ChapterDamageHole> holes;
            for (const ChapterDamageHole& h : service.holesOfChapter(chapter)) {
                if (h.url == report.url)
                    holes.push_back(h);
            }
            if (!holes.empty())
                file.chapters.push_back({chapter.title, std::move(holes)});
        }
        damage.files.push_back(std::move(file));
    }
    return damage;
}

QStringList SourceDamage::lines() const
{
    QStringList out;
    for (const File& f : files) {
        QString text = L10n::format(L10n::text("build.damage.file", "Damaged: %@ has %@ hole(s), %@ s of audio missing"),
                                    {f.report.url.toLocalFile(), QString::number(f.report.holes.size()),
                                     QString::number(f.report.missingSeconds(), 'f', 2)});
        for (const ChapterHoles& c : f.chapters) {
            for (const ChapterDamageHole& h : c.holes)
                text += L10n::format(L10n::text("build.damage.hole", "\n  in chapter \"%@\" at %@: %@ s missing"),
                                     {c.title, clock(h.chapterTime), QString::number(h.missingSeconds, 'f', 2)});
        }
        text += f.repairedCopy.isEmpty()
                    ? L10n::text("build.damage.advice",
                                 "\n  Chapters after a hole start early. Build with --repair-damaged to use a clean copy "
                                 "(the source is not changed).")
                    : L10n::text("build.damage.repaired", "\n  The build used a repaired copy of it (the source is not changed).");
        out << text;
    }
    return out;
}

QJsonObject SourceDamage::toJson() const
{
    QJsonArray list;
    for (const File& f : files) {
        QJsonObject o = f.report.toJson();
        QJsonArray chapterList;
        for (const ChapterHoles& c : f.chapters) {
            QJsonArray holes;
            for (const ChapterDamageHole& h : c.holes)
                holes.append(h.toJson());
            chapterList.append(QJsonObject{{QStringLiteral("title"), c.title}, {QStringLiteral("holes"), holes}});
        }
        o.insert(QStringLiteral("chapters"), chapterList);
        if (!f.repairedCopy.isEmpty())
            o.insert(QStringLiteral("repaired"), true);
        list.append(o);
    }
    return QJsonObject{{QStringLiteral("damagedFiles"), list}};
}

} // namespace folivox
