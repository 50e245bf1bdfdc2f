#include "app/build/BuildRunner.h"

#include "build/BuildFailure.h"
#include "build/BuildUseCase.h"
#include "process/ManualCancellationToken.h"
#include "platform/L10n.h"
#include "platform/Log.h"

namespace folivox {

BuildRunner::BuildRunner(QObject* parent)
    : QObject(parent)
{
}

BuildRunner::~BuildRunner()
{
    cancel();
    join();
}

void BuildRunner::join()
{
    if (thread_.joinable())
        thread_.join();
}

QString BuildRunner::phase() const
{
    std::lock_guard lock(mutex_);
    return phase_;
}

double BuildRunner::fraction() const
{
    std::lock_guard lock(mutex_);
    return fraction_;
}

bool BuildRunner::start(const BuildRequest& request)
{
    if (running_)
        return false;
    join();
    running_ = true;
    token_ = std::make_shared<ManualCancellationToken>();
    {
        std::lock_guard lock(mutex_);
        phase_ = L10n::text("app.build.phase.preparing", "Preparing…");
        fraction_ = 0;
    }
    Log::write(QStringLiteral("[App] build started: ") + request.output.value_or(QString()));
    auto token = token_;
    thread_ = std::thread([this, request, token] {
        BuildUseCase::Sinks sinks;
        sinks.progress = [this](const QString& phase, double fraction) {
            {
                std::lock_guard lock(mutex_);
                phase_ = phase;
                fraction_ = fraction;
            }
            if (!progressQueued_.exchange(true))
                QMetaObject::invokeMethod(this, [this] { deliverProgress(); }, Qt::QueuedConnection);
        };
        std::function<void()> deliver;
        try {
            BuildResult result = BuildUseCase().run(request, token, sinks);
            deliver = [this, result] {
                join();
                running_ = false;
                Q_EMIT finished(result);
            };
        } catch (const BuildFailure& f) {
            if (f.kind() == BuildFailure::Kind::cancelled) {
                deliver = [this] {
                    join();
                    running_ = false;
                    Q_EMIT cancelled();
                };
            } else {
                Failure failure{f.message(), f.file().value_or(QString()), f.logFile,
                                f.kind() == BuildFailure::Kind::usage};
                deliver = [this, failure] {
                    join();
                    running_ = false;
                    Q_EMIT failed(failure);
                };
            }
        } catch (const std::exception& e) {
            Failure failure{QString::fromUtf8(e.what()), QString(), QString(), false};
            deliver = [this, failure] {
                join();
                running_ = false;
                Q_EMIT failed(failure);
            };
        }
        QMetaObject::invokeMethod(this, deliver, Qt::QueuedConnection);
    });
    return true;
}

void BuildRunner::deliverProgress()
{
    progressQueued_ = false;
    if (!running_)
        return;
    QString phase;
    double fraction = 0;
    {
        std::lock_guard lock(mutex_);
        phase = phase_;
        fraction = fraction_;
    }
    Q_EMIT progressed(phase, fraction);
}

void BuildRunner::cancel()
{
    if (running_ && token_) {
        Log::write(QStringLiteral("[App] build cancel requested"));
        token_->cancel();
    }
}

} // namespace folivox
