#include "queue/QueueWorker.h"

#include "core/json/DecodingError.h"
#include "core/json/JsonReader.h"
#include "queue/InProcessJobBuilder.h"
#include "queue/QueueBuildOrder.h"
#include "queue/QueueProgressThrottle.h"
#include "queue/QueueWorkerProtocol.h"

#include <mutex>

namespace folivox {

int QueueWorker::run(const QByteArray& orderText, std::shared_ptr<const CancellationToken> token,
                     const std::function<void(const QByteArray&)>& writeLine)
{
    QueueBuildOrder order;
    try {
        order = QueueBuildOrder::fromJson(JsonReader::parseObject(orderText));
    } catch (const DecodingError& e) {
        writeLine(QueueWorkerProtocol::failed(
            QueueBuildFailure::classified(JobAttempt::ErrorClass::permanent,
                                          QStringLiteral("the queued build could not be read: ") + e.description())));
        return 2;
    }
    // Progress is thinned out here already, so the pipe carries only what the
    // queue would keep.
    auto throttle = std::make_shared<QueueProgressThrottle>();
    auto mutex = std::make_shared<std::mutex>();
    BuildUseCase::Sinks sinks;
    sinks.progress = [&writeLine, throttle, mutex](const QString& phase, double fraction) {
        std::lock_guard lock(*mutex);
        if (throttle->accept(phase, fraction))
            writeLine(QueueWorkerProtocol::progress(phase, fraction));
    };
    sinks.note = [&writeLine, mutex](const QString& text) {
        std::lock_guard lock(*mutex);
        writeLine(QueueWorkerProtocol::note(text));
    };
    sinks.started = [&writeLine, mutex](double seconds) {
        std::lock_guard lock(*mutex);
        writeLine(QueueWorkerProtocol::started(seconds));
    };
    try {
        const QueueJobBuilder::Built built = InProcessJobBuilder().build(order, token, sinks);
        std::lock_guard lock(*mutex);
        writeLine(QueueWorkerProtocol::built(built));
        return 0;
    } catch (const QueueBuildFailure& failure) {
        std::lock_guard lock(*mutex);
        writeLine(QueueWorkerProtocol::failed(failure));
        return failure.cancelled ? 130 : 1;
    }
}

} // namespace folivox
