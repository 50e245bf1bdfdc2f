#include "sidecars/apply/SidecarApplyPolicy.h"

#include "platform/L10n.h"

#include <QFileInfo>

namespace folivox {

namespace {

QString fileName(const QUrl& url)
{
    return QFileInfo(url.isLocalFile() ? url.toLocalFile() : url.path()).fileName();
}

QString evidence(const SidecarMatchResult& m)
{
    QStringList parts;
    const SidecarMatchLayers& l = m.matchLayers;
    if (l.contains(SidecarMatchLayers::exactName))
        parts << QStringLiteral("same name as the audio");
    if (l.contains(SidecarMatchLayers::referencedFile))
        parts << QStringLiteral("names the audio file");
    if (l.contains(SidecarMatchLayers::duration))
        parts << QStringLiteral("length fits the audio");
    if (l.contains(SidecarMatchLayers::sameFolder))
        parts << QStringLiteral("same folder");
    if (l.contains(SidecarMatchLayers::partialName))
        parts << QStringLiteral("similar name");
    if (parts.isEmpty())
        parts << QStringLiteral("no evidence");
    return parts.join(QStringLiteral(", "));
}

} // namespace

QString SidecarApplyPolicy::actionRawValue(Action action)
{
    switch (action) {
    case Action::apply: return QStringLiteral("apply");
    case Action::report: return QStringLiteral("report");
    case Action::ignore: return QStringLiteral("ignore");
    }
    return {};
}

SidecarApplyPolicy::Decision SidecarApplyPolicy::decide(const SidecarDiscoveryResult& discovery, bool noSidecar)
{
    Decision d;
    d.match = discovery.match;
    if (noSidecar) {
        d.reason = L10n::text("sidecar.decision.disabled", "Chapter files beside the audio are ignored (--no-sidecar)");
        return d;
    }
    if (!discovery.match) {
        if (discovery.discoveredFiles.isEmpty())
            d.reason = L10n::text("sidecar.decision.none", "No chapter file found beside the audio");
        else
            d.reason = L10n::format(L10n::text("sidecar.decision.unusable",
                                               "%d chapter file(s) found beside the audio, none usable"),
                                    {QString::number(discovery.discoveredFiles.size())});
        return d;
    }
    const SidecarMatchResult& m = *discovery.match;
    const QStringList args{fileName(m.sidecarURL), sidecarFormatDisplayName(m.parseResult.format),
                           QString::number(m.chapters.size()), QString::number(m.score), evidence(m)};
    switch (m.confidence) {
    case SidecarMatchConfidence::high:
        d.action = Action::apply;
        d.reason = L10n::format(L10n::text("sidecar.decision.apply",
                                           "Using chapters from %@ (%@, %d chapters): high confidence, score %d (%@)"),
                                args);
        break;
    case SidecarMatchConfidence::medium:
        d.action = Action::report;
        d.reason = L10n::format(
            L10n::text("sidecar.decision.report",
                       "Found %@ (%@, %d chapters) but did not use it: medium confidence, score %d (%@); "
                       "pass --chapters with that file to use it"),
            args);
        break;
    case SidecarMatchConfidence::low:
    case SidecarMatchConfidence::none:
        d.action = Action::ignore;
        d.reason = L10n::format(
            L10n::text("sidecar.decision.weak",
                       "Ignored %@ (%@, %d chapters): it does not match the audio well, score %d (%@)"),
            args);
        break;
    }
    return d;
}

} // namespace folivox
