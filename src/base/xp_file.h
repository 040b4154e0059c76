// xp_file.h - one open file with 64-bit offsets.
//
// Every call answers 0 or the system's error number (errno); nothing throws. A call that a signal
// interrupts goes on, and a transfer is only short where the file ends. Move only; the destructor
// closes. One thread at a time.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <utility>

namespace tarn {

class XpFile {
public:
    enum class Mode {
        kRead,       // an existing file; a folder is EISDIR, a pipe or a device ESPIPE
        kCreateNew,  // read and write; EEXIST where anything has that name already
        kReadWrite,  // an existing file, read and write
    };
    enum class Origin { kStart, kCurrent, kEnd };

    XpFile() = default;
    ~XpFile();
    XpFile(XpFile&& other) noexcept;
    XpFile& operator=(XpFile&& other) noexcept;
    XpFile(const XpFile&) = delete;
    XpFile& operator=(const XpFile&) = delete;

    [[nodiscard]] int Open(const std::string& path, Mode mode);
    // Takes over an open descriptor; a negative one leaves the file closed.
    void Adopt(int descriptor);
    bool IsOpen() const { return m_descriptor >= 0; }
    int Descriptor() const { return m_descriptor; }
    // Whether it is still the file that Open found: as long, last changed then, not removed.
    bool IsUnchanged() const;
    // The descriptor becomes the caller's to close.
    [[nodiscard]] int Release() { return std::exchange(m_descriptor, -1); }
    // Closing may report a write that failed late. The file counts as closed either way.
    int Close();

    // Bytes transferred go to `done`, also when the call fails. Read answers 0 with fewer bytes
    // than asked only at the end of the file; Write answers 0 only when all was written.
    [[nodiscard]] int Read(void* buffer, uint64_t size, uint64_t* done);
    [[nodiscard]] int ReadAt(uint64_t offset, void* buffer, uint64_t size, uint64_t* done);
    [[nodiscard]] int Write(const void* data, uint64_t size, uint64_t* done);

    [[nodiscard]] int Seek(int64_t offset, Origin origin, uint64_t* position = nullptr);
    [[nodiscard]] int GetLength(uint64_t* length) const;
    // The error of the last Read, Write or Seek that failed; for callers whose own interface can't
    // hand it on.
    int LastError() const { return m_lastError; }
    // Leaves only when the bytes are on the medium.
    [[nodiscard]] int Sync();

private:
    int Note(int error);

    int m_descriptor = -1;
    int m_lastError = 0;
    int64_t m_length = -1;  // bytes, as Open found it
    timespec m_changed{};
};

// XpFile::ReadAt for a descriptor that somebody else owns.
[[nodiscard]] int XpReadAt(int descriptor, uint64_t offset, void* buffer, uint64_t size,
                           uint64_t* done);

// A text for people: "No space left on device".
std::string XpErrorText(int error);

}  // namespace tarn
