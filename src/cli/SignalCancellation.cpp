#include "cli/SignalCancellation.h"

#include <atomic>
#include <csignal>
#include <map>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace folivox::cli {

namespace {

std::atomic<bool> gCancelled{false};
std::atomic<int> gSignalCount{0};
int gPipe[2] = {-1, -1};
std::mutex gMutex;
std::map<int, std::function<void()>> gCallbacks;
int gNextId = 1;

void handler(int)
{
    const int n = ++gSignalCount;
    if (n >= 3)
        ::_exit(130);
    const char byte = 1;
    [[maybe_unused]] auto w = ::write(gPipe[1], &byte, 1);
}

void watch()
{
    char byte;
    while (::read(gPipe[0], &byte, 1) == 1) {
        if (gCancelled.exchange(true))
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
    });
}

bool SignalCancellation::cancelled()
{
    return gCancelled.load();
}

int SignalCancellation::onCancel(std::function<void()> f)
{
    std::unique_lock lock(gMutex);
    const int id = gNextId++;
    gCallbacks.emplace(id, f);
    lock.unlock();
    if (gCancelled.load())
        f();
    return id;
}

void SignalCancellation::removeCallback(int id)
{
    std::lock_guard lock(gMutex);
    gCallbacks.erase(id);
}

} // namespace folivox::cli
