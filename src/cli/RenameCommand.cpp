#include "cli/RenameCommand.h"

#include "chapters/BatchRenameService.h"
#include "cli/Console.h"
#include "platform/Error.h"
#include "sidecars/discovery/SidecarDiscoveryService.h"
#include "sidecars/parsers/SidecarTextRules.h"

#include <QCommandLineParser>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace folivox::cli {

namespace {

struct Flag {
    const char* name;
    bool BatchRenameOptions::*field;
};

const Flag kFlags[] = {
    {"remove-repeated-beginning", &BatchRenameOptions::removeRepeatedBeginning},
    {"remove-repeated-end", &BatchRenameOptions::removeRepeatedEnd},
    {"remove-numeric-prefix", &BatchRenameOptions::removeNumericPrefix},
    {"remove-trailing-numbers", &BatchRenameOptions::removeTrailingNumbers},
    {"remove-bracket-contents", &BatchRenameOptions::removeBracketContents},
    {"remove-all-brackets", &BatchRenameOptions::removeAllBrackets},
    {"remove-common-prefixes", &BatchRenameOptions::removeCommonPrefixes},
    {"remove-file-extensions", &BatchRenameOptions::removeFileExtensions},
    {"remove-duplicate-words", &BatchRenameOptions::removeDuplicateWords},
    {"normalize-whitespace", &BatchRenameOptions::normalizeWhitespace},
    {"normalize-delimiters", &BatchRenameOptions::normalizeDelimiters},
    {"trim", &BatchRenameOptions::trimWhitespace},
};

} // namespace

QString RenameCommand::usage() const
{
    return QStringLiteral(
        "Usage: folivox rename [options] TITLE...\n"
        "       folivox rename [options] --from FILE\n\n"
        "Cleans chapter titles through the batch rename pipeline and prints one per line.\n"
        "Steps run in this order, each only when asked for:\n"
        "  --remove-repeated-beginning  cut the start that all titles share\n"
        "  --remove-repeated-end        cut the end that all titles share\n"
        "  --remove-numeric-prefix      \"Track 03 - Intro\" -> \"Intro\"\n"
        "  --remove-trailing-numbers    \"Intro - 01\" -> \"Intro\"\n"
        "  --remove-file-extensions     \"Intro.mp3\" -> \"Intro\"\n"
        "  --remove-bracket-contents    drop (...) and [...]\n"
        "  --remove-all-brackets        drop bracket characters, keep their contents\n"
        "  --remove-common-prefixes     \"Chapter 5: Storm\" -> \"Storm\"\n"
        "  --remove-duplicate-words     \"the the end\" -> \"the end\"\n"
        "  --find TEXT [--replace TEXT] [--regex] [--match-case]\n"
        "                               find and replace ($1 or \\1 refer to groups)\n"
        "  --normalize-whitespace       collapse runs of white space\n"
        "  --normalize-delimiters       underscores to spaces, dashes and bars to \" - \"\n"
        "  --case STYLE                 unchanged, titleCase, sentenceCase, lowercase, uppercase\n"
        "  --trim                       trim white space\n"
        "  --number                     put a number before each title\n"
        "    --number-prefix TEXT  --number-start N  --number-format 1|01|001\n"
        "    --number-separator TEXT (default \". \")\n\n"
        "Other options:\n"
        "  --from FILE  read titles from a text file, one per line (blank lines skipped)\n"
        "  --json       print one JSON document on stdout\n"
        "  -h, --help   show this text\n");
}

