#include "process/AnyOfCancellationToken.h"
#include "process/ManualCancellationToken.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace folivox;

TEST(CancellationTokenTest, ManualTokenStaysCancelledAndIsSeenAcrossThreads)
{
    ManualCancellationToken token;
    EXPECT_FALSE(token.isCancelled());
    std::atomic<bool> seen{false};
    std::thread watcher([&] {
        while (!token.isCancelled())
            std::this_thread::yield();
        seen = true;
    });
    token.cancel();
    watcher.join();
    EXPECT_TRUE(seen.load());
    token.cancel();
    EXPECT_TRUE(token.isCancelled());
    EXPECT_FALSE(CancellationToken::never().isCancelled());
}

TEST(CancellationTokenTest, AnyOfIsCancelledWhenAnyMemberIsAndIgnoresMissingMembers)
{
    auto a = std::make_shared<ManualCancellationToken>();
    auto b = std::make_shared<ManualCancellationToken>();
    AnyOfCancellationToken any({a, nullptr, b});
    EXPECT_EQ(any.tokens().size(), 2u);
    EXPECT_FALSE(any.isCancelled());
    b->cancel();
    EXPECT_TRUE(any.isCancelled());
    EXPECT_FALSE(a->isCancelled());

    AnyOfCancellationToken empty;
    EXPECT_FALSE(empty.isCancelled());

    // Nesting: a program-wide token combined with a per-build one.
    auto program = std::make_shared<ManualCancellationToken>();
    auto inner = std::make_shared<AnyOfCancellationToken>(
        std::vector<std::shared_ptr<const CancellationToken>>{std::make_shared<ManualCancellationToken>()});
    AnyOfCancellationToken outer({inner, program});
    EXPECT_FALSE(outer.isCancelled());
    program->cancel();
    EXPECT_TRUE(outer.isCancelled());
}

