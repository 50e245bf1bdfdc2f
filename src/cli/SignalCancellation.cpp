#include "cli/SignalCancellation.h"

#include "container/io/FaultInjection.h"
#include "platform/Log.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <csignal>
#include <map>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace folivox::cli {

namespace {

std::atomic<bool> gSignalled{false};
std::atomic<bool> gHandled{false};
std::atomic<int> gSignalCount{0};
std::atomic<bool> gRepeatsEnd{true};
int gPipe[2] = {-1, -1};
std::mutex gMutex;
std::map<int, std::function<void()>> gCallbacks;
int gNextId = 1;

void handler(int)
{
    gSignalled.store(true);
    const int n = ++gSignalCount;
    if (n >= 3 && gRepeatsEnd.load())
        ::_exit(130);
    const char byte = 1;
    [[maybe_unused]] auto w = ::write(gPipe[1], &byte, 1);
}

void watch()
{
    char byte;
    while (::read(gPipe[0], &byte, 1) == 1) {
        if (gHandled.exchange(true))
            continue;
        std::map<int, std::function<void()>> callbacks;
        {
            std::lock_guard lock(gMutex);
            callbacks = gCallbacks;
        }
        for (auto& [id, f] : callbacks)
            f();
    }
}

int signalNumber(const QString& name)
{
    bool numeric = false;
    const int n = name.toInt(&numeric);
    if (numeric)
        return n;
    const QString bare = name.toUpper().remove(QStringLiteral("SIG"));
    if (bare == u"INT")
        return SIGINT;
    if (bare == u"TERM")
        return SIGTERM;
    if (bare == u"HUP")
        return SIGHUP;
    if (bare == u"KILL")
        return SIGKILL;
    return 0;
}

// FOLIVOX_FAULT_SIGNAL: a signal sent to this process at a named point.
void installFaultSignal()
{
    const QString spec = qEnvironmentVariable("FOLIVOX_FAULT_SIGNAL");
    const qsizetype colon = spec.lastIndexOf(u':');
    if (colon <= 0)
        return;
    const QString point = spec.left(colon);
    const int number = signalNumber(spec.mid(colon + 1));
    if (number <= 0)
        return;
    static FaultInjection::Scope scope([point, number](const QString& reached) {
        if (reached != point)
            return;
        Log::write(QStringLiteral("[Fault] raising signal %1 at %2").arg(number).arg(point));
        ::raise(number);
    });
}

} // namespace

void SignalCancellation::install()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (::pipe2(gPipe, O_CLOEXEC) != 0)
            return;
        std::thread(watch).detach();
        struct sigaction sa {};
        sa.sa_handler = handler;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_RESTART;
        ::sigaction(SIGINT, &sa, nullptr);
        ::sigaction(SIGTERM, &sa, nullptr);
        ::sigaction(SIGHUP, &sa, nullptr);
        installFaultSignal();
    });
}

void SignalCancellation::setRepeatsEndProgram(bool end)
{
    gRepeatsEnd.store(end);
}

bool SignalCancellation::cancelled()
{
    return gSignalled.load();
}

int SignalCancellation::onCancel(std::function<void()> f)
{
    std::unique_lock lock(gMutex);
    const int id = gNextId++;
    gCallbacks.emplace(id, f);
    lock.unlock();
    if (gHandled.load())
        f();
    return id;
}

void SignalCancellation::removeCallback(int id)
{
    std::lock_guard lock(gMutex);
    gCallbacks.erase(id);
}

} // namespace folivox::cli
