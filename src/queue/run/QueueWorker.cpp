#include "queue/run/QueueWorker.h"

#include "core/json/DecodingError.h"
#include "core/json/JsonReader.h"
#include "platform/Log.h"
#include "queue/run/InProcessJobBuilder.h"
#include "queue/records/QueueBuildOrder.h"
#include "queue/run/QueueProgressThrottle.h"
#include "queue/run/QueueWorkerProtocol.h"

#include <cerrno>
#include <mutex>
#include <thread>

#include <unistd.h>

namespace folivox {

QueueWorker::QueueWorker(WriteLine writeLine)
    : writeLine_(std::move(writeLine))
    , state_(std::make_shared<State>())
{
}

void QueueWorker::readInput(int inputFd, std::shared_ptr<State> state)
{
    QByteArray pending;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(inputFd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        pending.append(buffer, n);
        qsizetype end;
        while ((end = pending.indexOf('\n')) >= 0) {
            QByteArray line = pending.left(end).trimmed();
            pending.remove(0, end + 1);
            if (line.isEmpty())
                continue;
            std::lock_guard lock(state->mutex);
            state->orders.push_back(std::move(line));
            state->changed.notify_all();
        }
    }
    // The queue has closed the pipe or its process is gone: a build still
    // running is of no use to anyone. (No log line here: this thread may
    // still run while the process exits.)
    std::lock_guard lock(state->mutex);
    state->inputEnded = true;
    if (state->current)
        state->current->cancel();
    state->changed.notify_all();
}

void QueueWorker::stop()
{
    std::lock_guard lock(state_->mutex);
    state_->stopped = true;
    if (state_->current)
        state_->current->cancel();
    state_->changed.notify_all();
}

int QueueWorker::serve(int inputFd)
{
    // The reader may be blocked in read() when serve() returns (after a
    // stop); it holds the state, not the worker, and ends with the process.
    std::thread(readInput, inputFd, state_).detach();
    for (;;) {
        QByteArray order;
        std::shared_ptr<ManualCancellationToken> token;
        {
            std::unique_lock lock(state_->mutex);
            state_->changed.wait(lock, [this] { return state_->stopped || state_->inputEnded || !state_->orders.empty(); });
            if (state_->stopped)
                return 130;
            // An order that arrived together with the end of the input has
            // nobody left to hear its result.
            if (state_->inputEnded)
                return 0;
            order = std::move(state_->orders.front());
            state_->orders.pop_front();
            token = std::make_shared<ManualCancellationToken>();
            state_->current = token;
        }
        run(order, token, writeLine_);
        std::lock_guard lock(state_->mutex);
        state_->current.reset();
        if (state_->inputEnded && !state_->stopped && token->isCancelled())
            Log::write(QStringLiteral("[Queue] build worker: the queue went away during the build — build cancelled"));
    }
}

int QueueWorker::run(const QByteArray& orderText, std::shared_ptr<const CancellationToken> token, const WriteLine& writeLine)
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
