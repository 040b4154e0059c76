#include "support/long_clip.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace tarn {
namespace {

const Bytes kHead = Ftyp("isom", 0x200, {"isom", "mp42"});

// Appends to a file; the sizes of atoms are put in once they are known.
class AtomStream {
public:
    explicit AtomStream(std::FILE* file) : m_file(file) {}

    void Put(const Bytes& bytes) {
        Append(&m_buffer, bytes);
        if (m_buffer.size() > kEnough) Flush();
    }
    void Number(uint64_t value, int width) {
        AppendBe(&m_buffer, value, width);
        if (m_buffer.size() > kEnough) Flush();
    }
    template <typename Body>
    void Nest(FourCC type, Body body) {
        Flush();
        const off_t start = ftello(m_file);
        Put(Be32({0, type.value}));
        body();
        Flush();
        const off_t end = ftello(m_file);
        Number(static_cast<uint64_t>(end - start), 4);
        m_good = m_good && fseeko(m_file, start, SEEK_SET) == 0;
        Flush();
        m_good = m_good && fseeko(m_file, end, SEEK_SET) == 0;
    }
    bool Good() const { return m_good; }

private:
    static constexpr size_t kEnough = 1 << 20;
    void Flush() {
        const size_t size = m_buffer.size();
        if (size == 0) return;  // an empty vector may have no storage to point at
        m_good = m_good && std::fwrite(m_buffer.data(), 1, size, m_file) == size;
        m_buffer.clear();
    }

    std::FILE* m_file;
    Bytes m_buffer;
    bool m_good = true;
};

uint64_t ChunkRoom(const LongTrack& track) {
    return uint64_t{track.per_chunk} * (track.size + 6) + track.chunk_padding;
}

uint32_t ChunkCount(const LongTrack& track) {
    return (track.count + track.per_chunk - 1) / track.per_chunk;
}

void PutTables(const LongClip& clip, size_t index, AtomStream* out) {
    const LongTrack& track = clip.tracks[index];
    const uint32_t chunks = ChunkCount(track), rest = track.count % track.per_chunk;
    // A table with a row for each `step`-th sample, from the first on.
    const auto table = [&](FourCC type, const Bytes& head, uint32_t step, auto row) {
        out->Nest(type, [&] {
            out->Put(head);
            for (uint64_t n = 1; n <= track.count; n += step)
                row(clip.Sample(index, static_cast<uint32_t>(n)), static_cast<uint32_t>(n));
        });
    };
    out->Put(Stsd({track.handler.value == fourcc("vide") ? Avc1() : Mp4a()}));
    out->Put(Stts({{track.count, track.duration}}));
    if (track.reordered) {
        table("ctts", Be32({0, track.count}), 1, [&](const MovieSample& sample, uint32_t) {
            out->Number(uint64_t{1} << 32 | static_cast<uint32_t>(sample.composition), 8);
        });
    }
    std::vector<ChunkRun> runs = {{1, track.per_chunk, 1}};
    if (rest > 0 && chunks > 1) runs.push_back({chunks, rest, 1});
    if (rest > 0 && chunks == 1) runs[0].samples = rest;
    out->Put(Stsc(runs));
    table("stsz", Be32({0, 0, track.count}), 1,
          [&](const MovieSample& sample, uint32_t) { out->Number(sample.size, 4); });
    table("co64", Be32({0, chunks}), track.per_chunk,
          [&](const MovieSample& sample, uint32_t) { out->Number(sample.offset, 8); });
    if (track.sync_every > 0) {
        const uint32_t syncs = (track.count + track.sync_every - 1) / track.sync_every;
        table("stss", Be32({0, syncs}), track.sync_every,
              [&](const MovieSample&, uint32_t n) { out->Number(n, 4); });
    }
}

void PutTrack(const LongClip& clip, size_t index, AtomStream* out) {
    const LongTrack& track = clip.tracks[index];
    const uint64_t duration = uint64_t{track.count} * track.duration;
    out->Nest("trak", [&] {
        out->Put(Tkhd({.version = 1,
                       .track_id = static_cast<uint32_t>(index + 1),
                       .duration = duration * 1000 / track.timescale}));
        out->Nest("mdia", [&] {
            out->Put(Join(Mdhd({.version = 1, .timescale = track.timescale, .duration = duration}),
                          Hdlr(track.handler)));
            out->Nest("minf", [&] {
                out->Put(Join(MediaHeader(track.handler), Atom("dinf", Dref())));
                out->Nest("stbl", [&] { PutTables(clip, index, out); });
            });
        });
    });
}

}  // namespace

MovieSample LongClip::Sample(size_t track, uint32_t number) const {
    const LongTrack& t = tracks[track];
    const uint32_t chunk = (number - 1) / t.per_chunk;
    uint64_t stride = 0, offset = kHead.size() + 16;
    for (size_t i = 0; i < tracks.size(); ++i) {
        if (i < track) offset += ChunkRoom(tracks[i]);
        stride += ChunkRoom(tracks[i]);
    }
    offset += chunk * stride;
    for (uint32_t n = chunk * t.per_chunk + 1; n < number; ++n)
        offset += t.size + n % 7;
    return {.size = t.size + number % 7,
            .duration = t.duration,
            .composition = t.reordered ? static_cast<int32_t>(number % 3 * t.duration) : 0,
            .sync = t.sync_every == 0 || number % t.sync_every == 1 % t.sync_every,
            .offset = offset,
            .time = uint64_t{number - 1} * t.duration};
}

bool LongClip::Write(const std::string& path) const {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "wb"),
                                                               std::fclose);
    if (!file) return false;
    uint64_t media = 0, turns = 0, duration = 0;
    for (const LongTrack& track : tracks) {
        media += ChunkRoom(track);
        turns = std::max<uint64_t>(turns, ChunkCount(track));
        duration =
            std::max(duration, uint64_t{track.count} * track.duration * 1000 / track.timescale);
    }
    media *= turns;
    const Bytes head = Join(kHead, Be32({1, fourcc("mdat")}), Be64({media + 16}));
    if (std::fwrite(head.data(), 1, head.size(), file.get()) != head.size()) return false;
    if (fseeko(file.get(), static_cast<off_t>(media), SEEK_CUR) != 0) return false;

    AtomStream out(file.get());
    out.Nest("moov", [&] {
        out.Put(Mvhd({.version = 1,
                      .duration = duration,
                      .next_track_id = static_cast<uint32_t>(tracks.size() + 1)}));
        for (size_t i = 0; i < tracks.size(); ++i)
            PutTrack(*this, i, &out);
    });
    return out.Good() && std::fflush(file.get()) == 0;
}

}  // namespace tarn
