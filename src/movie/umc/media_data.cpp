#include "movie/umc/media_data.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

namespace tarn::UMC {
namespace {

void CopyTimes(const MediaData& from, MediaData* to) {
    to->startTime = from.startTime;
    to->endTime = from.endTime;
    to->frameType = from.frameType;
}

}  // namespace

MediaData::~MediaData() {
    std::free(m_block);
}

Status MediaData::Close() {
    FreeBlock();
    return kStatusOk;
}

void MediaData::Reset() {
    startTime = -1.0;
    endTime = 0.0;
    dataPointer = buffer;
    dataSize = 0;
}

Status MediaData::SetBufferPointer(uint8_t* pointer, uint32_t size) {
    FreeBlock();
    buffer = dataPointer = pointer;
    bufferSize = pointer ? size : 0;
    return kStatusOk;
}

Status MediaData::SetDataSize(uint32_t size) {
    if (!buffer) return kStatusNullPointer;
    if (size > Capacity()) return kStatusOutOfRange;
    dataSize = size;
    return kStatusOk;
}

Status MediaData::MoveDataPointer(int64_t delta) {
    const int64_t consumed = dataPointer - buffer;
    if (delta > int64_t{dataSize} || delta < -consumed) return kStatusOutOfRange;
    dataPointer += delta;
    dataSize = static_cast<uint32_t>(int64_t{dataSize} - delta);
    return kStatusOk;
}

Status MediaData::ResetDataPointer() {
    return MoveDataPointer(buffer - dataPointer);
}

Status MediaData::MoveDataTo(MediaData* other) {
    if (!other || !other->buffer) return kStatusNullPointer;
    if (other == this) return kStatusBadParameter;
    const uint32_t size = std::min(dataSize, other->Capacity() - other->dataSize);
    if (size == 0) return kStatusNoData;
    std::memmove(other->dataPointer + other->dataSize, dataPointer, size);
    other->dataSize += size;
    CopyTimes(*this, other);
    return MoveDataPointer(size);
}

Status MediaData::CopyTo(MediaData* other) const {
    if (!other) return kStatusNullPointer;
    if (!other->buffer || other->bufferSize < bufferSize) return kStatusTargetTooSmall;
    if (bufferSize > 0) std::memmove(other->buffer, buffer, bufferSize);
    other->dataPointer = other->buffer + (dataPointer - buffer);
    other->dataSize = dataSize;
    CopyTimes(*this, other);
    return kStatusOk;
}

Status MediaData::Alloc(uint32_t size) {
    FreeBlock();
    if (size == 0) return kStatusOk;
    m_block = static_cast<uint8_t*>(std::malloc(size));
    if (!m_block) return kStatusNoMemory;
    buffer = dataPointer = m_block;
    bufferSize = size;
    ownsBuffer = true;
    return kStatusOk;
}

void MediaData::FreeBlock() {
    std::free(m_block);
    m_block = buffer = dataPointer = nullptr;
    bufferSize = dataSize = 0;
    ownsBuffer = false;
}

Status AudioData::Close() {
    alignedBuffer = nullptr;
    alignedSize = alignedCapacity = 0;
    alignment = 1;
    return MediaData::Close();
}

Status AudioData::SetBufferPointer(uint8_t* pointer, uint32_t size) {
    return SetAlignedBuffer(pointer, size, 1);
}

Status AudioData::Assign(const AudioData& other) {
    if (&other == this) return kStatusBadParameter;
    const Status status = SetAlignedBuffer(other.buffer, other.bufferSize, other.alignment);
    if (status != kStatusOk) return status;
    dataPointer = other.dataPointer;
    dataSize = other.dataSize;
    CopyTimes(other, this);
    return kStatusOk;
}

Status AudioData::SetAlignedBuffer(uint8_t* pointer, uint32_t size, uint32_t boundary) {
    if (!std::has_single_bit(boundary)) return kStatusBadParameter;
    const Status status = MediaData::SetBufferPointer(pointer, size);
    return status == kStatusOk ? AlignTo(boundary, size) : status;
}

Status AudioData::Alloc(uint32_t size) {
    const uint32_t room = UINT32_MAX - (alignment - 1);
    const Status status = MediaData::Alloc(size == 0 || size > room ? 0 : size + (alignment - 1));
    if (size > room) return kStatusNoMemory;
    return status == kStatusOk ? AlignTo(alignment, size) : status;
}

// Moves the buffer's start up to the boundary.
Status AudioData::AlignTo(uint32_t boundary, uint32_t size) {
    const uintptr_t address = reinterpret_cast<uintptr_t>(buffer);
    const uintptr_t skip = (address + boundary - 1) / boundary * boundary - address;
    alignment = boundary;
    alignedBuffer = nullptr;
    alignedSize = alignedCapacity = 0;
    if (skip > bufferSize) return kStatusOutOfRange;
    buffer += skip;
    dataPointer = buffer;
    bufferSize -= static_cast<uint32_t>(skip);
    alignedBuffer = buffer;
    alignedCapacity = bufferSize;
    alignedSize = std::min(size, bufferSize);
    return kStatusOk;
}

}  // namespace tarn::UMC
