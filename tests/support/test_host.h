// test_host.h - a host over files in memory or behind a descriptor that counts every call, fails
// the one it is told to and knows when a block was not given back.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "mp4format/host.h"
#include "support/byte_builder.h"

namespace tarn {

enum class HostCall { kRead, kWrite, kSeek, kTell, kSize, kAlloc, kFree };
constexpr size_t kHostCalls = 7;

// What befalls a call: it fails, or it moves half of its bytes and says so (reads and writes).
enum class Fault { kFail, kShort };

// Blocks that are still out at the destruction abort the program with a message: tests that want
// an ordinary failure look at LiveBlocks() first.
class TestHost {
public:
    TestHost();
    explicit TestHost(Bytes content) : TestHost() { Add(std::move(content)); }
    ~TestHost();
    TestHost(const TestHost&) = delete;
    TestHost& operator=(const TestHost&) = delete;

    operator Mp4Host*() { return &m_host; }
    Mp4Host* operator->() { return &m_host; }

    // Files live as long as the host. A file in memory grows when it is written to; a descriptor
    // stays the caller's and keeps its own position.
    Mp4File* Add(Bytes content);
    Mp4File* AddDescriptor(int descriptor);
    // The file added last.
    Mp4File* File() const;
    const Bytes& Content(const Mp4File* file) const;

    // The n-th call of that kind from now on (1 is the next) suffers the fault; 0 disarms.
    void FailAt(HostCall call, uint64_t n, Fault fault = Fault::kFail);
    bool FaultMet() const { return m_faultMet; }

    uint64_t Calls(HostCall call) const { return m_calls[static_cast<size_t>(call)]; }
    uint64_t BytesRead() const { return m_bytesRead; }
    uint64_t BytesWritten() const { return m_bytesWritten; }
    void ResetCounts();

    uint64_t LiveBlocks() const { return m_blocks.size(); }
    uint64_t LiveBytes() const { return m_liveBytes; }
    uint64_t PeakBytes() const { return m_peakBytes; }
    // The most that was ever asked for in one block, whether it was given or not.
    uint64_t LargestBlock() const { return m_largestBlock; }
    // Gives back what the code under test forgot.
    void FreeLiveBlocks();

private:
    struct OpenFile;
    // Counts a call; true when it is the one to suffer the fault.
    bool Enter(HostCall call);
    template <typename Buffer, typename Some>
    static Mp4Result Transfer(HostCall call, void* file, Buffer* buffer, uint64_t size,
                              uint64_t* done, uint64_t TestHost::*total, Some some);
    static Mp4Result Read(void* file, void* buffer, uint64_t size, uint64_t* done);
    static Mp4Result Write(void* file, const void* data, uint64_t size, uint64_t* done);
    static Mp4Result Seek(void* file, int64_t offset, uint32_t origin);
    static Mp4Result Tell(void* file, uint64_t* position);
    static Mp4Result Size(void* file, uint64_t* size);
    static void* Alloc(void* self, uint64_t size);
    static void Free(void* self, void* block);

    Mp4Host m_host{};
    std::vector<std::unique_ptr<OpenFile>> m_files;
    std::unordered_map<void*, uint64_t> m_blocks;
    uint64_t m_calls[kHostCalls] = {};
    uint64_t m_bytesRead = 0, m_bytesWritten = 0;
    uint64_t m_liveBytes = 0, m_peakBytes = 0, m_largestBlock = 0;
    HostCall m_faultCall = HostCall::kRead;
    Fault m_fault = Fault::kFail;
    uint64_t m_faultIn = 0;  // calls until the fault; 0 is disarmed
    bool m_faultMet = false;
};

}  // namespace tarn
