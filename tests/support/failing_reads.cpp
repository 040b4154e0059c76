#include "support/failing_reads.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

thread_local uint64_t g_readsLeft = 0;  // until the one that fails; 0: none does
thread_local bool g_met = false;
constexpr size_t kMost = 20000;  // no read gives more: a file may always give less than asked

bool fails() {
    if (g_readsLeft == 0 || --g_readsLeft > 0) return false;
    g_met = true;
    errno = EIO;
    return true;
}

}  // namespace

ssize_t read(int descriptor, void* buffer, size_t size) {
    return fails() ? -1 : syscall(SYS_read, descriptor, buffer, std::min(size, kMost));
}

ssize_t pread(int descriptor, void* buffer, size_t size, off_t offset) {
    return fails() ? -1 : syscall(SYS_pread64, descriptor, buffer, std::min(size, kMost), offset);
}

namespace tarn {

FailingReads::FailingReads(uint64_t n) {
    g_readsLeft = n;
    g_met = false;
}

FailingReads::~FailingReads() {
    g_readsLeft = 0;
}

bool FailingReads::Met() {
    return g_met;
}

}  // namespace tarn
