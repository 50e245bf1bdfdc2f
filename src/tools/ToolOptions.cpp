#include "tools/ToolOptions.h"

#include "tools/ToolError.h"

namespace folivox {

bool ToolOptions::Parsed::has(const QString& name) const
{
    for (const auto& o : options)
        if (o.first == name)
            return true;
    return false;
}

std::optional<QString> ToolOptions::Parsed::value(const QString& name) const
{
    std::optional<QString> last;
    for (const auto& o : options)
        if (o.first == name)
            last = o.second;
    return last;
}

ToolOptions::Parsed ToolOptions::parse(const QStringList& arguments, const QList<Spec>& specs)
{
    Parsed parsed;
    bool optionsEnded = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& arg = arguments.at(i);
        if (optionsEnded || arg.size() < 2 || !arg.startsWith(u'-')) {
            parsed.files.append(arg);
            continue;
        }
        if (arg == QStringLiteral("--")) {
            optionsEnded = true;
            continue;
        }
        const bool doubleDash = arg.startsWith(QStringLiteral("--"));
        QString body = arg.mid(doubleDash ? 2 : 1);
        std::optional<QString> inlineValue;
        if (const qsizetype eq = body.indexOf(u'='); eq > 0) {
            inlineValue = body.mid(eq + 1);
            body.truncate(eq);
        }
        const Spec* match = nullptr;
        for (const Spec& s : specs) {
            if (s.name == body || (!doubleDash && body.size() == 1 && !s.shortName.isNull() && body.at(0) == s.shortName)) {
                match = &s;
                break;
            }
        }
        if (!match)
            throw ToolError(ToolError::Kind::usage, QStringLiteral("unknown option ") + arg);
        QString value;
        if (match->takesValue) {
            if (inlineValue) {
                value = *inlineValue;
            } else {
                if (i + 1 >= arguments.size())
                    throw ToolError(ToolError::Kind::usage, QStringLiteral("option ") + arg + QStringLiteral(" needs a value"));
                value = arguments.at(++i);
            }
        } else if (inlineValue) {
            throw ToolError(ToolError::Kind::usage, QStringLiteral("option ") + arg + QStringLiteral(" takes no value"));
        }
        parsed.options.append({match->name, value});
    }
    return parsed;
}

int ToolOptions::integer(const QString& option, const QString& value, int minimum, int maximum)
{
    bool ok = false;
    const int n = value.trimmed().toInt(&ok);
    if (!ok || n < minimum || n > maximum)
        throw ToolError(ToolError::Kind::usage, QStringLiteral("-%1 expects a whole number from %2 to %3, not \"%4\"")
                                                    .arg(option)
                                                    .arg(minimum)
                                                    .arg(maximum)
                                                    .arg(value));
    return n;
}

QString ToolOptions::Parsed::singleAction(const QStringList& actions) const
{
    QString action;
    for (const QString& a : actions) {
        if (!has(a))
            continue;
        if (!action.isEmpty()) {
            QStringList names;
            for (const QString& n : actions)
                names << QStringLiteral("--") + n;
            throw ToolError(ToolError::Kind::usage, QStringLiteral("give only one of ") + names.join(QStringLiteral(", ")));
        }
        action = a;
    }
    if (action.isEmpty())
        throw ToolError(ToolError::Kind::usage, QStringLiteral("no action given (see --help)"));
    return action;
}

QStringList ToolOptions::Parsed::requireFiles(const QString& helpOption) const
{
    if (files.isEmpty())
        throw ToolError(ToolError::Kind::usage, QStringLiteral("no file given (see %1)").arg(helpOption));
    return files;
}

} // namespace folivox
