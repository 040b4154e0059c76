#include "mp4format/host.h"

#include <gtest/gtest.h>

#include "base/xp_file.h"
#include "mp4format/io.h"
#include "support/temp_dir.h"
#include "support/test_host.h"

namespace tarn {
namespace {

TEST(HostMemory, BlocksComeZeroedWithTheirHeader) {
    TestHost host;
    auto* block = static_cast<uint8_t*>(mp4_alloc(host, 5, kMemoryWindows));
    ASSERT_TRUE(block);
    EXPECT_EQ(Bytes(block, block + 5), Bytes(5, 0));
    EXPECT_EQ(Bytes(block - 8, block), (Bytes{'F', 'F', '4', 2, 0, 0, 0, 13}));
    EXPECT_EQ(host->usedClass2, 13u);
    mp4_free(host, block);
    EXPECT_EQ(host->usedClass2, 0u);
}

TEST(HostMemory, RefusesWhatDoesNotFit) {
    TestHost host;
    EXPECT_FALSE(mp4_alloc(host, 1, 0)) << "no such class";
    EXPECT_FALSE(mp4_alloc(host, 1, 3)) << "no such class";
    EXPECT_FALSE(mp4_alloc(host, UINT32_MAX - 7, kMemoryRecords)) << "past 32 bits with its header";
    EXPECT_FALSE(mp4_alloc(host, UINT64_MAX, kMemoryRecords));
    EXPECT_FALSE(mp4_make<uint64_t>(host, UINT64_MAX / 8 + 2));
    EXPECT_EQ(host.Calls(HostCall::kAlloc), 0u);
}

TEST(HostMemory, LimitsByClass) {
    TestHost host;
    ASSERT_EQ(mp4_set_memory_limit(host, true, 0, 50, 0), FF4_RET_OK);
    EXPECT_EQ(host->enabled, 0u);
    EXPECT_EQ(host->limitClass2, 131072u);
    ASSERT_EQ(mp4_set_memory_limit(host, false, 0, 50, 0), FF4_RET_OK);
    EXPECT_EQ(host->limitClass2, 0u);
    EXPECT_EQ(mp4_set_memory_limit(host, true, 1000, 101, 0), FF4_RET_ARGS);
    EXPECT_EQ(mp4_set_memory_limit(host, true, 1000, 30, 701), FF4_RET_ARGS);

    ASSERT_EQ(mp4_set_memory_limit(host, true, UINT64_MAX, 50, 0), FF4_RET_OK);
    EXPECT_EQ(host->limitClass2, UINT64_MAX / 2);
    ASSERT_EQ(mp4_set_memory_limit(host, true, 1000, 30, 700), FF4_RET_OK);
    auto all = mp4_make<uint8_t>(host, 292, kMemoryWindows);
    EXPECT_TRUE(all) << "300 of 300 bytes with the header";
    EXPECT_FALSE(mp4_make<uint8_t>(host, 0, kMemoryWindows));
    EXPECT_TRUE(mp4_make<uint8_t>(host, 692));
    all.reset();
    EXPECT_TRUE(mp4_make<uint8_t>(host, 292, kMemoryWindows)) << "given back";
}

TEST(HostCallbacks, BothTablesReadSeekAndMeasureAlike) {
    TempDir dir;
    dir.Write("file", "0123456789");
    XpFile file;
    ASSERT_EQ(file.Open(dir.Path("file"), XpFile::Mode::kReadWrite), 0);
    int descriptor = file.Descriptor();
    Mp4HostCallbacks tables[2];
    mp4_init_fd_callbacks(&tables[0]);
    mp4_init_file_callbacks(&tables[1]);
    ASSERT_EQ(tables[0].userData, nullptr);
    void* const users[] = {&descriptor, &file};
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(i == 0 ? "descriptor" : "file object");
        const Mp4HostCallbacks& c = tables[i];
        uint64_t size = 0, done = 0;
        char text[8] = {};
        EXPECT_EQ(c.seek(users[i], 4, kSeekStart), FF4_RET_OK);
        EXPECT_EQ(c.size(users[i], &size), FF4_RET_OK);
        EXPECT_EQ(size, 10u);
        EXPECT_EQ(c.read(users[i], text, 3, &done), FF4_RET_OK) << "measuring does not move";
        EXPECT_STREQ(text, "456");
        EXPECT_EQ(c.seek(users[i], -2, kSeekEnd), FF4_RET_OK);
        EXPECT_EQ(c.read(users[i], text, 8, &done), FF4_RET_OK);
        EXPECT_EQ(done, 2u) << "short at the end";
        EXPECT_EQ(c.seek(users[i], 0, 3), FF4_RET_ARGS);
        EXPECT_EQ(c.seek(users[i], -1, kSeekStart), FF4_RET_FILE);
        EXPECT_EQ(c.read(users[i], nullptr, 1, &done), FF4_RET_ARGS);
        EXPECT_FALSE(c.memcpy(users[i], text, 2, "abc", 3)) << "more than there is room for";
        EXPECT_FALSE(c.strncpy(users[i], text, 3, "abc", 3)) << "no room for the closing zero";
        EXPECT_STREQ(c.strncpy(users[i], text, 4, "abcdef", 3), "abc");
    }
}

TEST(HostIo, ShortIsFailedAndClaimsAreMeasured) {
    TestHost host(Bytes(10, 1));
    uint8_t buffer[16];
    EXPECT_EQ(mp4_read_at(host, host.File(), 4, buffer, 6), FF4_RET_OK);
    EXPECT_EQ(mp4_read_at(host, host.File(), 4, buffer, 7), FF4_RET_FILE);
    EXPECT_EQ(mp4_read_at(host, host.File(), UINT64_MAX, buffer, 1), FF4_RET_OVERFLOW);
    HostPtr<uint8_t> block(nullptr, {host});
    EXPECT_EQ(mp4_read_block(host, host.File(), 4, 0, &block), FF4_RET_OK);
    EXPECT_FALSE(block);
    EXPECT_EQ(mp4_read_block(host, host.File(), 4, uint64_t{1} << 31, &block), FF4_RET_FILE);
    EXPECT_EQ(host.LargestBlock(), 0u) << "nothing allocated for bytes that are not there";
}

}  // namespace
}  // namespace tarn
