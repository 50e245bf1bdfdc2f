#include "container/io/FaultInjection.h"

#include <atomic>
#include <mutex>

namespace folivox {

namespace {
std::atomic<bool> gInstalled{false};
std::mutex gMutex;
FaultInjection::Hook& hookSlot()
{
    static FaultInjection::Hook hook;
    return hook;
}
} // namespace

void FaultInjection::reach(const char* point)
{
    if (!gInstalled.load(std::memory_order_acquire))
        return;
    Hook hook;
    {
        std::lock_guard lock(gMutex);
        hook = hookSlot();
    }
    if (hook)
        hook(QString::fromLatin1(point));
}

FaultInjection::Scope::Scope(Hook hook)
{
    std::lock_guard lock(gMutex);
    hookSlot() = std::move(hook);
    gInstalled.store(true, std::memory_order_release);
}

FaultInjection::Scope::~Scope()
{
    std::lock_guard lock(gMutex);
    hookSlot() = nullptr;
    gInstalled.store(false, std::memory_order_release);
}

} // namespace folivox
