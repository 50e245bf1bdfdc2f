#include "tools/TagsCommand.h"

#include "container/mp4/MP4Bytes.h"
#include "tools/IlstEditor.h"
#include "tools/MoovEditor.h"
#include "tools/ToolError.h"
#include "tools/ToolReport.h"
#include "tools/ToolOptions.h"

#include <QFileInfo>

#include <array>
#include <utility>

namespace folivox {

namespace {
constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}

enum class Kind { text, genre, mediaType, trackNumber, trackTotal, diskNumber, diskTotal, remove, help };

struct TagOption {
    const char* name;
    char shortName;
    Kind kind;
    std::uint32_t atom;
};

constexpr std::uint32_t kTrkn = fc("trkn");
constexpr std::uint32_t kDisk = fc("disk");

const std::array kOptions{
    TagOption{"song", 's', Kind::text, fc("\xA9nam")},
    TagOption{"artist", 'a', Kind::text, fc("\xA9" "ART")},
    TagOption{"album", 'A', Kind::text, fc("\xA9" "alb")},
    TagOption{"albumartist", 'R', Kind::text, fc("aART")},
    TagOption{"year", 'y', Kind::text, fc("\xA9" "day")},
    TagOption{"genre", 'g', Kind::genre, fc("\xA9" "gen")},
    TagOption{"comment", 'c', Kind::text, fc("\xA9" "cmt")},
    TagOption{"writer", 'w', Kind::text, fc("\xA9" "wrt")},
    TagOption{"lyrics", 'L', Kind::text, fc("\xA9" "lyr")},
    TagOption{"grouping", 'G', Kind::text, fc("\xA9" "grp")},
    TagOption{"encodedby", 'e', Kind::text, fc("\xA9" "enc")},
    TagOption{"tool", 'E', Kind::text, fc("\xA9" "too")},
    TagOption{"description", 'm', Kind::text, fc("desc")},
    TagOption{"longdesc", 'l', Kind::text, fc("ldes")},
    TagOption{"copyright", 'C', Kind::text, fc("cprt")},
    TagOption{"type", 'i', Kind::mediaType, fc("stik")},
    TagOption{"track", 't', Kind::trackNumber, kTrkn},
    TagOption{"tracks", 'T', Kind::trackTotal, kTrkn},
    TagOption{"disk", 'd', Kind::diskNumber, kDisk},
    TagOption{"disks", 'D', Kind::diskTotal, kDisk},
    TagOption{"sortname", '\0', Kind::text, fc("sonm")},
    TagOption{"sortartist", '\0', Kind::text, fc("soar")},
    TagOption{"sortalbum", '\0', Kind::text, fc("soal")},
    TagOption{"sortalbumartist", '\0', Kind::text, fc("soaa")},
    TagOption{"remove", 'r', Kind::remove, 0},
    TagOption{"help", 'h', Kind::help, 0},
};

const TagOption* findOption(const QString& name)
{
    for (const TagOption& o : kOptions)
        if (name == QLatin1String(o.name))
            return &o;
    return nullptr;
}

void printUsage(QTextStream& out)
{
    out << "Usage: mp4tags OPTION... FILE...\n"
           "Sets iTunes tags in MP4 files. An empty value removes the tag.\n";
    for (const TagOption& o : kOptions) {
        out << "  ";
        if (o.shortName)
            out << '-' << o.shortName << ", ";
        else
            out << "    ";
        out << '-' << o.name << '\n';
    }
    out.flush();
}

// One parsed request, checked before any file is opened.
struct Edit {
    const TagOption* option;
    QString text;
    int number = 0;
};

void apply(const QList<Edit>& edits, IlstEditor& ilst)
{
    std::optional<int> track, tracks, disk, disks;
    for (const Edit& e : edits) {
        switch (e.option->kind) {
        case Kind::text:
            ilst.setText(e.option->atom, e.text);
            break;
        case Kind::genre:
            // A numeric genre would show beside the text one.
            ilst.remove(fc("gnre"));
            ilst.setText(e.option->atom, e.text);
            break;
        case Kind::mediaType:
            ilst.setInteger8(e.option->atom, e.number);
            break;
        case Kind::trackNumber:
            track = e.number;
            break;
        case Kind::trackTotal:
            tracks = e.number;
            break;
        case Kind::diskNumber:
            disk = e.number;
            break;
        case Kind::diskTotal:
            disks = e.number;
            break;
        case Kind::remove:
            for (const QChar letter : e.text)
                for (const TagOption& o : kOptions)
                    if (o.shortName && QChar(o.shortName) == letter && o.atom)
                        ilst.remove(o.atom);
            break;
        case Kind::help:
            break;
        }
    }
    if (track || tracks)
        ilst.setNumberPair(kTrkn, track, tracks);
    if (disk || disks)
        ilst.setNumberPair(kDisk, disk, disks);
}
} // namespace

std::optional<int> TagsCommand::mediaTypeValue(const QString& name)
{
    static const std::array<std::pair<const char*, int>, 11> kTypes{{
        {"oldmovie", 0}, {"normal", 1}, {"music", 1}, {"audiobook", 2}, {"musicvideo", 6}, {"movie", 9},
        {"tvshow", 10}, {"booklet", 11}, {"ringtone", 14}, {"podcast", 21}, {"itunesu", 23},
    }};
    const QString key = name.trimmed().toLower().remove(u' ');
    for (const auto& [n, v] : kTypes)
        if (key == QLatin1String(n))
            return v;
    bool ok = false;
    const int v = key.toInt(&ok);
    if (ok && v >= 0 && v <= 255)
        return v;
    return std::nullopt;
}

int TagsCommand::run(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    QList<ToolOptions::Spec> specs;
    for (const TagOption& o : kOptions)
        specs.append({QString::fromLatin1(o.name), o.shortName ? QChar(o.shortName) : QChar(), o.kind != Kind::help});

    QList<Edit> edits;
    QStringList files;
    try {
        const ToolOptions::Parsed parsed = ToolOptions::parse(arguments, specs);
        if (parsed.has(QStringLiteral("help"))) {
            printUsage(out);
            return 0;
        }
        for (const auto& [name, value] : parsed.options) {
            const TagOption* o = findOption(name);
            Edit e{o, value, 0};
            switch (o->kind) {
            case Kind::mediaType: {
                const auto v = mediaTypeValue(value);
                if (!v)
                    throw ToolError(ToolError::Kind::usage, QStringLiteral("-type: unknown media type \"%1\"").arg(value));
                e.number = *v;
                break;
            }
            case Kind::trackNumber:
            case Kind::trackTotal:
            case Kind::diskNumber:
            case Kind::diskTotal:
                e.number = ToolOptions::integer(name, value, 0, 65535);
                break;
            default:
                break;
            }
            edits.append(e);
        }
        files = parsed.requireFiles(QStringLiteral("-help"));
        if (edits.isEmpty())
            throw ToolError(ToolError::Kind::usage, QStringLiteral("no tag given (see -help)"));
    } catch (const ToolError& e) {
        return ToolReport::usageFailure("mp4tags", e, err);
    }

    return ToolReport::forEachFile("mp4tags", files, err, [&](const QString& file) {
        MoovEditor editor(file);
        IlstEditor ilst(editor.moov());
        apply(edits, ilst);
        editor.commit();
    });
}

} // namespace folivox
