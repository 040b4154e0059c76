#include "support/test_host.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tarn {

struct TestHost::OpenFile {
    TestHost* host;
    Bytes bytes;
    int descriptor;  // -1 for a file in memory
    uint64_t position;

    bool Length(uint64_t* size) const {
        struct stat facts {};
        if (descriptor >= 0 && fstat(descriptor, &facts) != 0) return false;
        *size = descriptor >= 0 ? static_cast<uint64_t>(facts.st_size) : bytes.size();
        return true;
    }

    bool ReadSome(void* to, uint64_t size, uint64_t* done) const {
        if (descriptor >= 0) {
            const ssize_t n = pread(descriptor, to, size, static_cast<off_t>(position));
            *done = n > 0 ? static_cast<uint64_t>(n) : 0;
            return n >= 0;
        }
        *done = position < bytes.size() ? std::min<uint64_t>(size, bytes.size() - position) : 0;
        if (*done > 0) std::memcpy(to, bytes.data() + position, *done);
        return true;
    }

    bool WriteSome(const void* from, uint64_t size, uint64_t* done) {
        if (descriptor >= 0) {
            const ssize_t n = pwrite(descriptor, from, size, static_cast<off_t>(position));
            *done = n > 0 ? static_cast<uint64_t>(n) : 0;
            return n >= 0;
        }
        constexpr uint64_t kMost = uint64_t{1} << 30;
        if (position > kMost || size > kMost) return false;
        bytes.resize(std::max<size_t>(bytes.size(), position + size));
        if (size > 0) std::memcpy(bytes.data() + position, from, size);
        *done = size;
        return true;
    }
};

TestHost::TestHost() {
    mp4_init_fd_callbacks(&m_host.callbacks);  // for the string and memory entries
    m_host.callbacks.userData = this;
    m_host.callbacks.read = Read;
    m_host.callbacks.write = Write;
    m_host.callbacks.seek = Seek;
    m_host.callbacks.tell = Tell;
    m_host.callbacks.size = Size;
    m_host.callbacks.alloc = Alloc;
    m_host.callbacks.free = Free;
}

TestHost::~TestHost() {
    if (m_blocks.empty()) return;
    std::fprintf(stderr, "TestHost: %zu blocks of %llu bytes in all were not given back\n",
                 m_blocks.size(), static_cast<unsigned long long>(m_liveBytes));
    std::abort();
}

Mp4File* TestHost::Add(Bytes content) {
    m_files.push_back(std::make_unique<OpenFile>(OpenFile{this, std::move(content), -1, 0}));
    return File();
}

Mp4File* TestHost::AddDescriptor(int descriptor) {
    m_files.push_back(std::make_unique<OpenFile>(OpenFile{this, {}, descriptor, 0}));
    return File();
}

Mp4File* TestHost::File() const {
    return m_files.empty() ? nullptr : reinterpret_cast<Mp4File*>(m_files.back().get());
}

const Bytes& TestHost::Content(const Mp4File* file) const {
    return reinterpret_cast<const OpenFile*>(file)->bytes;
}

void TestHost::FailAt(HostCall call, uint64_t n, Fault fault) {
    m_faultCall = call;
    m_fault = fault;
    m_faultIn = n;
    m_faultMet = false;
}

void TestHost::ResetCounts() {
    std::fill(std::begin(m_calls), std::end(m_calls), 0);
    m_bytesRead = m_bytesWritten = m_largestBlock = 0;
    m_peakBytes = m_liveBytes;
}

void TestHost::FreeLiveBlocks() {
    for (const auto& [block, size] : m_blocks)
        std::free(block);
    m_blocks.clear();
    m_liveBytes = 0;
}

bool TestHost::Enter(HostCall call) {
    ++m_calls[static_cast<size_t>(call)];
    if (call != m_faultCall || m_faultIn == 0 || --m_faultIn > 0) return false;
    m_faultMet = true;
    return true;
}

template <typename Buffer, typename Some>
Mp4Result TestHost::Transfer(HostCall call, void* file, Buffer* buffer, uint64_t size,
                             uint64_t* done, uint64_t TestHost::*total, Some some) {
    if (!file || !buffer || !done) return FF4_RET_ARGS;
    auto* open = static_cast<OpenFile*>(file);
    TestHost* host = open->host;
    if (host->Enter(call)) {
        if (host->m_fault == Fault::kFail) return FF4_RET_FILE;
        size /= 2;
    }
    if (!(open->*some)(buffer, size, done)) return FF4_RET_FILE;
    open->position += *done;
    host->*total += *done;
    return FF4_RET_OK;
}

Mp4Result TestHost::Read(void* file, void* buffer, uint64_t size, uint64_t* done) {
    return Transfer(HostCall::kRead, file, buffer, size, done, &TestHost::m_bytesRead,
                    &OpenFile::ReadSome);
}

Mp4Result TestHost::Write(void* file, const void* data, uint64_t size, uint64_t* done) {
    return Transfer(HostCall::kWrite, file, data, size, done, &TestHost::m_bytesWritten,
                    &OpenFile::WriteSome);
}

Mp4Result TestHost::Seek(void* file, int64_t offset, uint32_t origin) {
    if (!file || origin > kSeekEnd) return FF4_RET_ARGS;
    auto* open = static_cast<OpenFile*>(file);
    if (open->host->Enter(HostCall::kSeek)) return FF4_RET_FILE;
    uint64_t base = origin == kSeekCurrent ? open->position : 0;
    if (origin == kSeekEnd && !open->Length(&base)) return FF4_RET_FILE;
    int64_t target = 0;
    if (__builtin_add_overflow(static_cast<int64_t>(base), offset, &target) || target < 0)
        return FF4_RET_FILE;
    open->position = static_cast<uint64_t>(target);
    return FF4_RET_OK;
}

Mp4Result TestHost::Tell(void* file, uint64_t* position) {
    if (!file || !position) return FF4_RET_ARGS;
    auto* open = static_cast<OpenFile*>(file);
    if (open->host->Enter(HostCall::kTell)) return FF4_RET_FILE;
    *position = open->position;
    return FF4_RET_OK;
}

Mp4Result TestHost::Size(void* file, uint64_t* size) {
    if (!file || !size) return FF4_RET_ARGS;
    auto* open = static_cast<OpenFile*>(file);
    if (open->host->Enter(HostCall::kSize)) return FF4_RET_FILE;
    return open->Length(size) ? FF4_RET_OK : FF4_RET_FILE;
}

void* TestHost::Alloc(void* self, uint64_t size) {
    auto* host = static_cast<TestHost*>(self);
    host->m_largestBlock = std::max(host->m_largestBlock, size);
    if (host->Enter(HostCall::kAlloc)) return nullptr;
    void* block = std::malloc(size);
    if (!block) return nullptr;
    std::memset(block, 0xA5, std::min<uint64_t>(size, 4096));  // nobody gets zeros by chance
    host->m_blocks[block] = size;
    host->m_liveBytes += size;
    host->m_peakBytes = std::max(host->m_peakBytes, host->m_liveBytes);
    return block;
}

void TestHost::Free(void* self, void* block) {
    auto* host = static_cast<TestHost*>(self);
    host->Enter(HostCall::kFree);
    if (!block) return;
    const auto found = host->m_blocks.find(block);
    if (found == host->m_blocks.end()) {
        std::fprintf(stderr, "TestHost: a block came back that is not out\n");
        std::abort();
    }
    host->m_liveBytes -= found->second;
    host->m_blocks.erase(found);
    std::free(block);
}

}  // namespace tarn
