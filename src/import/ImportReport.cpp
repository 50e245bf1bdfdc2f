#include "import/ImportReport.h"

#include "platform/L10n.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace folivox {

namespace {

QString listLines(const QStringList& lines)
{
    QStringList shown = lines.mid(0, ImportReport::kListLimit);
    if (lines.size() > ImportReport::kListLimit)
        shown << L10n::format(L10n::text("import.report.more.files", "• … and %d more"),
                              {QString::number(lines.size() - ImportReport::kListLimit)});
    return shown.join(u'\n');
}

QString fileName(const QUrl& url)
{
    return QFileInfo(url.isLocalFile() ? url.toLocalFile() : url.path()).fileName();
}

} // namespace

QString ImportReport::fill(const QString& pattern, const QStringList& args)
{
    static const QRegularExpression numbered(QStringLiteral("%(\\d+)\\$(?:@|d|ld|lld|s)"));
    QString out;
    qsizetype last = 0;
    bool any = false;
    auto it = numbered.globalMatch(pattern);
    while (it.hasNext()) {
        const auto m = it.next();
        any = true;
        out += pattern.mid(last, m.capturedStart() - last);
        const int n = m.captured(1).toInt();
        out += n >= 1 && n <= args.size() ? args[n - 1] : QString();
        last = m.capturedEnd();
    }
    if (!any)
        return L10n::format(pattern, args);
    out += pattern.mid(last);
    return out;
}

std::optional<ImportReport> ImportReport::from(const TrackLoadOutcome& outcome, int timeoutSeconds)
{
    QStringList repaired;
    for (const QUrl& url : outcome.repairedOriginalURLs)
        repaired << QStringLiteral("• ") + fileName(url);
    QStringList skipped;
    for (const auto& f : outcome.unreadableFiles)
        skipped << QStringLiteral("• ") + fileName(f.url) + QStringLiteral(" — ")
                + TrackLoadOutcome::reasonText(f.reason, timeoutSeconds);

    if (repaired.isEmpty() && skipped.isEmpty())
        return std::nullopt;
    ImportReport r;
    if (skipped.isEmpty()) {
        r.title = L10n::text("import.report.repaired.only.title", "Folivox recovered damaged files");
        r.message = fill(L10n::text("import.report.repaired.only.message",
                                    "%1$d file(s) were automatically repaired during import and added to your "
                                    "book:\n\n%2$@"),
                         {QString::number(repaired.size()), listLines(repaired)});
    } else if (repaired.isEmpty()) {
        r.title = L10n::text("import.report.unreadable.only.title", "Some files couldn't be imported");
        r.message = fill(L10n::text("import.report.unreadable.only.intro",
                                    "%1$d file(s) couldn't be read and were skipped:"),
                         {QString::number(skipped.size())})
            + QStringLiteral("\n\n") + listLines(skipped);
    } else {
        r.title = L10n::text("import.report.mixed.title", "Import finished with warnings");
        r.message = fill(L10n::text("import.report.mixed.message",
                                    "Folivox repaired %1$d damaged file(s) automatically. Another %2$d file(s) "
                                    "couldn't be read and were skipped.\n\nRepaired:\n%3$@\n\nSkipped:\n%4$@"),
                         {QString::number(repaired.size()), QString::number(skipped.size()), listLines(repaired),
                          listLines(skipped)});
    }
    return r;
}

} // namespace folivox
