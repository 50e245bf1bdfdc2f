#include "tools/ArtCommand.h"

#include "tools/IlstEditor.h"
#include "tools/MoovEditor.h"
#include "tools/ToolError.h"
#include "tools/ToolReport.h"
#include "tools/ToolOptions.h"

#include <QFile>
#include <QFileInfo>

namespace folivox {

namespace {
void printUsage(QTextStream& out)
{
    out << "Usage: mp4art ACTION [--art-index N] FILE...\n"
           "Actions:\n"
           "  --add IMAGE      add a JPEG or PNG cover\n"
           "  --replace IMAGE  replace the cover(s)\n"
           "  --remove         remove the cover(s)\n"
           "  --list           list the covers\n";
    out.flush();
}

IlstEditor::Image loadImage(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        throw ToolError(ToolError::Kind::imageUnreadable,
                        QStringLiteral("%1: cannot read the image: %2").arg(QFileInfo(path).fileName(), f.errorString()));
    const QByteArray bytes = f.readAll();
    const auto type = IlstEditor::imageDataType(bytes);
    if (!type || (*type != IlstEditor::jpeg && *type != IlstEditor::png))
        throw ToolError(ToolError::Kind::imageUnsupported,
                        QStringLiteral("%1: not a JPEG or PNG image").arg(QFileInfo(path).fileName()));
    return IlstEditor::Image{*type, bytes};
}

QString typeName(std::uint32_t type)
{
    switch (type) {
    case IlstEditor::jpeg:
        return QStringLiteral("jpeg");
    case IlstEditor::png:
        return QStringLiteral("png");
    case IlstEditor::bmp:
        return QStringLiteral("bmp");
    default:
        return QStringLiteral("type%1").arg(type);
    }
}
} // namespace

int ArtCommand::run(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    const QList<ToolOptions::Spec> specs{
        {QStringLiteral("add"), QChar(), true},      {QStringLiteral("replace"), QChar(), true},
        {QStringLiteral("remove"), QChar(), false},  {QStringLiteral("list"), QChar(), false},
        {QStringLiteral("art-index"), QChar(), true}, {QStringLiteral("help"), u'h', false},
    };
    QString action;
    std::optional<int> index;
    std::optional<IlstEditor::Image> image;
    QStringList files;
    try {
        const ToolOptions::Parsed parsed = ToolOptions::parse(arguments, specs);
        if (parsed.has(QStringLiteral("help"))) {
            printUsage(out);
            return 0;
        }
        action = parsed.singleAction({QStringLiteral("add"), QStringLiteral("replace"), QStringLiteral("remove"),
                                      QStringLiteral("list")});
        if (const auto v = parsed.value(QStringLiteral("art-index")))
            index = ToolOptions::integer(QStringLiteral("-art-index"), *v, 0, 1000000);
        files = parsed.requireFiles();
        // The image is read and checked before any file is touched.
        if (action == QStringLiteral("add") || action == QStringLiteral("replace"))
            image = loadImage(*parsed.value(action));
    } catch (const ToolError& e) {
        return ToolReport::usageFailure("mp4art", e, err);
    }

    return ToolReport::forEachFile("mp4art", files, err, [&](const QString& file) {
        MoovEditor editor(file);
        IlstEditor ilst(editor.moov());
        if (action == QStringLiteral("list")) {
            const auto covers = ilst.covers();
            for (qsizetype i = 0; i < covers.size(); ++i)
                out << i << ' ' << typeName(covers.at(i).dataType) << ' ' << covers.at(i).bytes.size() << '\n';
            out.flush();
            return;
        }
        if (action == QStringLiteral("add")) {
            ilst.addCover(*image);
        } else if (action == QStringLiteral("replace")) {
            if (index) {
                auto covers = ilst.covers();
                if (*index >= covers.size())
                    throw ToolError(ToolError::Kind::unsupported,
                                    QStringLiteral("%1: no image at index %2").arg(QFileInfo(file).fileName()).arg(*index));
                covers[*index] = *image;
                ilst.removeCovers();
                for (const auto& c : covers)
                    ilst.addCover(c);
            } else {
                ilst.removeCovers();
                ilst.addCover(*image);
            }
        } else if (ilst.removeCovers(index) == 0) {
            // Nothing to remove: the file is already as asked.
            return;
        }
        editor.commit();
    });
}

} // namespace folivox
