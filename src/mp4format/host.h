// host.h - what the MP4 engine needs from its surroundings: files, memory, result codes.
//
// The engine sees files and memory only through a table of fourteen callbacks, so that the same
// code reads through a descriptor, writes through an XpFile and is tested against bytes in memory.
// A host belongs to one session and is used by one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>

namespace tarn {

class XpFile;

enum [[nodiscard]] Mp4Result : uint32_t;
enum Mp4Result : uint32_t {
    FF4_RET_OK = 0,
    FF4_RET_ARGS = 1,              // the caller's mistake: a null handle, a number out of range
    FF4_RET_STATE = 2,             // wrong kind of object, or not yet in the needed state
    FF4_RET_NOMEM = 0x100,         // the allocator failed or a memory budget was exceeded
    FF4_RET_FILE = 0x101,          // a read, write, seek or size failed, or came back short
    FF4_RET_NOTFOUND = 0x200,      // no such atom, entry or sample
    FF4_RET_OVERFLOW = 0x201,      // a result does not fit its field
    FF4_RET_FORMAT = 0x1000,       // the file lacks what the call needs or breaks the format
    FF4_RET_INTERNAL = 0x10000000  // the engine's own records contradict each other
};

// Leaves the function with the callee's result, unchanged, unless it is success.
#define FF4_TRY(call)                                                                 \
    do {                                                                              \
        if (const ::tarn::Mp4Result r_ = (call); r_ != ::tarn::FF4_RET_OK) return r_; \
    } while (0)

// A file as the engine passes it around: what the callbacks get as their first argument.
struct Mp4File;

enum : uint32_t { kSeekStart = 0, kSeekCurrent = 1, kSeekEnd = 2 };

// The order of the entries is fixed. `userData` is the first argument of each entry; for the file
// entries it is the Mp4File that the session was opened with.
struct Mp4HostCallbacks {
    void* userData;
    // FF4_RET_ARGS for a null pointer, FF4_RET_FILE for a failure. A short transfer at the end of
    // the file is no failure here; `done` tells.
    Mp4Result (*read)(void* userData, void* buffer, uint64_t size, uint64_t* done);
    Mp4Result (*write)(void* userData, const void* data, uint64_t size, uint64_t* done);
    Mp4Result (*seek)(void* userData, int64_t offset, uint32_t origin);
    Mp4Result (*tell)(void* userData, uint64_t* position);
    Mp4Result (*size)(void* userData, uint64_t* size);
    void* (*alloc)(void* userData, uint64_t size);
    void (*free)(void* userData, void* block);
    int (*strncmp)(void* userData, const char* a, const char* b, uint64_t count);
    // Null when the capacity is too small for `count` characters and a closing zero.
    char* (*strncpy)(void* userData, char* to, uint64_t capacity, const char* from, uint64_t count);
    int (*memcmp)(void* userData, const void* a, const void* b, uint64_t count);
    // Null when the count exceeds the capacity.
    void* (*memcpy)(void* userData, void* to, uint64_t capacity, const void* from, uint64_t count);
    void* (*memmove)(void* userData, void* to, uint64_t capacity, const void* from, uint64_t count);
    void* (*memset)(void* userData, void* to, int value, uint64_t count);
};

// Two pools: records are all the engine's lists and names, windows are what a sample table's
// lookups keep in memory.
enum Mp4MemoryClass : uint32_t { kMemoryRecords = 1, kMemoryWindows = 2 };

struct Mp4Host {
    Mp4HostCallbacks callbacks;
    uint32_t enabled;      // whether the limits refuse allocations
    uint64_t limitClass1;  // bytes, records
    uint64_t limitClass2;  // bytes, windows; also the pool that open tracks divide among them
    uint64_t usedClass1;
    uint64_t usedClass2;
    uint32_t faultAtom;  // see mp4_blame
};

// Passes a result on. Where it blames the bytes of the file (FF4_RET_FORMAT, FF4_RET_OVERFLOW), the
// host keeps the type of the atom that they are in: of the first such call since the last
// mp4_clear_fault, which is the innermost atom, as results are passed outwards.
Mp4Result mp4_blame(Mp4Host* host, uint32_t atom, Mp4Result result);
// The atom that was kept, or 0.
uint32_t mp4_fault_atom(const Mp4Host* host);
void mp4_clear_fault(Mp4Host* host);

// The table over a POSIX descriptor: `userData`, to be set by the caller, points at an int.
void mp4_init_fd_callbacks(Mp4HostCallbacks* callbacks);
// The table over an XpFile: `userData`, to be set by the caller, is the XpFile.
void mp4_init_file_callbacks(Mp4HostCallbacks* callbacks);

// Makes a host around a copy of the table. The block comes straight from the `alloc` entry and
// goes back with mp4_free_host.
Mp4Result mp4_create_host(const Mp4HostCallbacks& callbacks, Mp4Host** out);
void mp4_free_host(Mp4Host* host);

// A limit of 0 switches the accounting off; a reading session then still gets a window pool of
// 131,072 bytes to divide. Otherwise `percent` of the limit (0 to 100, else FF4_RET_ARGS) is for
// windows and the rest for records; a rest below `needed` is FF4_RET_ARGS.
Mp4Result mp4_set_memory_limit(Mp4Host* host, bool forReading, uint64_t limit, uint32_t percent,
                               uint64_t needed);

// A zeroed block, or null: when the allocator fails, the pool's limit is reached, the class is
// unknown, or size and header pass 32 bits. Every block carries an 8-byte header in front: "FF4",
// the class, the total size as a big-endian u32.
void* mp4_alloc(Mp4Host* host, uint64_t size, uint32_t memoryClass);
// Gives a block back. Anything that mp4_alloc did not make is left alone.
void mp4_free(Mp4Host* host, void* block);

struct HostDeleter {
    Mp4Host* host;
    void operator()(void* block) const { mp4_free(host, block); }
};
// Owns a host block. Only the bytes: a record that owns others has a freeing function of its own.
template <typename T>
using HostPtr = std::unique_ptr<T, HostDeleter>;

// Room for `count` zeroed T, or null. A count from a file is measured against the bytes that are
// there before it gets here.
template <typename T>
HostPtr<T> mp4_make(Mp4Host* host, uint64_t count = 1, uint32_t memoryClass = kMemoryRecords) {
    static_assert(std::is_trivial_v<T>, "engine records come to life as zero bytes");
    if (count > UINT32_MAX / sizeof(T)) return {nullptr, {host}};
    return {static_cast<T*>(mp4_alloc(host, count * sizeof(T), memoryClass)), {host}};
}

}  // namespace tarn
