#include "movie/umc/media_data.h"

#include <gtest/gtest.h>

#include <vector>

#include "movie/umc/memory_allocator.h"

namespace tarn::UMC {
namespace {

TEST(MediaData, DataStaysInsideItsBuffer) {
    MediaData data;
    EXPECT_EQ(data.SetDataSize(0), kStatusNullPointer);
    ASSERT_EQ(data.Alloc(10), kStatusOk);
    EXPECT_EQ(data.SetDataSize(11), kStatusOutOfRange);
    ASSERT_EQ(data.SetDataSize(8), kStatusOk);
    const std::tuple<int64_t, Status, uint32_t> steps[] = {
        {5, kStatusOk, 3},
        {-6, kStatusOutOfRange, 3},
        {INT64_MAX, kStatusOutOfRange, 3},
        {-2, kStatusOk, 5},
    };
    for (const auto& [delta, status, left] : steps) {
        SCOPED_TRACE(delta);
        EXPECT_EQ(data.MoveDataPointer(delta), status);
        EXPECT_EQ(data.GetDataSize(), left);
    }
    EXPECT_EQ(data.ResetDataPointer(), kStatusOk);
    EXPECT_EQ(data.GetDataSize(), 8u);
}

TEST(MediaData, MovesAndCopiesWhatFits) {
    uint8_t bytes[] = {1, 2, 3, 4, 5}, target[] = {9, 0, 0, 0, 0};
    MediaData from, to;
    ASSERT_EQ(from.SetBufferPointer(bytes, 5), kStatusOk);
    ASSERT_EQ(to.SetBufferPointer(target, 3), kStatusOk);
    ASSERT_EQ(from.SetDataSize(5), kStatusOk);
    ASSERT_EQ(to.SetDataSize(1), kStatusOk);
    EXPECT_EQ(from.MoveDataTo(&to), kStatusOk);
    EXPECT_EQ(from.GetDataPointer(), bytes + 2);
    EXPECT_EQ(std::vector<uint8_t>(target, target + 5), (std::vector<uint8_t>{9, 1, 2, 0, 0}));
    EXPECT_EQ(from.CopyTo(&to), kStatusTargetTooSmall);
}

TEST(AudioData, StartsOnItsAlignment) {
    alignas(64) uint8_t bytes[128];
    AudioData data, view;
    ASSERT_EQ(data.SetAlignedBuffer(bytes + 1, 127, 64), kStatusOk);
    ASSERT_EQ(data.SetDataSize(10), kStatusOk);
    ASSERT_EQ(view.Assign(data), kStatusOk);
    EXPECT_EQ(view.GetDataPointer(), bytes + 64);
    EXPECT_EQ(view.GetDataSize(), 10u);
    ASSERT_EQ(data.Alloc(100), kStatusOk);
    EXPECT_EQ(data.SetDataSize(100), kStatusOk);
    EXPECT_EQ(data.Alloc(UINT32_MAX), kStatusNoMemory);
    EXPECT_EQ(data.GetBufferPointer(), nullptr);
}

TEST(DefaultMemoryAllocator, LockedBlocksStay) {
    DefaultMemoryAllocator allocator;
    MemId block = 0;
    EXPECT_EQ(allocator.Alloc(&block, SIZE_MAX - 3, 0, 16), kStatusNoMemory);
    ASSERT_EQ(allocator.Alloc(&block, 10, 0, 256), kStatusOk);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(allocator.Lock(block)) % 256, 0u);
    EXPECT_EQ(allocator.Free(block), kStatusBadParameter);
    EXPECT_EQ(allocator.Unlock(block), kStatusOk);
    EXPECT_EQ(allocator.Free(block), kStatusOk);
    EXPECT_EQ(allocator.Lock(block), nullptr);
}

}  // namespace
}  // namespace tarn::UMC
