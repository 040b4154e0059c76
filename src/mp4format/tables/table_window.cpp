#include "mp4format/tables/table_window.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint32_t kMaxEntriesPerRead = 1000;  // bounds a single stall
constexpr uint32_t kMaxDiskEntry = 12;
constexpr uint32_t kMaxNeighbours = 2;
constexpr uint32_t kJumpEntries = 128;      // the first read after a jump
constexpr uint32_t kMaxCheckpoints = 2048;  // 32 KB for a table
constexpr uint32_t kMinSpacing = 64;
constexpr uint32_t kMaxEntries = UINT32_MAX - 2;  // one past the end and its successor fit 32 bits

// Raw entries are read here first, so that a failed read leaves the window as it was.
struct Scratch {
    Mp4RawEntries raw;
    uint8_t bytes[(kMaxEntriesPerRead + kMaxNeighbours) * kMaxDiskEntry];
};

bool covers(const Mp4TableWindow& w, Mp4TableAxis axis, uint64_t target) {
    return w.first != 0 && target >= w.first_key.*axis && target < w.end_key.*axis;
}

uint8_t* slot(const Mp4TableWindow& w, uint32_t index) {
    return w.buffer + static_cast<uint64_t>(index) * w.kind->mem_size;
}

// A jump reads little, since the next one may lead anywhere; a window that grows reads ever more.
uint32_t entries_per_read(const Mp4TableWindow& w, bool joined) {
    const uint64_t wanted = joined ? 2 * uint64_t{w.end - w.first} : kJumpEntries;
    return static_cast<uint32_t>(
        std::min({uint64_t{w.capacity}, uint64_t{kMaxEntriesPerRead}, wanted}));
}

// --- reading

// Entries `from` to `end` - 1 with the neighbours that the kind needs.
Mp4Result read_raw(Mp4Host* host, Mp4File* file, const Mp4TableWindow& w, uint32_t from,
                   uint32_t end, Scratch* out) {
    uint32_t first = from - std::min(from - 1, w.kind->before);
    const uint32_t last = std::min(uint64_t{end} + w.kind->after, uint64_t{w.count} + 1);
    const uint32_t disk = w.kind->disk_size;
    if (disk == 0) first = (first - 1) / 2 * 2 + 1;  // a nibble's byte starts with an odd entry

    const uint64_t skip = first - 1, entries = last - first;
    const uint64_t offset = w.entries_offset + (disk ? skip * disk : skip / 2);
    const uint64_t size = disk ? entries * disk : (entries + 1) / 2;
    FF4_TRY(mp4_read_at(host, file, offset, out->bytes, size));
    out->raw = {out->bytes, first, last, w.total_chunks};
    return FF4_RET_OK;
}

// --- the index

void note_start(Mp4TableIndex* index, uint32_t entry, const Mp4TableKey& start) {
    if (index->used < index->room && entry - 1 == uint64_t{index->used} * index->spacing)
        index->checkpoints[index->used++] = start;
}

void note_reached(Mp4TableIndex* index, uint32_t entry, const Mp4TableKey& start) {
    if (entry > index->reached.entry) index->reached = {entry, start};
}

// The nearest known place at or below the target, and the nearest above it (entry 0: none).
void find_anchors(const Mp4TableWindow& w, Mp4TableAxis axis, uint64_t target, Mp4TableAnchor* low,
                  Mp4TableAnchor* high) {
    *low = {1, kTableStart};
    *high = {};
    const auto consider = [&](uint32_t entry, const Mp4TableKey& start) {
        if (start.*axis <= target) {
            if (entry > low->entry) *low = {entry, start};
        } else if (high->entry == 0 || entry < high->entry) {
            *high = {entry, start};
        }
    };
    const Mp4TableIndex& index = w.index;
    const std::span<const Mp4TableKey> marks(index.checkpoints, index.used);
    const auto above =
        std::upper_bound(marks.begin(), marks.end(), target,
                         [axis](uint64_t t, const Mp4TableKey& key) { return t < key.*axis; });
    const auto mark = static_cast<uint32_t>(above - marks.begin());
    if (mark > 0) consider(1 + (mark - 1) * index.spacing, marks[mark - 1]);
    if (mark < marks.size()) consider(1 + mark * index.spacing, marks[mark]);
    consider(index.reached.entry, index.reached.start);
    if (w.first != 0) {
        consider(w.first, w.first_key);
        consider(w.end, w.end_key);
    }
}

// --- choosing

struct Plan {
    Mp4TableAnchor from;
    bool backward;
};

// From the nearer side; a tie goes forward.
Mp4Result choose_run(const Mp4TableWindow& w, Mp4TableAxis axis, uint64_t target, Plan* plan) {
    const Mp4TableAnchor& reached = w.index.reached;
    if (target < kTableStart.*axis) return FF4_RET_NOTFOUND;
    if (target >= reached.start.*axis) {
        if (w.index.broken) return FF4_RET_FORMAT;
        if (reached.entry > w.count) return FF4_RET_NOTFOUND;
    }
    Mp4TableAnchor low{}, high{};
    find_anchors(w, axis, target, &low, &high);
    const bool backward = high.entry != 0 && high.start.*axis - target < target - low.start.*axis;
    *plan = {backward ? high : low, backward};
    return FF4_RET_OK;
}

