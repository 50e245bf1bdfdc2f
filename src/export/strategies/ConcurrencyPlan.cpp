#include "export/strategies/ConcurrencyPlan.h"

#include "platform/AppSettings.h"

#include <QThread>

#include <algorithm>

namespace folivox {

ConcurrencyPlan ConcurrencyPlan::make(int cores, std::optional<int> requestedJobs, int workItems)
{
    cores = std::max(1, cores);
    int jobs = requestedJobs && *requestedJobs > 0 ? *requestedJobs : cores;
    jobs = std::clamp(jobs, 1, std::max(1, workItems));
    // Whatever the jobs leave idle is shared out among them; a user who asks
    // for more jobs than cores gets one thread each.
    const int threads = std::max(1, cores / jobs);
    return {jobs, threads};
}

ConcurrencyPlan ConcurrencyPlan::forMachine(int workItems, std::optional<int> requestedJobs)
{
    return make(processorCount(), requestedJobs ? requestedJobs : userSetting(), workItems);
}

std::optional<int> ConcurrencyPlan::userSetting()
{
    AppSettings settings;
    bool ok = false;
    const int value = settings.value(QString::fromLatin1(settingsKey)).toInt(&ok);
    if (ok && value > 0)
        return value;
    return std::nullopt;
}

int ConcurrencyPlan::processorCount()
{
    return std::max(1, QThread::idealThreadCount());
}

QString ConcurrencyPlan::describe() const
{
    return QStringLiteral("%1 jobs × %2 threads").arg(jobs).arg(threadsPerJob);
}

} // namespace folivox
