#include "chapters/ExportFilenameFormat.h"

#include "platform/L10n.h"

#include <QStringList>

namespace folivox {

namespace {

enum class Wrap { none, brackets, braces, parens };

struct Layout {
    ExportFilenameFormat format;
    const char* raw;
    QList<int> elements; // 0 title, 1 author, 2 series, 3 narrator, 4 year
    Wrap wrap;
};

const QList<Layout>& layouts()
{
    using F = ExportFilenameFormat;
    static const QList<Layout> all = {
        {F::title, "title", {0}, Wrap::none},
        {F::authorTitle, "authorTitle", {1, 0}, Wrap::none},
        {F::titleAuthor, "titleAuthor", {0, 1}, Wrap::none},
        {F::seriesTitle, "seriesTitle", {2, 0}, Wrap::none},
        {F::authorSeriesTitle, "authorSeriesTitle", {1, 2, 0}, Wrap::none},
        {F::authorTitleSeries, "authorTitleSeries", {1, 0, 2}, Wrap::none},
        {F::authorTitleSeriesBrackets, "authorTitleSeriesBrackets", {1, 0, 2}, Wrap::brackets},
        {F::authorTitleNarratorBraces, "authorTitleNarratorBraces", {1, 0, 3}, Wrap::braces},
        {F::authorTitleNarratorParens, "authorTitleNarratorParens", {1, 0, 3}, Wrap::parens},
        {F::authorSeriesTitleNarratorBraces, "authorSeriesTitleNarratorBraces", {1, 2, 0, 3}, Wrap::braces},
        {F::authorSeriesTitleNarratorParens, "authorSeriesTitleNarratorParens", {1, 2, 0, 3}, Wrap::parens},
        {F::authorTitleYear, "authorTitleYear", {1, 0, 4}, Wrap::none},
        {F::titleYear, "titleYear", {0, 4}, Wrap::none},
    };
    return all;
}

const Layout& layoutOf(ExportFilenameFormat format)
{
    for (const Layout& l : layouts()) {
        if (l.format == format)
            return l;
    }
    return layouts().front();
}

QString element(int which, const ExportFilenameFields& f)
{
    switch (which) {
    case 0: return f.title.trimmed();
    case 1: return f.author.trimmed();
    case 2: {
        const QString series = f.series.trimmed();
        if (series.isEmpty() || f.seriesIndex.trimmed().isEmpty())
            return series;
        return series + u' ' + f.seriesIndex.trimmed();
    }
    case 3: return f.narrator.trimmed();
    case 4: return f.year.trimmed();
    }
    return {};
}

} // namespace

const QList<ExportFilenameFormat>& ExportFilenames::allCases()
{
    static const QList<ExportFilenameFormat> cases = [] {
        QList<ExportFilenameFormat> out;
        for (const Layout& l : layouts())
            out.append(l.format);
        return out;
    }();
    return cases;
}

QString ExportFilenames::rawValue(ExportFilenameFormat format)
{
    return QString::fromLatin1(layoutOf(format).raw);
}

std::optional<ExportFilenameFormat> ExportFilenames::fromRawValue(const QString& raw)
{
    for (const Layout& l : layouts()) {
        if (raw == QLatin1String(l.raw))
            return l.format;
    }
    return std::nullopt;
}

QList<ExportFilenameSection> ExportFilenames::sections()
{
    using F = ExportFilenameFormat;
    return {
        {L10n::text("export.filename.section.basic", "Title and Author"), {F::title, F::authorTitle, F::titleAuthor}},
        {L10n::text("export.filename.section.series", "Series"),
         {F::seriesTitle, F::authorSeriesTitle, F::authorTitleSeries, F::authorTitleSeriesBrackets}},
        {L10n::text("export.filename.section.narrator", "Narrator"),
         {F::authorTitleNarratorBraces, F::authorTitleNarratorParens, F::authorSeriesTitleNarratorBraces,
          F::authorSeriesTitleNarratorParens}},
        {L10n::text("export.filename.section.year", "Year"), {F::authorTitleYear, F::titleYear}},
    };
}

QString ExportFilenames::sanitize(const QString& name)
{
    QString out;
    out.reserve(name.size());
    for (QChar c : name) {
        if (c == u'/' || c == u'\\' || c == u':')
            out += u'-';
        else if (c.unicode() < 0x20 || c.unicode() == 0x7F)
            continue;
        else if (c == u'*' || c == u'?' || c == u'"' || c == u'<' || c == u'>' || c == u'|')
            out += u'_';
        else
            out += c;
    }
    out = out.simplified();
    while (out.startsWith(u'.'))
        out.remove(0, 1);
    out = out.trimmed();
    if (out.size() > 200)
        out = out.left(200).trimmed();
    if (out.isEmpty())
        out = QStringLiteral("Untitled");
    return out;
}

QString ExportFilenames::render(ExportFilenameFormat format, const ExportFilenameFields& fields)
{
    const Layout& l = layoutOf(format);
    QStringList joined;
    QString wrapped;
    for (qsizetype i = 0; i < l.elements.size(); ++i) {
        const QString value = element(l.elements[i], fields);
        if (value.isEmpty())
            continue;
        const bool last = i + 1 == l.elements.size();
        if (last && l.wrap != Wrap::none) {
            switch (l.wrap) {
            case Wrap::brackets: wrapped = u'[' + value + u']'; break;
            case Wrap::braces: wrapped = u'{' + value + u'}'; break;
            case Wrap::parens: wrapped = u'(' + value + u')'; break;
            case Wrap::none: break;
            }
            continue;
        }
        joined.append(value);
    }
    QString name = joined.join(QStringLiteral(" - "));
    if (!wrapped.isEmpty())
        name = name.isEmpty() ? wrapped : name + u' ' + wrapped;
    return sanitize(name);
}

QString ExportFilenames::example(ExportFilenameFormat format)
{
    return render(format, ExportFilenameFields{QStringLiteral("Title"), QStringLiteral("Author"),
                                               QStringLiteral("Series"), QStringLiteral("1"),
                                               QStringLiteral("Narrator"), QStringLiteral("2024")});
}

} // namespace folivox
