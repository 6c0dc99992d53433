#include "platform/connection.h"
#include "platform/tcp/chunk_pool.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

/// The size from which memory is scarce, and how many allocations of such a size still succeed.
std::atomic<std::size_t> scarceSize = SIZE_MAX;
std::atomic<int> scarceLeft = 0;

} // namespace

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    try {
        const bool isRefused = size >= scarceSize && scarceLeft-- <= 0;
        return isRefused ? nullptr : ::operator new[](size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace quillbox {

TEST(ChunkPool, lendsWhatIsWanted)
{
    const auto pool = std::make_shared<ChunkPool>();
    const auto chunk = pool->borrow(1, 200'000);
    EXPECT_GE(chunk->room().size(), 200'000U);
    EXPECT_EQ(chunk->size(), 0U);
    EXPECT_EQ(pool->lent(), 256U * 1024);
}

TEST(ChunkPool, lendsASmallBufferForAFewBytes)
{
    const auto pool = std::make_shared<ChunkPool>();
    EXPECT_EQ(pool->borrow(1, 1)->room().size(), ChunkPool::kSmallSize);
}

TEST(ChunkPool, lendsAWholeContentAtMost)
{
    const auto pool = std::make_shared<ChunkPool>();
    EXPECT_EQ(pool->borrow(1, kMaximumContentSize)->room().size(), kMaximumContentSize);
}

TEST(ChunkPool, countsWhatIsFilled)
{
    const auto pool = std::make_shared<ChunkPool>();
    const auto chunk = pool->borrow(1, 100);
    chunk->room()[0] = std::byte{'a'};
    chunk->grow(1);
    chunk->room()[0] = std::byte{'b'};
    chunk->grow(1);
    ASSERT_EQ(chunk->size(), 2U);
    EXPECT_EQ(chunk->bytes()[0], std::byte{'a'});
    EXPECT_EQ(chunk->bytes()[1], std::byte{'b'});
}

TEST(ChunkPool, usesABufferAgain)
{
    const auto pool = std::make_shared<ChunkPool>();
    auto first = pool->borrow(1, kMaximumContentSize);
    const auto* place = first->room().data();
    first.reset();
    EXPECT_EQ(pool->borrow(1, kMaximumContentSize)->room().data(), place);
}

TEST(ChunkPool, keepsOnlyAFew)
{
    const auto pool = std::make_shared<ChunkPool>();
    std::vector<std::unique_ptr<Chunk>> chunks;
    for (int count = 0; count < 40; ++count)
        chunks.push_back(pool->borrow(1, kMaximumContentSize));
    chunks.clear();
    EXPECT_EQ(pool->lent(), 0U);
    EXPECT_LE(pool->kept(), 8U * 1024 * 1024);
}

TEST(ChunkPool, keepsSoManyOfEachSize)
{
    const auto pool = std::make_shared<ChunkPool>();
    std::vector<std::unique_ptr<Chunk>> chunks;
    for (int count = 0; count < 5; ++count)
        chunks.push_back(pool->borrow(kMaximumContentSize, kMaximumContentSize));
    chunks.clear();
    EXPECT_EQ(pool->kept(), 4 * kMaximumContentSize);
}

TEST(ChunkPool, lendsASmallBufferWhereThereIsNoMemoryForALargeOne)
{
    const auto pool = std::make_shared<ChunkPool>();
    pool->borrow(1, 100'000);
    ASSERT_GT(pool->kept(), 0U);
    scarceSize = kMaximumContentSize;
    const auto chunk = pool->borrow(1, kMaximumContentSize);
    scarceSize = SIZE_MAX;
    EXPECT_EQ(chunk->room().size(), ChunkPool::kSmallSize);
    EXPECT_EQ(pool->lent(), ChunkPool::kSmallSize);
    EXPECT_EQ(pool->kept(), 0U) << "what is not in use was freed";
}

TEST(ChunkPool, leavesTheLastMemoryToTheRestOfTheProgram)
{
    const auto pool = std::make_shared<ChunkPool>();
    scarceSize = ChunkPool::kSmallSize + 1;
    scarceLeft = 1;
    const auto chunk = pool->borrow(1, kMaximumContentSize);
    scarceSize = SIZE_MAX;
    EXPECT_EQ(chunk->room().size(), ChunkPool::kSmallSize);
    EXPECT_EQ(pool->lent(), ChunkPool::kSmallSize);
}

TEST(ChunkPool, lendsLargeBuffersToAFewAndMiddlingOnesToMany)
{
    const auto pool = std::make_shared<ChunkPool>();
    std::vector<std::unique_ptr<Chunk>> chunks;
    for (std::size_t out = 0; out < ChunkPool::kLargeBudget; out += kMaximumContentSize) {
        chunks.push_back(pool->borrow(1, kMaximumContentSize));
        EXPECT_EQ(chunks.back()->room().size(), kMaximumContentSize);
    }
    EXPECT_EQ(pool->borrow(1, kMaximumContentSize)->room().size(), ChunkPool::kMiddleSize);
    EXPECT_EQ(pool->borrow(1, 100)->room().size(), ChunkPool::kSmallSize);
    chunks.pop_back();
    EXPECT_EQ(pool->borrow(1, kMaximumContentSize)->room().size(), kMaximumContentSize);
}

TEST(ChunkPool, lendsSmallBuffersOnceTheBudgetIsSpent)
{
    const auto pool = std::make_shared<ChunkPool>();
    std::vector<std::unique_ptr<Chunk>> chunks;
    for (int count = 0; count < 5000; ++count)
        chunks.push_back(pool->borrow(1, kMaximumContentSize));
    EXPECT_EQ(chunks.back()->room().size(), ChunkPool::kSmallSize);
    EXPECT_LE(pool->lent(), ChunkPool::kBudget + 5000 * ChunkPool::kSmallSize);
    EXPECT_GE(pool->borrow(300'000, kMaximumContentSize)->room().size(), 300'000U)
        << "the minimum is always had";
    chunks.clear();
    EXPECT_EQ(pool->borrow(1, kMaximumContentSize)->room().size(), kMaximumContentSize);
}

TEST(ChunkPool, lendsTheLastMiddlingBufferOfTheBudget)
{
    const auto pool = std::make_shared<ChunkPool>();
    std::vector<std::unique_ptr<Chunk>> chunks;
    while (pool->lent() < ChunkPool::kBudget - ChunkPool::kMiddleSize)
        chunks.push_back(pool->borrow(1, kMaximumContentSize));
    ASSERT_EQ(pool->lent(), ChunkPool::kBudget - ChunkPool::kMiddleSize);
    chunks.push_back(pool->borrow(1, kMaximumContentSize));
    EXPECT_EQ(chunks.back()->room().size(), ChunkPool::kMiddleSize);
    EXPECT_EQ(pool->borrow(1, kMaximumContentSize)->room().size(), ChunkPool::kSmallSize);
}

TEST(ChunkPool, mayGoBeforeItsChunks)
{
    auto pool = std::make_shared<ChunkPool>();
    auto chunk = pool->borrow(1, 100);
    pool.reset();
    chunk->room()[0] = std::byte{1};
    chunk.reset();
}

TEST(ChunkPool, servesManyThreads)
{
    const auto pool = std::make_shared<ChunkPool>();
    std::vector<std::thread> threads;
    for (int count = 0; count < 4; ++count)
        threads.emplace_back([&pool] {
            for (std::size_t round = 1; round < 2000; ++round)
                pool->borrow(1, round * 500)->room()[0] = std::byte{1};
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(pool->lent(), 0U);
}

} // namespace quillbox
