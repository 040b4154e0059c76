#include "long_clip.h"

#include <algorithm>
#include <fstream>

namespace tarn {
namespace {

const Bytes kHead = Ftyp("isom", 0x200, {"isom", "mp42"});

uint64_t ChunkRoom(const LongTrack& track) {
    return uint64_t{track.per_chunk} * (track.size + 6);
}

uint32_t ChunkCount(const LongTrack& track) {
    return (track.count + track.per_chunk - 1) / track.per_chunk;
}

Bytes Tables(const LongClip& clip, size_t index) {
    const LongTrack& track = clip.tracks[index];
    std::vector<uint32_t> sizes, syncs;
    std::vector<uint64_t> chunks;
    std::vector<Run> compositions;
    for (uint32_t n = 1; n <= track.count; ++n) {
        const MovieSample sample = clip.Sample(index, n);
        sizes.push_back(sample.size);
        if (track.reordered) compositions.push_back({1, static_cast<uint32_t>(sample.composition)});
        if (track.sync_every > 0 && sample.sync) syncs.push_back(n);
        if ((n - 1) % track.per_chunk == 0) chunks.push_back(sample.offset);
    }
    std::vector<ChunkRun> runs = {{1, std::min(track.per_chunk, track.count), 1}};
    const uint32_t rest = track.count % track.per_chunk;
    if (rest > 0 && chunks.size() > 1) runs.push_back({ChunkCount(track), rest, 1});
    return Atom("stbl", Stsd({track.handler.value == fourcc("vide") ? Avc1() : Mp4a()}),
                Stts({{track.count, track.duration}}),
                track.reordered ? Ctts(compositions) : Bytes(), Stsc(runs), Stsz(sizes),
                Co64(chunks), track.sync_every ? Stss(syncs) : Bytes());
}

Bytes Trak(const LongClip& clip, size_t index) {
    const LongTrack& track = clip.tracks[index];
    const uint64_t duration = uint64_t{track.count} * track.duration;
    return Atom(
        "trak",
        Tkhd({.version = 1,
              .track_id = static_cast<uint32_t>(index + 1),
              .duration = duration * 1000 / track.timescale}),
        Atom("mdia", Mdhd({.version = 1, .timescale = track.timescale, .duration = duration}),
             Hdlr(track.handler),
             Atom("minf", MediaHeader(track.handler), Atom("dinf", Dref()), Tables(clip, index))));
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
    uint64_t media = 0, turns = 0, duration = 0;
    Bytes traks;
    for (size_t i = 0; i < tracks.size(); ++i) {
        const LongTrack& track = tracks[i];
        media += ChunkRoom(track);
        turns = std::max<uint64_t>(turns, ChunkCount(track));
        duration =
            std::max(duration, uint64_t{track.count} * track.duration * 1000 / track.timescale);
        Append(&traks, Trak(*this, i));
    }
    media *= turns;
    std::ofstream file(path, std::ios::binary);
    const auto put = [&](const Bytes& bytes) {
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    };
    put(Join(kHead, Be32({1, fourcc("mdat")}), Be64({media + 16})));
    file.seekp(static_cast<std::streamoff>(media), std::ios::cur);
    put(Atom("moov",
             Mvhd({.version = 1,
                   .duration = duration,
                   .next_track_id = static_cast<uint32_t>(tracks.size() + 1)}),
             traks));
    return static_cast<bool>(file.flush());
}

}  // namespace tarn
