#pragma once

#include "build/BuildRequest.h"
#include "build/BuildResult.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

namespace folivox {

class ManualCancellationToken;

// Runs one BuildUseCase at a time on a worker thread and reports back on the
// main thread: the phase and fraction as they change (at most one report
// waits in the event queue, so a busy engine never floods the window), then
// exactly one of finished, failed or cancelled. cancel() fires the build's
// token; the engine stops its children and removes what it had written.
class BuildRunner : public QObject {
    Q_OBJECT
public:
    explicit BuildRunner(QObject* parent = nullptr);
    // Cancels a running build and waits for it.
    ~BuildRunner() override;

    // False when a build is already running.
    bool start(const BuildRequest& request);
    void cancel();
    bool isRunning() const { return running_; }
    // The phase and fraction last reported.
    QString phase() const;
    double fraction() const;

    struct Failure {
        QString message;
        QString file;
        QString logFile;
        bool usage = false;
    };

Q_SIGNALS:
    void progressed(const QString& phase, double fraction);
    void finished(const folivox::BuildResult& result);
    void failed(const folivox::BuildRunner::Failure& failure);
    void cancelled();

private:
    void deliverProgress();
    void join();

    bool running_ = false;
    std::thread thread_;
    std::shared_ptr<ManualCancellationToken> token_;
    mutable std::mutex mutex_;
    QString phase_;
    double fraction_ = 0;
    std::atomic<bool> progressQueued_{false};
};

} // namespace folivox

Q_DECLARE_METATYPE(folivox::BuildResult)
Q_DECLARE_METATYPE(folivox::BuildRunner::Failure)
