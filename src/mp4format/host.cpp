#include "mp4format/host.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/xp_file.h"
#include "mp4format/bytes.h"
#include "mp4format/time_math.h"

namespace tarn {
namespace {

constexpr uint64_t kBlockHeader = 8;
constexpr uint64_t kDefaultWindowPool = 131072;

// --- memory and strings, the same in both tables

void* plain_alloc(void*, uint64_t size) {
    return std::malloc(static_cast<size_t>(size));
}

void plain_free(void*, void* block) {
    std::free(block);
}

int plain_strncmp(void*, const char* a, const char* b, uint64_t count) {
    return std::strncmp(a, b, static_cast<size_t>(count));
}

char* plain_strncpy(void*, char* to, uint64_t capacity, const char* from, uint64_t count) {
    if (!to || !from) return nullptr;
    const size_t length = strnlen(from, static_cast<size_t>(count));
    if (length >= capacity) return nullptr;
    std::memcpy(to, from, length);
    to[length] = '\0';
    return to;
}

int plain_memcmp(void*, const void* a, const void* b, uint64_t count) {
    return std::memcmp(a, b, static_cast<size_t>(count));
}

void* plain_memcpy(void*, void* to, uint64_t capacity, const void* from, uint64_t count) {
    if (!to || !from || count > capacity) return nullptr;
    return std::memcpy(to, from, static_cast<size_t>(count));
}

void* plain_memmove(void*, void* to, uint64_t capacity, const void* from, uint64_t count) {
    if (!to || !from || count > capacity) return nullptr;
    return std::memmove(to, from, static_cast<size_t>(count));
}

void* plain_memset(void*, void* to, int value, uint64_t count) {
    return to ? std::memset(to, value, static_cast<size_t>(count)) : nullptr;
}

// --- files through a descriptor

int descriptor_of(void* userData) {
    return *static_cast<int*>(userData);
}

// Repeats `step` over what is left until all is done or the file ends.
template <typename Step>
Mp4Result transfer(uint64_t size, uint64_t* done, Step step) {
    constexpr uint64_t kMaxStep = uint64_t{1} << 30;
    *done = 0;
    while (*done < size) {
        const uint64_t left = size - *done;
        const ssize_t n = step(*done, static_cast<size_t>(left < kMaxStep ? left : kMaxStep));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return FF4_RET_FILE;
        if (n == 0) break;
        *done += static_cast<uint64_t>(n);
    }
    return FF4_RET_OK;
}

Mp4Result fd_read(void* userData, void* buffer, uint64_t size, uint64_t* done) {
    if (!userData || !buffer || !done) return FF4_RET_ARGS;
    auto* bytes = static_cast<uint8_t*>(buffer);
    return transfer(size, done, [&](uint64_t at, size_t n) {
        return read(descriptor_of(userData), bytes + at, n);
    });
}

Mp4Result fd_write(void* userData, const void* data, uint64_t size, uint64_t* done) {
    if (!userData || !data || !done) return FF4_RET_ARGS;
    const auto* bytes = static_cast<const uint8_t*>(data);
    return transfer(size, done, [&](uint64_t at, size_t n) {
        return write(descriptor_of(userData), bytes + at, n);
    });
}

Mp4Result fd_seek(void* userData, int64_t offset, uint32_t origin) {
    if (!userData || origin > kSeekEnd) return FF4_RET_ARGS;
    const int whence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    return lseek(descriptor_of(userData), offset, whence[origin]) < 0 ? FF4_RET_FILE : FF4_RET_OK;
}

Mp4Result fd_tell(void* userData, uint64_t* position) {
    if (!userData || !position) return FF4_RET_ARGS;
    const off_t at = lseek(descriptor_of(userData), 0, SEEK_CUR);
    if (at < 0) return FF4_RET_FILE;
    *position = static_cast<uint64_t>(at);
    return FF4_RET_OK;
}

Mp4Result fd_size(void* userData, uint64_t* size) {
    if (!userData || !size) return FF4_RET_ARGS;
    const int descriptor = descriptor_of(userData);
    const off_t at = lseek(descriptor, 0, SEEK_CUR);
    const off_t end = at < 0 ? -1 : lseek(descriptor, 0, SEEK_END);
    if (end < 0 || lseek(descriptor, at, SEEK_SET) < 0) return FF4_RET_FILE;
    *size = static_cast<uint64_t>(end);
    return FF4_RET_OK;
}

// --- files through an XpFile

Mp4Result file_read(void* userData, void* buffer, uint64_t size, uint64_t* done) {
    if (!userData || !buffer || !done) return FF4_RET_ARGS;
    return static_cast<XpFile*>(userData)->Read(buffer, size, done) ? FF4_RET_FILE : FF4_RET_OK;
}

Mp4Result file_write(void* userData, const void* data, uint64_t size, uint64_t* done) {
    if (!userData || !data || !done) return FF4_RET_ARGS;
    return static_cast<XpFile*>(userData)->Write(data, size, done) ? FF4_RET_FILE : FF4_RET_OK;
}

Mp4Result file_seek(void* userData, int64_t offset, uint32_t origin) {
    if (!userData || origin > kSeekEnd) return FF4_RET_ARGS;
    const XpFile::Origin origins[] = {XpFile::Origin::kStart, XpFile::Origin::kCurrent,
                                      XpFile::Origin::kEnd};
    return static_cast<XpFile*>(userData)->Seek(offset, origins[origin]) ? FF4_RET_FILE
                                                                         : FF4_RET_OK;
}

// Intended: moves to the end and answers the status as the position. Writers never ask for it.
Mp4Result file_tell(void* userData, uint64_t* position) {
    if (!userData || !position) return FF4_RET_ARGS;
    *position =
        static_cast<uint64_t>(static_cast<XpFile*>(userData)->Seek(0, XpFile::Origin::kEnd));
    return FF4_RET_OK;
}

Mp4Result file_size(void* userData, uint64_t* size) {
    if (!userData || !size) return FF4_RET_ARGS;
    return static_cast<XpFile*>(userData)->GetLength(size) ? FF4_RET_FILE : FF4_RET_OK;
}

// --- memory accounting

struct Pool {
    uint64_t* used;
    uint64_t limit;
};

bool pool_of(Mp4Host* host, uint32_t memoryClass, Pool* pool) {
    if (memoryClass == kMemoryRecords) {
        *pool = {&host->usedClass1, host->limitClass1};
    } else if (memoryClass == kMemoryWindows) {
        *pool = {&host->usedClass2, host->limitClass2};
    } else {
        return false;
    }
    return true;
}

bool is_complete(const Mp4HostCallbacks& c) {
    return c.read && c.write && c.seek && c.tell && c.size && c.alloc && c.free && c.strncmp &&
           c.strncpy && c.memcmp && c.memcpy && c.memmove && c.memset;
}

}  // namespace

void mp4_init_fd_callbacks(Mp4HostCallbacks* callbacks) {
    *callbacks = {nullptr,      fd_read,      fd_write,      fd_seek,       fd_tell,
                  fd_size,      plain_alloc,  plain_free,    plain_strncmp, plain_strncpy,
                  plain_memcmp, plain_memcpy, plain_memmove, plain_memset};
}

void mp4_init_file_callbacks(Mp4HostCallbacks* callbacks) {
    *callbacks = {nullptr,      file_read,    file_write,    file_seek,     file_tell,
                  file_size,    plain_alloc,  plain_free,    plain_strncmp, plain_strncpy,
                  plain_memcmp, plain_memcpy, plain_memmove, plain_memset};
}

Mp4Result mp4_create_host(const Mp4HostCallbacks& callbacks, Mp4Host** out) {
    if (!out || !is_complete(callbacks)) return FF4_RET_ARGS;
    void* block = callbacks.alloc(callbacks.userData, sizeof(Mp4Host));
    if (!block) return FF4_RET_NOMEM;
    auto* host = new (block) Mp4Host{};
    host->callbacks = callbacks;
    *out = host;
    return FF4_RET_OK;
}

void mp4_free_host(Mp4Host* host) {
    if (!host) return;
    const Mp4HostCallbacks callbacks = host->callbacks;
    callbacks.free(callbacks.userData, host);
}

Mp4Result mp4_set_memory_limit(Mp4Host* host, bool forReading, uint64_t limit, uint32_t percent,
                               uint64_t needed) {
    if (!host) return FF4_RET_ARGS;
    if (limit == 0) {
        host->enabled = 0;
        host->limitClass1 = 0;
        host->limitClass2 = forReading ? kDefaultWindowPool : 0;
        return FF4_RET_OK;
    }
    if (percent > 100) return FF4_RET_ARGS;
    uint64_t windows = 0;
    FF4_TRY(mp4_mul_div(limit, percent, 100, &windows));
    if (limit - windows < needed) return FF4_RET_ARGS;
    host->enabled = 1;
    host->limitClass2 = windows;
    host->limitClass1 = limit - windows;
    return FF4_RET_OK;
}

Mp4Result mp4_blame(Mp4Host* host, uint32_t atom, Mp4Result result) {
    const bool bytes = result == FF4_RET_FORMAT || result == FF4_RET_OVERFLOW;
    if (bytes && host->faultAtom == 0) host->faultAtom = atom;
    return result;
}

uint32_t mp4_fault_atom(const Mp4Host* host) {
    return host ? host->faultAtom : 0;
}

void mp4_clear_fault(Mp4Host* host) {
    if (host) host->faultAtom = 0;
}

void* mp4_alloc(Mp4Host* host, uint64_t size, uint32_t memoryClass) {
    Pool pool{};
    if (!host || !pool_of(host, memoryClass, &pool)) return nullptr;
    if (size > UINT32_MAX - kBlockHeader) return nullptr;
    const uint64_t total = size + kBlockHeader;
    if (host->enabled && (*pool.used > pool.limit || total > pool.limit - *pool.used)) {
        return nullptr;
    }

    const Mp4HostCallbacks& callbacks = host->callbacks;
    auto* block = static_cast<uint8_t*>(callbacks.alloc(callbacks.userData, total));
    if (!block) return nullptr;
    callbacks.memset(callbacks.userData, block, 0, total);
    block[0] = 'F';
    block[1] = 'F';
    block[2] = '4';
    block[3] = static_cast<uint8_t>(memoryClass);
    put_be32(block + 4, static_cast<uint32_t>(total));
    *pool.used += total;
    return block + kBlockHeader;
}

void mp4_free(Mp4Host* host, void* block) {
    if (!host || reinterpret_cast<uintptr_t>(block) < kBlockHeader) return;
    uint8_t* start = static_cast<uint8_t*>(block) - kBlockHeader;
    if (start[0] != 'F' || start[1] != 'F' || start[2] != '4') return;

    Pool pool{};
    const uint64_t total = get_be32(start + 4);
    if (pool_of(host, start[3], &pool)) *pool.used -= total < *pool.used ? total : *pool.used;
    host->callbacks.memset(host->callbacks.userData, start, 0, kBlockHeader);
    host->callbacks.free(host->callbacks.userData, start);
}

}  // namespace tarn
