#include "cli/BuildResultPrinter.h"

#include "cli/Command.h"
#include "cli/Console.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace folivox::cli {

namespace {

// "H:MM:SS", or "H:MM:SS.mmm" with milliseconds.
QString clockText(double seconds, bool millis = false)
{
    const qint64 ms = static_cast<qint64>(std::llround(std::max(0.0, seconds) * 1000.0));
    const qint64 s = millis ? ms / 1000 : (ms + 500) / 1000;
    QString text = QStringLiteral("%1:%2:%3").arg(s / 3600).arg((s / 60) % 60, 2, 10, QChar(u'0')).arg(s % 60, 2, 10, QChar(u'0'));
    if (millis)
        text += QStringLiteral(".%1").arg(ms % 1000, 3, 10, QChar(u'0'));
    return text;
}

} // namespace

void BuildResultPrinter::printSuccess(const BuildResult& result, bool json)
{
    if (json) {
        Console::out(QString::fromUtf8(QJsonDocument(result.toJson()).toJson(QJsonDocument::Indented)));
        return;
    }
    const ExportOutcome& made = result.outcome;
    QString text = QStringLiteral("Built %1\n  %2 chapters, %3, strategy %4")
                       .arg(made.outputPath)
                       .arg(made.chapters.size())
                       .arg(clockText(result.duration), enumName(made.strategy));
    if (!made.reasons.isEmpty())
        text += QStringLiteral(" (") + made.reasons.join(QStringLiteral("; ")) + u')';
    text += u'\n';
    if (made.outputFiles.size() > 1) {
        for (const QString& f : made.outputFiles)
            text += QStringLiteral("  ") + f + u'\n';
    }
    if (!result.coverSource.isEmpty())
        text += QStringLiteral("  cover from %1\n").arg(result.coverSource);
    if (!result.skippedFiles.empty())
        text += QStringLiteral("  %1 unreadable input(s) left out (listed above)\n").arg(result.skippedFiles.size());
    Console::out(text);
}

void BuildResultPrinter::printPlan(const BuildPlan& plan, bool json)
{
    if (json) {
        Console::out(QString::fromUtf8(QJsonDocument(plan.toJson()).toJson(QJsonDocument::Indented)));
        return;
    }
    QString text = QStringLiteral("Would build %1%2\n")
                       .arg(plan.outputPath, plan.replacesExisting ? QStringLiteral(" (replacing it)") : QString());
    text += QStringLiteral("  title: %1\n  strategy: %2").arg(plan.title, enumName(plan.strategy));
    if (!plan.reasons.isEmpty())
        text += QStringLiteral(" (") + plan.reasons.join(QStringLiteral("; ")) + u')';
    text += QStringLiteral("\n  inputs, in book order:\n");
    for (qsizetype i = 0; i < plan.inputs.size(); ++i)
        text += QStringLiteral("    %1. %2\n").arg(i + 1).arg(plan.inputs[i]);
    text += QStringLiteral("  chapters (from %1):\n").arg(plan.chapterSource);
    for (const BuildPlan::Chapter& c : plan.chapters)
        text += QStringLiteral("    %1  %2  (%3)\n").arg(clockText(c.start, true), c.title, clockText(c.duration, true));
    text += QStringLiteral("Nothing was written (--dry-run).\n");
    Console::out(text);
}

int BuildResultPrinter::exitStatus(const BuildFailure& failure)
{
    switch (failure.kind()) {
    case BuildFailure::Kind::usage:
        return ExitUsage;
    case BuildFailure::Kind::cancelled:
        return ExitCancelled;
    case BuildFailure::Kind::failed:
        break;
    }
    return ExitFailure;
}

int BuildResultPrinter::printFailure(const BuildFailure& failure, bool json, bool quiet)
{
    const int status = exitStatus(failure);
    QString text = QStringLiteral("folivox build: ") + failure.message() + u'\n';
    if (failure.kind() == BuildFailure::Kind::usage)
        text += QStringLiteral("Run 'folivox build --help' for the options.\n");
    if (!failure.logFile.isEmpty() && !quiet)
        text += QStringLiteral("The build log is at ") + failure.logFile + u'\n';
    Console::err(text);
    if (json) {
        QJsonObject doc = failure.toJson();
        doc.insert(QStringLiteral("exitStatus"), status);
        Console::out(QString::fromUtf8(QJsonDocument(doc).toJson(QJsonDocument::Indented)));
    }
    return status;
}

} // namespace folivox::cli
