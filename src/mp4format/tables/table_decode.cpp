#include "mp4format/tables/table_decode.h"

#include "mp4format/bytes.h"

namespace tarn {
namespace {

constexpr uint32_t kSttsDisk = 8, kCttsDisk = 8, kStscDisk = 12, kStssDisk = 4;

static_assert(sizeof(Mp4SttsEntry) == 24 && sizeof(Mp4CttsEntry) == 12);
static_assert(sizeof(Mp4StscEntry) == 16 && sizeof(Mp4ChunkEntry) == 8);

template <uint32_t kDiskSize>
const uint8_t* disk_entry(const Mp4RawEntries& raw, uint32_t entry) {
    return raw.bytes + static_cast<uint64_t>(entry - raw.first) * kDiskSize;
}

// One past the last sample that there can be.
constexpr uint64_t kPastLastSample = uint64_t{1} << 32;

// The start of an entry as it is kept: 0 is kPastLastSample, where empty entries can start.
uint32_t narrow(uint64_t key) {
    return static_cast<uint32_t>(key);
}

uint64_t widen(uint32_t number) {
    return number == 0 ? kPastLastSample : number;
}

// --- stts: u32 count, u32 delta

// A run of no samples is no time-to-sample entry: a walk by runs would stand still on it.
bool measure_stts(const Mp4RawEntries& raw, uint32_t entry, Mp4TableKey* length) {
    const uint8_t* p = disk_entry<kSttsDisk>(raw, entry);
    const uint64_t count = get_be32(p);
    *length = {count, count * get_be32(p + 4)};
    return count != 0;
}

void decode_stts(const Mp4RawEntries& raw, uint32_t entry, const Mp4TableKey& start, void* to) {
    const uint8_t* p = disk_entry<kSttsDisk>(raw, entry);
    *static_cast<Mp4SttsEntry*>(to) = {narrow(start.number), start.time, get_be32(p),
                                       get_be32(p + 4)};
}

Mp4TableKey start_stts(const void* decoded, uint32_t) {
    const auto* e = static_cast<const Mp4SttsEntry*>(decoded);
    return {widen(e->first_sample), e->first_time};
}

// --- ctts: u32 count, u32 offset. A run of no samples is harmless here: no sample finds it.

bool measure_ctts(const Mp4RawEntries& raw, uint32_t entry, Mp4TableKey* length) {
    *length = {get_be32(disk_entry<kCttsDisk>(raw, entry)), 0};
    return true;
}

void decode_ctts(const Mp4RawEntries& raw, uint32_t entry, const Mp4TableKey& start, void* to) {
    const uint8_t* p = disk_entry<kCttsDisk>(raw, entry);
    *static_cast<Mp4CttsEntry*>(to) = {narrow(start.number), get_be32(p), get_be32(p + 4)};
}

Mp4TableKey start_ctts(const void* decoded, uint32_t) {
    return {widen(static_cast<const Mp4CttsEntry*>(decoded)->first_sample), 0};
}

// --- stsc: u32 first chunk, u32 samples per chunk, u32 description index

// A run ends where the next entry's first chunk begins, the last one after the last chunk.
bool measure_stsc(const Mp4RawEntries& raw, uint32_t entry, Mp4TableKey* length) {
    const uint8_t* p = disk_entry<kStscDisk>(raw, entry);
    const uint64_t first_chunk = get_be32(p);
    const uint64_t end_chunk =
        entry + 1 < raw.end ? get_be32(p + kStscDisk) : uint64_t{raw.total_chunks} + 1;
    if (first_chunk == 0 || end_chunk <= first_chunk) return false;
    *length = {(end_chunk - first_chunk) * get_be32(p + 4), 0};
    return true;
}

void decode_stsc(const Mp4RawEntries& raw, uint32_t entry, const Mp4TableKey& start, void* to) {
    const uint8_t* p = disk_entry<kStscDisk>(raw, entry);
    *static_cast<Mp4StscEntry*>(to) = {narrow(start.number), get_be32(p), get_be32(p + 4),
                                       get_be32(p + 8)};
}

Mp4TableKey start_stsc(const void* decoded, uint32_t) {
    return {widen(static_cast<const Mp4StscEntry*>(decoded)->first_sample), 0};
}

// --- stss: u32 sample number. An entry covers the samples after the sync sample before it, up to
// its own: looking a sample up finds the first sync sample at or above it. A repeated number covers
// nothing, a falling one breaks the table.

bool measure_stss(const Mp4RawEntries& raw, uint32_t entry, Mp4TableKey* length) {
    const uint8_t* p = disk_entry<kStssDisk>(raw, entry);
    const uint32_t before = entry > raw.first ? get_be32(p - kStssDisk) : 0;
    const uint32_t number = get_be32(p);
    *length = {number - before, 0};
    return number >= before;
}

void decode_stss(const Mp4RawEntries& raw, uint32_t entry, const Mp4TableKey&, void* to) {
    *static_cast<Mp4StssEntry*>(to) = {get_be32(disk_entry<kStssDisk>(raw, entry))};
}

Mp4TableKey start_stss(const void* decoded, uint32_t) {
    return {uint64_t{static_cast<const Mp4StssEntry*>(decoded)[-1].sample_number} + 1, 0};
}

// --- plain lists: sizes and chunk offsets

bool measure_one(const Mp4RawEntries&, uint32_t, Mp4TableKey* length) {
    *length = {1, 0};
    return true;
}

Mp4TableKey start_direct(const void*, uint32_t entry) {
    return {entry, 0};
}

// Two entries share a byte, the odd one in the high nibble.
void decode_size4(const Mp4RawEntries& raw, uint32_t entry, const Mp4TableKey&, void* to) {
    const uint32_t byte = raw.bytes[(entry - raw.first) / 2];
    *static_cast<Mp4SizeEntry*>(to) = {entry % 2 ? byte >> 4 : byte & 0x0F};
}

// A number of so many bytes.
template <typename Entry, uint32_t kWidth>
void decode_number(const Mp4RawEntries& raw, uint32_t entry, const Mp4TableKey&, void* to) {
    *static_cast<Entry*>(to) = {Mp4FieldReader(disk_entry<kWidth>(raw, entry)).Number(kWidth)};
}

void decode_co64(const Mp4RawEntries& raw, uint32_t entry, const Mp4TableKey&, void* to) {
    *static_cast<Mp4ChunkEntry*>(to) = {get_be64(disk_entry<8>(raw, entry))};
}

constexpr Mp4TableKind list_kind(uint32_t disk, uint32_t mem,
                                 decltype(Mp4TableKind::decode) decode) {
    return {disk, mem, true, 0, 0, measure_one, decode, start_direct};
}

constexpr Mp4TableKind kSize4Kind = list_kind(0, sizeof(Mp4SizeEntry), decode_size4);
constexpr Mp4TableKind kSize8Kind =
    list_kind(1, sizeof(Mp4SizeEntry), decode_number<Mp4SizeEntry, 1>);
constexpr Mp4TableKind kSize16Kind =
    list_kind(2, sizeof(Mp4SizeEntry), decode_number<Mp4SizeEntry, 2>);
constexpr Mp4TableKind kSize32Kind =
    list_kind(4, sizeof(Mp4SizeEntry), decode_number<Mp4SizeEntry, 4>);

}  // namespace

const Mp4TableKind kSttsKind = {kSttsDisk, sizeof(Mp4SttsEntry), false,       0,
                                0,         measure_stts,         decode_stts, start_stts};
const Mp4TableKind kCttsKind = {kCttsDisk, sizeof(Mp4CttsEntry), false,       0,
                                0,         measure_ctts,         decode_ctts, start_ctts};
const Mp4TableKind kStscKind = {kStscDisk, sizeof(Mp4StscEntry), false,       0,
                                1,         measure_stsc,         decode_stsc, start_stsc};
const Mp4TableKind kStssKind = {kStssDisk, sizeof(Mp4StssEntry), false,       1,
                                0,         measure_stss,         decode_stss, start_stss};
const Mp4TableKind kStcoKind = list_kind(4, sizeof(Mp4ChunkEntry), decode_number<Mp4ChunkEntry, 4>);
const Mp4TableKind kCo64Kind = list_kind(8, sizeof(Mp4ChunkEntry), decode_co64);

const Mp4TableKind& mp4_size_kind(uint32_t field_size) {
    switch (field_size) {
        case 4:
            return kSize4Kind;
        case 8:
            return kSize8Kind;
        case 16:
            return kSize16Kind;
        default:
            return kSize32Kind;
    }
}

bool mp4_advance_key(const Mp4TableKey& start, const Mp4TableKey& length, Mp4TableKey* end) {
    if (length.number > kPastLastSample - start.number) return false;
    // The time can't wrap: fewer than 2^32 samples of less than 2^32 units each.
    *end = {start.number + length.number, start.time + length.time};
    return true;
}

}  // namespace tarn
