#include "import/repair/FileValidationReport.h"

#include "process/FFmpegWrapper.h"
#include "import/probe/FFprobeInspector.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QRegularExpression>

#include <cmath>

namespace folivox {

namespace {

using Status = FileValidationReport::ValidationStatus;
using Check = FileValidationReport::ValidationCheck;

Check check(const QString& category, Status status, const QString& expected, const QString& actual,
            std::optional<QString> detail = std::nullopt)
{
    return Check{category, status, expected, actual, std::move(detail)};
}

QString secondsText(double s)
{
    return QString::asprintf("%.2f s", s);
}

// Codec names compared as families: "aac" stands for "aac-lc".
QString normalisedCodec(const QString& c)
{
    const QString l = c.toLower();
    return l == u"aac" ? QStringLiteral("aac-lc") : l;
}

} // namespace

bool FileValidationReport::passed() const
{
    for (const auto& c : checks)
        if (c.status == Status::fail)
            return false;
    return true;
}

QString FileValidationReport::statusName(ValidationStatus status)
{
    switch (status) {
    case Status::pass:
        return QStringLiteral("pass");
    case Status::warning:
        return QStringLiteral("warning");
    case Status::fail:
        return QStringLiteral("fail");
    case Status::skipped:
        return QStringLiteral("skipped");
    }
    return {};
}

QList<FileValidationReport::ListedChapter> FileValidationReport::parseChapters(const QString& text)
{
    static const QRegularExpression kChapter(QStringLiteral("Chapter #(\\d+):(\\d+): start ([\\d.]+), end ([\\d.]+)"));
    static const QRegularExpression kTitle(QStringLiteral("^\\s+title\\s*: (.*)$"));
    QList<ListedChapter> out;
    const QStringList lines = text.split(u'\n');
    for (int i = 0; i < lines.size(); ++i) {
        const auto m = kChapter.match(lines[i]);
        if (!m.hasMatch())
            continue;
        ListedChapter c;
        c.start = m.captured(3).toDouble();
        c.end = m.captured(4).toDouble();
        // The chapter's own "Metadata:" block follows, indented deeper.
        for (int j = i + 1; j < lines.size() && j <= i + 4; ++j) {
            if (lines[j].contains(u"Chapter #") || lines[j].contains(u"Stream #"))
                break;
            if (const auto t = kTitle.match(lines[j]); t.hasMatch()) {
                c.title = t.captured(1).trimmed();
                break;
            }
        }
        out.append(c);
    }
    return out;
}

QList<FileValidationReport::MetadataEntry> FileValidationReport::parseMetadata(const QString& text)
{
    static const QRegularExpression kEntry(QStringLiteral("^(\\s+)([^:]+?)\\s*: (.*)$"));
    QList<MetadataEntry> out;
    const QStringList lines = text.split(u'\n');
    bool inInput = false;
    int indent = -1;
    for (const QString& line : lines) {
        if (line.startsWith(u"Input #")) {
            inInput = true;
            continue;
        }
        if (!inInput)
            continue;
        if (indent < 0) {
            if (line.trimmed() == u"Metadata:")
                indent = static_cast<int>(line.indexOf(u'M')) + 2;
            else if (line.trimmed().startsWith(u"Duration:"))
                break;
            continue;
        }
        const auto m = kEntry.match(line);
        if (!m.hasMatch() || m.captured(1).size() < indent)
            break;
        out.append({m.captured(2).trimmed(), m.captured(3)});
    }
    return out;
}

FileValidationReport FileValidationReport::fromFFmpegOutput(const QString& path, quint64 fileSize,
                                                            const Expectation& e, const QString& text)
{
    FileValidationReport r;
    r.fileURL = QUrl::fromLocalFile(path);
    r.fileSize = fileSize;
    r.metadataDump = parseMetadata(text);

    std::optional<AudioSourceFormat> f;
    try {
        f = FFprobeInspector::parse(text, QFileInfo(path).fileName());
    } catch (const std::exception&) {
    }
    const QString none = QStringLiteral("(no audio stream)");

    // Codec.
    if (!e.codec)
        r.checks.append(check(QStringLiteral("Codec"), Status::skipped, {}, f ? f->codec : none));
    else
        r.checks.append(check(QStringLiteral("Codec"),
                              f && normalisedCodec(f->codec) == normalisedCodec(*e.codec) ? Status::pass : Status::fail,
                              *e.codec, f ? f->codec : none));

    // Sample rate.
    if (!e.sampleRate)
        r.checks.append(check(QStringLiteral("Sample Rate"), Status::skipped, {},
                              f ? QString::number(f->sampleRate) + QStringLiteral(" Hz") : none));
    else
        r.checks.append(check(QStringLiteral("Sample Rate"),
                              f && f->sampleRate == *e.sampleRate ? Status::pass : Status::fail,
                              QString::number(*e.sampleRate) + QStringLiteral(" Hz"),
                              f ? QString::number(f->sampleRate) + QStringLiteral(" Hz") : none));

    // Channels. A decoder upmixes parametric-stereo HE-AAC to two channels
    // even when the content is mono.
    if (!e.channels) {
        r.checks.append(check(QStringLiteral("Channels"), Status::skipped, {}, f ? QString::number(f->channels) : none));
    } else if (f && f->channels == *e.channels) {
        r.checks.append(check(QStringLiteral("Channels"), Status::pass, QString::number(*e.channels),
                              QString::number(f->channels)));
    } else if (f && *e.channels == 1 && f->channels == 2 && f->isHEAACFamily()) {
        r.checks.append(check(QStringLiteral("Channels"), Status::pass, QStringLiteral("1"), QStringLiteral("2"),
                              QStringLiteral("HE-AAC SBR: ffprobe reports 2ch but actual content is mono")));
    } else {
        r.checks.append(check(QStringLiteral("Channels"), Status::fail, QString::number(*e.channels),
                              f ? QString::number(f->channels) : none));
    }

    // Bitrate, within 20 percent.
    const QString actualBitrate = f && f->bitrate ? QString::number(*f->bitrate / 1000) + QStringLiteral(" kbps")
                                                  : QStringLiteral("unknown");
    if (!e.bitrate) {
        r.checks.append(check(QStringLiteral("Bitrate"), Status::skipped, {}, actualBitrate,
                              QStringLiteral("No explicit bitrate configured")));
    } else {
        const bool ok = f && f->bitrate
            && std::abs(static_cast<double>(*f->bitrate - *e.bitrate)) <= kBitrateTolerance * *e.bitrate;
        r.checks.append(check(QStringLiteral("Bitrate"), ok ? Status::pass : Status::fail,
                              QString::number(*e.bitrate / 1000) + QStringLiteral(" kbps"), actualBitrate));
    }

    // Duration, within 5 seconds.
    if (!e.duration || *e.duration <= 0) {
        r.checks.append(check(QStringLiteral("Duration"), Status::skipped, {},
                              f ? secondsText(f->duration) : none, QStringLiteral("No track durations available")));
    } else {
        const bool ok = f && std::abs(f->duration - *e.duration) <= kDurationTolerance;
        r.checks.append(check(QStringLiteral("Duration"), ok ? Status::pass : Status::fail, secondsText(*e.duration),
                              f ? secondsText(f->duration) : none,
                              f && !ok ? std::optional<QString>(QString::asprintf("off by %.2f s",
                                                                                   f->duration - *e.duration))
                                       : std::nullopt));
    }

    // Chapters.
    const QList<ListedChapter> listed = parseChapters(text);
    r.checks.append(check(QStringLiteral("Chapter Count"),
                          listed.size() == e.chapters.size() ? Status::pass : Status::fail,
                          QString::number(e.chapters.size()), QString::number(listed.size())));
    int titleMismatches = 0;
    for (int i = 0; i < std::max(listed.size(), e.chapters.size()); ++i) {
        ChapterComparisonEntry c;
        c.index = i;
        if (i < e.chapters.size()) {
            c.expectedTitle = e.chapters[i].title;
            c.expectedDuration = e.chapters[i].duration;
        }
        if (i < listed.size()) {
            c.actualTitle = listed[i].title;
            c.actualDuration = listed[i].end - listed[i].start;
        }
        c.titleMatch = i < e.chapters.size() && c.actualTitle && c.actualTitle->trimmed() == c.expectedTitle.trimmed();
        c.durationMatch = i < e.chapters.size() && c.actualDuration
            && std::abs(*c.actualDuration - c.expectedDuration) <= kChapterDurationTolerance;
        if (!c.titleMatch)
            ++titleMismatches;
        r.chaptersComparison.append(c);
    }
    if (e.chapters.isEmpty() && listed.isEmpty())
        r.checks.append(check(QStringLiteral("Chapter Titles"), Status::skipped, {}, {}));
    else
        r.checks.append(check(QStringLiteral("Chapter Titles"), titleMismatches == 0 ? Status::pass : Status::fail,
                              QString::number(e.chapters.size()) + QStringLiteral(" titles"),
                              QString::number(r.chaptersComparison.size() - titleMismatches)
                                  + QStringLiteral(" matching"),
                              titleMismatches ? std::optional<QString>(QString::number(titleMismatches)
                                                                       + QStringLiteral(" title(s) differ"))
                                              : std::nullopt));
    if (listed.isEmpty()) {
        r.checks.append(check(QStringLiteral("Chapter Timestamps"),
                              e.chapters.isEmpty() ? Status::skipped : Status::fail,
                              QStringLiteral("increasing, first at 0"), QStringLiteral("no chapters")));
    } else {
        bool increasing = true;
        for (int i = 1; i < listed.size(); ++i)
            if (listed[i].start <= listed[i - 1].start)
                increasing = false;
        const bool startsAtZero = std::abs(listed.first().start) < 0.5;
        QString detail;
        if (!increasing)
            detail = QStringLiteral("chapter starts are not increasing");
        if (!startsAtZero)
            detail += (detail.isEmpty() ? QString() : QStringLiteral("; "))
                + QString::asprintf("first chapter starts at %.3f s", listed.first().start);
        r.checks.append(check(QStringLiteral("Chapter Timestamps"),
                              increasing && startsAtZero ? Status::pass : Status::fail,
                              QStringLiteral("increasing, first at 0"),
                              QString::asprintf("first at %.3f s", listed.first().start),
                              detail.isEmpty() ? std::nullopt : std::optional<QString>(detail)));
    }
    return r;
}

FileValidationReport FileValidationReport::validate(const QString& path, const Expectation& expected,
                                                    const FFmpegWrapper& ffmpeg)
{
    const QString text = ffmpeg.inspect(path);
    return fromFFmpegOutput(path, static_cast<quint64>(QFileInfo(path).size()), expected, text);
}

QJsonObject FileValidationReport::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("fileURL"), fileURL.toString());
    o.insert(QStringLiteral("fileSize"), static_cast<qint64>(fileSize));
    QJsonArray cs;
    for (const auto& c : checks) {
        QJsonObject j{{QStringLiteral("category"), c.category},
                      {QStringLiteral("status"), statusName(c.status)},
                      {QStringLiteral("expected"), c.expected},
                      {QStringLiteral("actual"), c.actual}};
        if (c.detail)
            j.insert(QStringLiteral("detail"), *c.detail);
        cs.append(j);
    }
    o.insert(QStringLiteral("checks"), cs);
    QJsonArray md;
    for (const auto& m : metadataDump)
        md.append(QJsonObject{{QStringLiteral("key"), m.key}, {QStringLiteral("value"), m.value}});
    o.insert(QStringLiteral("metadataDump"), md);
    QJsonArray cc;
    for (const auto& c : chaptersComparison) {
        QJsonObject j{{QStringLiteral("index"), c.index},
                      {QStringLiteral("expectedTitle"), c.expectedTitle},
                      {QStringLiteral("titleMatch"), c.titleMatch},
                      {QStringLiteral("expectedDuration"), c.expectedDuration},
                      {QStringLiteral("durationMatch"), c.durationMatch}};
        if (c.actualTitle)
            j.insert(QStringLiteral("actualTitle"), *c.actualTitle);
        if (c.actualDuration)
            j.insert(QStringLiteral("actualDuration"), *c.actualDuration);
        cc.append(j);
    }
    o.insert(QStringLiteral("chaptersComparison"), cc);
    return o;
}

} // namespace folivox
