#include "chapters/FormatStringService.h"

namespace folivox {

QString FormatStringService::render(const ChapterFormatTemplate& format, const Context& context) const
{
    QString out;
    for (const FormatToken& token : format.tokens) {
        if (token.kind == FormatToken::Kind::text) {
            out += token.text;
            continue;
        }
        const FormatVariable& v = token.variable;
        switch (v.kind) {
        case FormatVariable::Kind::chapterNumber:
            out += v.config.format(static_cast<long long>(v.config.startNumber) + context.chapterIndex);
            break;
        case FormatVariable::Kind::chapterCount:
            out += v.config.format(static_cast<long long>(v.config.startNumber) + context.chapterCount - 1);
            break;
        case FormatVariable::Kind::chapterName:
            out += context.chapterName;
            break;
        case FormatVariable::Kind::bookTitle:
            out += context.bookTitle;
            break;
        }
    }
    return out;
}

QStringList FormatStringService::renderAll(const ChapterFormatTemplate& format, const QStringList& chapterNames,
                                           const QString& bookTitle) const
{
    QStringList out;
    out.reserve(chapterNames.size());
    for (qsizetype i = 0; i < chapterNames.size(); ++i)
        out.append(render(format, Context{static_cast<int>(i), static_cast<int>(chapterNames.size()), chapterNames[i],
                                          bookTitle}));
    return out;
}

} // namespace folivox
