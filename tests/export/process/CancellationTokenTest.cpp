#include "export/AnyOfCancellationToken.h"
#include "export/ExportOperationTask.h"
#include "export/ExportTaskCancellationToken.h"
#include "export/ManualCancellationToken.h"

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

TEST(CancellationTokenTest, ExportTaskTokenFollowsTheTaskAndForgetsItWhenGone)
{
    auto task = std::make_shared<ExportOperationTask>();
    ExportTaskCancellationToken token(task);
    EXPECT_FALSE(token.isCancelled());
    task->cancel();
    EXPECT_TRUE(token.isCancelled());

    // The token does not keep the task alive, and a gone task cancels nothing.
    auto other = std::make_shared<ExportOperationTask>();
    ExportTaskCancellationToken weak(other);
    std::weak_ptr<ExportOperationTask> watch = other;
    other->cancel();
    EXPECT_TRUE(weak.isCancelled());
    other.reset();
    EXPECT_TRUE(watch.expired());
    EXPECT_FALSE(weak.isCancelled());
}

TEST(CancellationTokenTest, ExportOperationTaskRunsOnCancelExactlyOnceEvenWhenCancelledFromManyThreads)
{
    ExportOperationTask task;
    std::atomic<int> calls{0};
    task.setOnCancel([&] { ++calls; });
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] { task.cancel(); });
    for (auto& t : threads)
        t.join();
    EXPECT_TRUE(task.isCancelled());
    EXPECT_EQ(calls.load(), 1);

    // A callback set after the cancel runs at once.
    int late = 0;
    task.setOnCancel([&] { ++late; });
    EXPECT_EQ(late, 1);
    task.cancel();
    EXPECT_EQ(calls.load(), 1);
    EXPECT_EQ(late, 1);
}