// Any entry of a plain list can be gone to straight away; the window grows on where one more read
// reaches the target.
Mp4Result choose_direct(const Mp4TableWindow& w, uint64_t target, Plan* plan) {
    if (target == 0 || target > w.count) return FF4_RET_NOTFOUND;
    const uint32_t reach = entries_per_read(w, true);
    const auto entry = static_cast<uint32_t>(target);
    *plan = {{entry, {entry, 0}}, false};
    if (w.first == 0) return FF4_RET_OK;
    if (entry >= w.end && entry - w.end < reach) plan->from = {w.end, w.end_key};
    if (entry < w.first && w.first - entry < reach) *plan = {{w.first, w.first_key}, true};
    return FF4_RET_OK;
}

Mp4Result choose(const Mp4TableWindow& w, Mp4TableAxis axis, uint64_t target, Plan* plan) {
    return w.kind->direct ? choose_direct(w, target, plan) : choose_run(w, axis, target, plan);
}

// --- loading

// Empties the window unless what it holds ends (or begins) at the anchor.
void restart_unless(bool joined, Mp4TableWindow* w, const Mp4TableAnchor& anchor) {
    if (joined) return;
    w->first = w->end = anchor.entry;
    w->first_key = w->end_key = anchor.start;
}

// Drops entries at the front until `n` more fit after them.
void make_room_after(Mp4TableWindow* w, uint32_t n) {
    const uint32_t held = w->end - w->first;
    const uint32_t keep = std::min(held, w->capacity - n), drop = held - keep;
    w->first_key = mp4_entry_start(*w, w->first + drop);
    std::memmove(slot(*w, 0), slot(*w, drop), uint64_t{keep} * w->kind->mem_size);
    w->first += drop;
}

// Drops entries at the end until `n` more fit before them, and moves the others up.
void make_room_before(Mp4TableWindow* w, uint32_t n) {
    const uint32_t keep = std::min(w->end - w->first, w->capacity - n);
    w->end_key = mp4_entry_start(*w, w->first + keep);
    std::memmove(slot(*w, n), slot(*w, 0), uint64_t{keep} * w->kind->mem_size);
    w->end = w->first + keep;
}

// Decodes up to `n` entries from w->end on; stops before one that breaks the format.
void decode_after(Mp4TableWindow* w, const Mp4RawEntries& raw, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) {
        Mp4TableKey length{}, end{};
        if (!w->kind->measure(raw, w->end, &length) || !mp4_advance_key(w->end_key, length, &end)) {
            w->index.broken = true;
            break;
        }
        note_start(&w->index, w->end, w->end_key);
        w->kind->decode(raw, w->end, w->end_key, slot(*w, w->end - w->first));
        w->end_key = end;
        ++w->end;
    }
    note_reached(&w->index, w->end, w->end_key);
}

Mp4Result load_forward(Mp4Host* host, Mp4File* file, Mp4TableWindow* w,
                       const Mp4TableAnchor& from) {
    const bool joined = w->first != 0 && w->end == from.entry;
    const uint32_t n = std::min(entries_per_read(*w, joined), w->count + 1 - from.entry);
    if (n == 0) return FF4_RET_FORMAT;
    Scratch scratch;
    FF4_TRY(read_raw(host, file, *w, from.entry, from.entry + n, &scratch));

    restart_unless(joined, w, from);
    make_room_after(w, n);
    decode_after(w, scratch.raw, n);
    return w->end == from.entry ? FF4_RET_FORMAT : FF4_RET_OK;
}

// The start of entry `first`, counted back from the start of `end`. Entries below a known place
// have all been decoded once, so that only a file that changed meanwhile fails here.
Mp4Result count_back(const Mp4TableWindow& w, const Mp4RawEntries& raw, uint32_t first,
                     uint32_t end, const Mp4TableKey& end_key, Mp4TableKey* start) {
    *start = end_key;
    for (uint32_t entry = end; entry-- > first;) {
        Mp4TableKey length{};
        if (!w.kind->measure(raw, entry, &length)) return FF4_RET_FORMAT;
        if (length.number > start->number - kTableStart.number || length.time > start->time)
            return FF4_RET_FORMAT;
        *start = {start->number - length.number, start->time - length.time};
    }
    return FF4_RET_OK;
}

void decode_before(Mp4TableWindow* w, const Mp4RawEntries& raw, uint32_t n,
                   const Mp4TableKey& start) {
    Mp4TableKey key = start;
    for (uint32_t i = 0; i < n; ++i) {
        const uint32_t entry = w->first - n + i;
        Mp4TableKey length{};
        static_cast<void>(w->kind->measure(raw, entry, &length));  // passed count_back
        w->kind->decode(raw, entry, key, slot(*w, i));
        key = {key.number + length.number, key.time + length.time};
    }
    w->first -= n;
    w->first_key = start;
}

