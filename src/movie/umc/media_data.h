// media_data.h - a buffer of bytes that goes into a codec or comes out of one.
//
// The data are the bytes from the data pointer on, as many as the data size says; whoever takes
// some moves the pointer past them. Alloc makes a buffer that this object owns and frees. One that
// is given by SetBufferPointer stays the caller's and must live as long as it is used here. Times
// are in seconds.
#pragma once

#include <cstdint>

#include "movie/umc/status.h"

namespace tarn::UMC {

class MediaData {
public:
    MediaData() = default;
    virtual ~MediaData();
    // Frees an owned buffer; pointers and sizes are zero then.
    virtual Status Close();
    // No data and no times: the buffer is free to be filled again.
    virtual void Reset();
    virtual uint8_t* GetBufferPointer() const { return buffer; }
    virtual uint8_t* GetDataPointer() const { return dataPointer; }
    virtual uint32_t GetBufferSize() const { return bufferSize; }
    virtual uint32_t GetDataSize() const { return dataSize; }
    // Takes `pointer` without owning it, frees an owned buffer, and starts without data.
    virtual Status SetBufferPointer(uint8_t* pointer, uint32_t size);
    // Counted from the data pointer. OutOfRange past the buffer's end, NullPointer without one.
    virtual Status SetDataSize(uint32_t size);
    // Consumes `delta` bytes, or takes back what was consumed. OutOfRange where that leaves the
    // data on the right or the buffer on the left.
    virtual Status MoveDataPointer(int64_t delta);
    // Takes back all that was consumed.
    virtual Status ResetDataPointer();
    // Appends as much of the data as `other` has room for and consumes it here; times and frame
    // type go along. NoData where nothing could be moved.
    virtual Status MoveDataTo(MediaData* other);
    // The whole buffer, data position, times and frame type.
    virtual Status CopyTo(MediaData* other) const;
    virtual bool IsOwner() const { return ownsBuffer; }

    // A new owned buffer, without data; 0 leaves it empty.
    Status Alloc(uint32_t size);

    // Bytes between the data pointer and the buffer's end.
    uint32_t Capacity() const { return bufferSize - static_cast<uint32_t>(dataPointer - buffer); }

    MediaData(const MediaData&) = delete;
    MediaData& operator=(const MediaData&) = delete;

    uint32_t frameType = 0;
    double startTime = -1.0;  // -1: not known
    double endTime = 0.0;
    uint32_t invalid = 0;  // the caller's mark for damaged data

protected:
    uint8_t* buffer = nullptr;
    uint8_t* dataPointer = nullptr;
    uint32_t bufferSize = 0;
    uint32_t dataSize = 0;
    bool ownsBuffer = false;

private:
    void FreeBlock();

    uint8_t* m_block = nullptr;  // what Alloc got, where `buffer` may lie behind its start
};

// Sound: the same, with a buffer that starts on a multiple of `alignment`, a power of two.
class AudioData : public MediaData {
public:
    Status Close() override;
    Status SetBufferPointer(uint8_t* pointer, uint32_t size) override;
    // A view of the other's buffer and data; the other stays the owner.
    virtual Status Assign(const AudioData& other);
    // As SetBufferPointer, less the bytes before the first multiple of `boundary`, which later
    // calls of Alloc keep to as well.
    virtual Status SetAlignedBuffer(uint8_t* pointer, uint32_t size, uint32_t boundary);
    virtual Status Alloc(uint32_t size);

protected:
    Status AlignTo(uint32_t boundary, uint32_t size);

    uint8_t* alignedBuffer = nullptr;
    uint32_t alignedSize = 0;      // bytes asked for
    uint32_t alignedCapacity = 0;  // bytes there are from alignedBuffer on
    uint32_t alignment = 1;
};

}  // namespace tarn::UMC