int RenameCommand::run(const QStringList& args)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    for (const Flag& f : kFlags)
        parser.addOption(QCommandLineOption(QString::fromLatin1(f.name)));
    const QCommandLineOption find(QStringLiteral("find"), QString(), QStringLiteral("TEXT"));
    const QCommandLineOption replace(QStringLiteral("replace"), QString(), QStringLiteral("TEXT"));
    const QCommandLineOption regex(QStringLiteral("regex"));
    const QCommandLineOption matchCase(QStringLiteral("match-case"));
    const QCommandLineOption caseStyle(QStringLiteral("case"), QString(), QStringLiteral("STYLE"));
    const QCommandLineOption number(QStringLiteral("number"));
    const QCommandLineOption numberPrefix(QStringLiteral("number-prefix"), QString(), QStringLiteral("TEXT"));
    const QCommandLineOption numberStart(QStringLiteral("number-start"), QString(), QStringLiteral("N"));
    const QCommandLineOption numberFormat(QStringLiteral("number-format"), QString(), QStringLiteral("FORMAT"));
    const QCommandLineOption numberSeparator(QStringLiteral("number-separator"), QString(), QStringLiteral("TEXT"));
    const QCommandLineOption from(QStringLiteral("from"), QString(), QStringLiteral("FILE"));
    const QCommandLineOption json(QStringLiteral("json"));
    parser.addOptions({find, replace, regex, matchCase, caseStyle, number, numberPrefix, numberStart, numberFormat,
                       numberSeparator, from, json});

    auto usageError = [&](const QString& message) {
        Console::err(QStringLiteral("folivox rename: ") + message + QStringLiteral("\n\n") + usage());
        return ExitUsage;
    };
    if (!parser.parse(QStringList{QStringLiteral("folivox rename")} + args))
        return usageError(parser.errorText());

    BatchRenameOptions o;
    for (const Flag& f : kFlags)
        o.*(f.field) = parser.isSet(QString::fromLatin1(f.name));
    if (parser.isSet(find)) {
        o.findReplaceEnabled = true;
        o.findText = parser.value(find);
        o.replaceText = parser.value(replace);
    } else if (parser.isSet(replace) || parser.isSet(regex) || parser.isSet(matchCase)) {
        return usageError(QStringLiteral("--replace, --regex and --match-case need --find"));
    }
    if (parser.isSet(caseStyle)) {
        const auto style = capitalizationStyleFromRawValue(parser.value(caseStyle));
        if (!style)
            return usageError(QStringLiteral("unknown case style '%1'").arg(parser.value(caseStyle)));
        o.changeCaseEnabled = true;
        o.capitalization = *style;
    }
    o.addNumbering = parser.isSet(number);
    if (parser.isSet(numberPrefix))
        o.numberingPrefix = parser.value(numberPrefix);
    if (parser.isSet(numberSeparator))
        o.numberingSeparator = parser.value(numberSeparator);
    if (parser.isSet(numberStart)) {
        bool ok = false;
        o.numberingStart = parser.value(numberStart).toInt(&ok);
        if (!ok)
            return usageError(QStringLiteral("--number-start needs a whole number"));
    }
    if (parser.isSet(numberFormat)) {
        const auto f = numberingFormatFromRawValue(parser.value(numberFormat));
        if (!f)
            return usageError(QStringLiteral("--number-format is 1, 01 or 001"));
        o.numberingFormat = *f;
    }

    QStringList titles = parser.positionalArguments();
    if (parser.isSet(from)) {
        if (!titles.isEmpty())
            return usageError(QStringLiteral("give titles or --from FILE, not both"));
        const QString file = parser.value(from);
        QString text;
        try {
            text = SidecarDiscoveryService().readText(file);
        } catch (const Error& e) {
            Console::err(QStringLiteral("folivox rename: ") + e.description() + u'\n');
            return ExitFailure;
        }
        for (QStringView line : SidecarTextRules::splitLines(text)) {
            if (!line.trimmed().isEmpty())
                titles << line.toString();
        }
    }
    if (titles.isEmpty())
        return usageError(QStringLiteral("no titles given"));

    const BatchRenameResult result = BatchRenameService().apply(titles, o, parser.isSet(regex), parser.isSet(matchCase));
    if (result.error) {
        Console::err(QStringLiteral("folivox rename: ") + result.error->displayText() + u'\n');
        return ExitFailure;
    }

    if (parser.isSet(json)) {
        QJsonArray rows;
        int changed = 0;
        for (qsizetype i = 0; i < titles.size(); ++i) {
            QJsonObject row;
            row.insert(QStringLiteral("before"), titles[i]);
            row.insert(QStringLiteral("after"), result.titles[i]);
            rows.append(row);
            changed += titles[i] != result.titles[i] ? 1 : 0;
        }
        QJsonObject doc;
        doc.insert(QStringLiteral("titles"), rows);
        doc.insert(QStringLiteral("changed"), changed);
        Console::out(QString::fromUtf8(QJsonDocument(doc).toJson(QJsonDocument::Indented)));
    } else {
        Console::out(result.titles.join(u'\n') + u'\n');
    }
    return ExitSuccess;
}

} // namespace folivox::cli