Mp4Result load_backward(Mp4Host* host, Mp4File* file, Mp4TableWindow* w,
                        const Mp4TableAnchor& from) {
    const bool joined = w->first != 0 && w->first == from.entry;
    uint32_t n = std::min(entries_per_read(*w, joined), from.entry - 1);
    if (n == 0) return FF4_RET_FORMAT;
    // One entry stays, for a walk that turns around.
    if (joined && n == w->capacity && n > 1) --n;
    Scratch scratch;
    FF4_TRY(read_raw(host, file, *w, from.entry - n, from.entry, &scratch));
    Mp4TableKey start{};
    FF4_TRY(count_back(*w, scratch.raw, from.entry - n, from.entry, from.start, &start));

    restart_unless(joined, w, from);
    make_room_before(w, n);
    decode_before(w, scratch.raw, n, start);
    return FF4_RET_OK;
}

// One read towards the target.
Mp4Result load_towards(Mp4Host* host, Mp4File* file, Mp4TableWindow* w, Mp4TableAxis axis,
                       uint64_t target) {
    Plan plan{};
    FF4_TRY(choose(*w, axis, target, &plan));
    return plan.backward ? load_backward(host, file, w, plan.from)
                         : load_forward(host, file, w, plan.from);
}

// --- scanning

// The held entry that covers the target, which the window does cover.
uint32_t scan(const Mp4TableWindow& w, Mp4TableAxis axis, uint64_t target) {
    if (w.kind->direct) return static_cast<uint32_t>(target);
    const auto starts_by = [&](uint32_t entry) {
        return mp4_entry_start(w, entry).*axis <= target;
    };
    // A walk asks for the same entry again or for the next one.
    if (w.cursor >= w.first && w.cursor < w.end && starts_by(w.cursor)) {
        if (!starts_by(w.cursor + 1)) return w.cursor;
        if (w.cursor + 1 < w.end && !starts_by(w.cursor + 2)) return w.cursor + 1;
    }
    uint32_t low = w.first, high = w.end;  // the last entry that starts by the target is in between
    while (high - low > 1) {
        const uint32_t middle = low + (high - low) / 2;
        (starts_by(middle) ? low : high) = middle;
    }
    return low;
}

}  // namespace

void mp4_init_window(Mp4TableWindow* window, const Mp4TableKind& kind, uint64_t entries_offset,
                     uint32_t count) {
    *window = {};
    window->kind = &kind;
    window->entries_offset = entries_offset;
    window->count = std::min(count, kMaxEntries);
    window->index.reached = {1, kTableStart};
}

Mp4Result mp4_alloc_window(Mp4Host* host, Mp4TableWindow* window) {
    if (window->capacity == 0 || window->buffer) return FF4_RET_OK;
    auto buffer = mp4_make<uint8_t>(host, uint64_t{window->capacity} * window->kind->mem_size,
                                    kMemoryWindows);
    if (!buffer) return FF4_RET_NOMEM;

    Mp4TableIndex& index = window->index;
    if (!window->kind->direct && window->capacity < window->count && !index.checkpoints) {
        const uint32_t spacing = std::max(kMinSpacing, (window->count - 1) / kMaxCheckpoints + 1);
        const uint32_t room = (window->count - 1) / spacing + 1;
        auto checkpoints = mp4_make<Mp4TableKey>(host, room);
        if (!checkpoints) return FF4_RET_NOMEM;
        index.checkpoints = checkpoints.release();
        index.spacing = spacing;
        index.room = room;
    }
    window->buffer = buffer.release();
    return FF4_RET_OK;
}

void mp4_release_window(Mp4Host* host, Mp4TableWindow* window) {
    mp4_clear_window(window);
    mp4_free(host, window->buffer);
    window->buffer = nullptr;
}

void mp4_free_window(Mp4Host* host, Mp4TableWindow* window) {
    mp4_release_window(host, window);
    mp4_free(host, window->index.checkpoints);
    window->index = {};
    window->index.reached = {1, kTableStart};
}

void mp4_clear_window(Mp4TableWindow* window) {
    window->first = window->end = window->cursor = 0;
    window->first_key = window->end_key = {};
}

Mp4Result mp4_find_entry(Mp4Host* host, Mp4File* file, Mp4TableWindow* window, Mp4TableAxis axis,
                         uint64_t target, uint32_t* entry) {
    if (!window || !entry) return FF4_RET_ARGS;
    if (window->count == 0) return FF4_RET_NOTFOUND;
    if (!window->buffer) return FF4_RET_STATE;
    while (!covers(*window, axis, target)) {
        const Mp4Result result = load_towards(host, file, window, axis, target);
        if (result == FF4_RET_FORMAT) mp4_clear_window(window);
        FF4_TRY(result);
    }
    *entry = window->cursor = scan(*window, axis, target);
    return FF4_RET_OK;
}

Mp4TableKey mp4_entry_start(const Mp4TableWindow& window, uint32_t entry) {
    if (entry == window.first) return window.first_key;
    if (entry == window.end) return window.end_key;
    return window.kind->start(slot(window, entry - window.first), entry);
}

}  // namespace tarn
