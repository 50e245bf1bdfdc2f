#include "import/probe/AudioStreamProbe.h"

#include "process/CancellationToken.h"
#include "process/FFmpegWrapper.h"
#include "platform/Log.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace folivox {

AudioStreamProbe::AudioStreamProbe(std::shared_ptr<const FFmpegWrapper> ffmpeg)
    : ffmpeg_(std::move(ffmpeg))
{
}

int AudioStreamProbe::countDecodeErrors(const QString& text)
{
    const int submitting
        = static_cast<int>(text.split(QStringLiteral("Error submitting packet to decoder: Invalid data found")).size())
        - 1;
    static const QRegularExpression kWhileDecoding(
        QStringLiteral("Error while decoding stream #\\d+:\\d+: Invalid data found"));
    int whileDecoding = 0;
    auto it = kWhileDecoding.globalMatch(text);
    while (it.hasNext()) {
        it.next();
        ++whileDecoding;
    }
    return submitting + whileDecoding;
}

bool AudioStreamProbe::appliesTo(const QString& path)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    return ext != u"ogg" && ext != u"oga" && ext != u"opus" && ext != u"spx";
}

AudioStreamProbe::Result AudioStreamProbe::probe(const QString& path, const CancellationToken& token) const
{
    Result result;
    FFmpegResult run;
    try {
        run = ffmpeg_->run({QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"), path,
                            QStringLiteral("-t"), QStringLiteral("1"), QStringLiteral("-vn"), QStringLiteral("-c:a"),
                            QStringLiteral("pcm_s16le"), QStringLiteral("-f"), QStringLiteral("null"),
                            QStringLiteral("-")},
                           std::nullopt, token);
    } catch (const std::exception& e) {
        Log::write(QStringLiteral("[AudioStreamProbe] skipped for ") + QFileInfo(path).fileName()
                   + QStringLiteral(": ") + QString::fromUtf8(e.what()));
        return result;
    }
    if (token.isCancelled())
        return result;
    result.ran = true;
    result.decodeErrors = countDecodeErrors(run.stderr);
    result.corrupt = isCorrupt(result.decodeErrors);
    if (result.corrupt)
        Log::write(QStringLiteral("[AudioStreamProbe] ❌ ") + QString::number(result.decodeErrors)
                   + QStringLiteral(" decode errors in 1s — stream is corrupt"));
    return result;
}

} // namespace folivox
