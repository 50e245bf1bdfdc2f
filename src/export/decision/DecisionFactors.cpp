#include "export/decision/DecisionFactors.h"

#include <QStringList>

namespace folivox {

namespace {

QString flag(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

QString DecisionFactors::describe() const
{
    QStringList parts;
    parts << QStringLiteral("allAAC=") + flag(allAAC) << QStringLiteral("allM4B=") + flag(allM4B)
          << QStringLiteral("codecMatches=") + flag(codecMatches) << QStringLiteral("compatible=") + flag(compatible)
          << QStringLiteral("requiresChannelChange=") + flag(requiresChannelChange)
          << QStringLiteral("requiresResample=") + flag(requiresResample)
          << QStringLiteral("requiresSplit=") + flag(requiresSplit)
          << QStringLiteral("requiresSnap=") + flag(requiresSnap)
          << QStringLiteral("requiresReencode=") + flag(requiresReencode)
          << QStringLiteral("requiresBitrateChange=") + flag(requiresBitrateChange)
          << QStringLiteral("policyDisabled=") + flag(policyDisabled)
          << QStringLiteral("hasPartialRanges=") + flag(hasPartialRanges)
          << QStringLiteral("chaptersReordered=") + flag(chaptersReordered)
          << QStringLiteral("requiresCrossFileNormalization=") + flag(requiresCrossFileNormalization);
    if (crossFileNormalizationTarget) {
        parts << QStringLiteral("normalizationTarget=%1Hz/%2ch")
                     .arg(crossFileNormalizationTarget->sampleRate)
                     .arg(crossFileNormalizationTarget->channels);
    }
    return parts.join(QLatin1Char(' '));
}

} // namespace folivox
