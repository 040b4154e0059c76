#include "movie/umc/media_data.h"

#include <gtest/gtest.h>

#include <cstring>

#include "movie/umc/memory_allocator.h"

namespace tarn::UMC {
namespace {

TEST(MediaData, DataStaysInsideItsBuffer) {
    MediaData data;
    EXPECT_EQ(data.SetDataSize(0), kStatusNullPointer);
    ASSERT_EQ(data.Alloc(10), kStatusOk);
    EXPECT_EQ(data.SetDataSize(11), kStatusOutOfRange);
    ASSERT_EQ(data.SetDataSize(8), kStatusOk);
    const struct {
        int64_t delta;
        Status status;
        uint32_t left;
    } steps[] = {
        {5, kStatusOk, 3},
        {4, kStatusOutOfRange, 3},
        {-6, kStatusOutOfRange, 3},
        {INT64_MAX, kStatusOutOfRange, 3},
        {INT64_MIN, kStatusOutOfRange, 3},
        {-2, kStatusOk, 5},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.delta);
        EXPECT_EQ(data.MoveDataPointer(step.delta), step.status);
        EXPECT_EQ(data.GetDataSize(), step.left);
        EXPECT_EQ(data.GetDataPointer() - data.GetBufferPointer(), 8 - int64_t{step.left});
    }
    EXPECT_EQ(data.SetDataSize(8), kStatusOutOfRange) << "counted from the data pointer";
    EXPECT_EQ(data.ResetDataPointer(), kStatusOk);
    EXPECT_EQ(data.GetDataSize(), 8u);
}

TEST(MediaData, MovesAsMuchAsFits) {
    uint8_t bytes[] = {1, 2, 3, 4, 5}, target[] = {9, 0, 0, 0, 0};
    MediaData from, to;
    ASSERT_EQ(from.SetBufferPointer(bytes, 5), kStatusOk);
    EXPECT_EQ(from.MoveDataTo(&to), kStatusNullPointer) << "the other has no buffer";
    ASSERT_EQ(to.SetBufferPointer(target, 3), kStatusOk);
    EXPECT_EQ(from.MoveDataTo(&to), kStatusNoData);

    ASSERT_EQ(from.SetDataSize(5), kStatusOk);
    ASSERT_EQ(to.SetDataSize(1), kStatusOk);
    from.startTime = 1.5;
    EXPECT_EQ(from.MoveDataTo(&to), kStatusOk);
    EXPECT_EQ(from.GetDataSize(), 3u);
    EXPECT_EQ(from.GetDataPointer(), bytes + 2);
    const uint8_t expected[] = {9, 1, 2, 0, 0};
    EXPECT_EQ(std::memcmp(target, expected, 5), 0);
    EXPECT_EQ(to.startTime, 1.5);
    EXPECT_EQ(from.MoveDataTo(&to), kStatusNoData) << "full";

    EXPECT_EQ(from.CopyTo(&to), kStatusTargetTooSmall);
    ASSERT_EQ(to.SetBufferPointer(target, 5), kStatusOk);
    EXPECT_EQ(from.CopyTo(&to), kStatusOk);
    EXPECT_EQ(std::memcmp(bytes, target, 5), 0);
    EXPECT_EQ(to.GetDataSize(), 3u);
}

TEST(AudioData, StartsOnItsAlignment) {
    alignas(64) uint8_t bytes[128];
    AudioData data, view;
    EXPECT_EQ(data.SetAlignedBuffer(bytes + 1, 127, 48), kStatusBadParameter);
    ASSERT_EQ(data.SetAlignedBuffer(bytes + 1, 127, 64), kStatusOk);
    EXPECT_EQ(data.GetBufferSize(), 64u);
    ASSERT_EQ(data.SetDataSize(10), kStatusOk);
    ASSERT_EQ(view.Assign(data), kStatusOk);
    EXPECT_EQ(view.GetDataPointer(), bytes + 64);
    EXPECT_EQ(view.GetDataSize(), 10u);
    EXPECT_FALSE(view.IsOwner());

    ASSERT_EQ(data.Alloc(100), kStatusOk);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(data.GetDataPointer()) % 64, 0u);
    EXPECT_EQ(data.SetDataSize(100), kStatusOk);
    EXPECT_TRUE(data.IsOwner());
    EXPECT_EQ(data.Alloc(UINT32_MAX), kStatusNoMemory);
    EXPECT_EQ(data.GetBufferPointer(), nullptr);
}

TEST(DefaultMemoryAllocator, LockedBlocksStay) {
    DefaultMemoryAllocator allocator;
    MemId block = 0, other = 0;
    EXPECT_EQ(allocator.Alloc(&block, 0, 0, 16), kStatusBadParameter);
    EXPECT_EQ(allocator.Alloc(&block, 10, 0, 3), kStatusBadParameter);
    EXPECT_EQ(allocator.Alloc(&block, SIZE_MAX - 3, 0, 16), kStatusNoMemory);
    ASSERT_EQ(allocator.Alloc(&block, 10, 0, 256), kStatusOk);
    ASSERT_EQ(allocator.Alloc(&other, 10, 0, 16), kStatusOk);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(allocator.Lock(block)) % 256, 0u);
    EXPECT_EQ(allocator.Free(block), kStatusBadParameter);
    EXPECT_EQ(allocator.Unlock(block), kStatusOk);
    EXPECT_EQ(allocator.Unlock(block), kStatusBadParameter);
    EXPECT_EQ(allocator.Free(block), kStatusOk);
    EXPECT_EQ(allocator.Lock(block), nullptr);
    ASSERT_NE(allocator.Lock(other), nullptr);
    EXPECT_EQ(allocator.DeallocateMem(other), kStatusOk);
}

}  // namespace
}  // namespace tarn::UMC
