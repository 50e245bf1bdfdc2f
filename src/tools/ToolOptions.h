#pragma once

#include <QChar>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <utility>

namespace folivox {

// Command-line parsing shared by mp4tags, mp4art and mp4chaps, in the style
// of the mp4v2 tools: options may be written with one or two dashes
// ("-song", "--song"), a long option's value follows as the next argument or
// after "=", one-letter forms take one dash ("-s"). "--" ends the options.
// Every other argument is a file.
class ToolOptions {
public:
    struct Spec {
        QString name;
        QChar shortName; // null when there is none
        bool takesValue = false;
    };

    // The options in the order given, each by its long name, and the files.
    struct Parsed {
        QList<std::pair<QString, QString>> options;
        QStringList files;

        bool has(const QString& name) const;
        std::optional<QString> value(const QString& name) const;
        // The one action among these that was given; throws ToolError(usage)
        // when none or several were.
        QString singleAction(const QStringList& actions) const;
        // The files; throws ToolError(usage) when there are none.
        QStringList requireFiles(const QString& helpOption = QStringLiteral("--help")) const;
    };

    // Throws ToolError(usage) for an unknown option or a missing value.
    static Parsed parse(const QStringList& arguments, const QList<Spec>& specs);

    // A whole number in [minimum, maximum]; throws ToolError(usage) naming
    // the option otherwise.
    static int integer(const QString& option, const QString& value, int minimum, int maximum);
};

} // namespace folivox
