#include "export/engine/ExportOperationTask.h"
#include "export/engine/ExportTaskCancellationToken.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace folivox;

TEST(ExportOperationTaskTest, ExportTaskTokenFollowsTheTaskAndForgetsItWhenGone)
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

TEST(ExportOperationTaskTest, ExportOperationTaskRunsOnCancelExactlyOnceEvenWhenCancelledFromManyThreads)
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
