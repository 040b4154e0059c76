#include "support/movie_builder.h"

#include <algorithm>
#include <random>

namespace tarn {
namespace {

constexpr uint32_t kNotSync = 0x10000;  // in the sample flags of fragments

struct Chunk {
    size_t first, count;  // indexes of samples
};

std::vector<Chunk> ChunksOf(const MovieTrack& track) {
    std::vector<Chunk> chunks;
    for (size_t i = 0; i < track.samples.size();) {
        const size_t limit = track.chunks[std::min(chunks.size(), track.chunks.size() - 1)];
        Chunk chunk{i, 0};
        while (i < track.samples.size() && chunk.count < limit &&
               track.samples[i].description == track.samples[chunk.first].description) {
            ++i;
            ++chunk.count;
        }
        chunks.push_back(chunk);
    }
    return chunks;
}

template <typename Value>
std::vector<Run> RunsOf(const MovieTrack& track, Value value) {
    std::vector<Run> runs;
    for (const MovieSample& sample : track.samples) {
        const auto v = static_cast<uint32_t>(sample.*value);
        if (track.merge && !runs.empty() && runs.back().value == v) {
            ++runs.back().count;
        } else {
            runs.push_back({1, v});
        }
    }
    return runs;
}

Bytes ChunkTables(const MovieTrack& track) {
    std::vector<ChunkRun> runs;
    std::vector<uint64_t> offsets;
    for (const Chunk& chunk : ChunksOf(track)) {
        const MovieSample& first = track.samples[chunk.first];
        const auto count = static_cast<uint32_t>(chunk.count);
        offsets.push_back(first.offset);
        if (!track.merge || runs.empty() || runs.back().samples != count ||
            runs.back().description != first.description) {
            runs.push_back({static_cast<uint32_t>(offsets.size()), count, first.description});
        }
    }
    return Join(Stsc(runs), track.co64 ? Co64(offsets) : Stco(offsets));
}

Bytes SizeTable(const MovieTrack& track) {
    std::vector<uint32_t> sizes;
    for (const MovieSample& sample : track.samples)
        sizes.push_back(sample.size);
    if (track.size_bits == 32) return Stsz(sizes);
    if (track.size_bits > 0) return Stz2(track.size_bits, sizes);
    return StszConstant(sizes.empty() ? 1 : sizes[0], static_cast<uint32_t>(sizes.size()));
}

Bytes DefaultEntry(FourCC handler) {
    if (handler.value == fourcc("vide")) return Avc1();
    if (handler.value == fourcc("soun")) return Mp4a();
    return PlainEntry("LBIN", Bytes(24, 0));
}

Bytes SampleTables(const MovieTrack& track) {
    Bytes out = Join(Stsd(track.entries.empty() ? std::vector<Bytes>{DefaultEntry(track.handler)}
                                                : track.entries),
                     Stts(RunsOf(track, &MovieSample::duration)));
    const auto moved = [](const MovieSample& s) { return s.composition != 0; };
    if (track.ctts_version || std::any_of(track.samples.begin(), track.samples.end(), moved))
        Append(&out,
               Ctts(RunsOf(track, &MovieSample::composition), track.ctts_version.value_or(0)));
    Append(&out, Join(ChunkTables(track), SizeTable(track)));

    std::vector<uint32_t> sync;
    for (size_t i = 0; i < track.samples.size(); ++i)
        if (track.samples[i].sync) sync.push_back(static_cast<uint32_t>(i + 1));
    const bool needed = sync.size() < track.samples.size();
    if (track.sync_table == SyncTable::kAlways ||
        (track.sync_table == SyncTable::kWhereNeeded && needed))
        Append(&out, Stss(sync));
    return Atom("stbl", out);
}

uint64_t MediaDuration(const MovieTrack& track) {
    uint64_t total = 0;
    for (const MovieSample& sample : track.samples)
        total += sample.duration;
    return total;
}

uint64_t MovieDuration(const MovieTrack& track, uint32_t timescale) {
    if (track.edits.empty()) return MediaDuration(track) * timescale / track.timescale;
    uint64_t total = 0;
    for (const Edit& edit : track.edits)
        total += edit.duration;
    return total;
}

Bytes Trak(const MovieTrack& track, uint32_t timescale) {
    const bool video = track.handler.value == fourcc("vide");
    const bool sound = track.handler.value == fourcc("soun");
    const Bytes edts =
        track.edits.empty() ? Bytes{} : Atom("edts", Elst(track.edits, track.version));
    return Atom("trak",
                Tkhd({.version = track.version,
                      .flags = track.flags,
                      .track_id = track.id,
                      .duration = MovieDuration(track, timescale),
                      .volume = static_cast<uint16_t>(sound ? 0x100 : 0),
                      .width = static_cast<uint16_t>(video ? 320 : 0),
                      .height = static_cast<uint16_t>(video ? 180 : 0)}),
                edts,
                Atom("mdia",
                     Mdhd({.version = track.version,
                           .timescale = track.timescale,
                           .duration = MediaDuration(track)}),
                     Hdlr(track.handler),
                     Atom("minf", MediaHeader(track.handler), Atom("dinf", Dref(track.refs)),
                          SampleTables(track))),
                track.role ? RoleRecord(track.role) : Bytes{}, track.extra);
}

Bytes Moov(const MovieBuilder& movie, const std::vector<MovieTrack>& tracks) {
    Bytes traks, trexes;
    uint64_t duration = 0;
    uint32_t last_id = 0;
    for (const MovieTrack& track : tracks) {
        Append(&traks, Trak(track, movie.timescale));
        Append(&trexes, Trex({.track_id = track.id}));
        duration = std::max(duration, MovieDuration(track, movie.timescale));
        last_id = std::max(last_id, track.id);
    }
    return Atom(
        "moov",
        Mvhd({.timescale = movie.timescale, .duration = duration, .next_track_id = last_id + 1}),
        traks, movie.fragment_samples ? Atom("mvex", trexes) : Bytes{}, movie.moov_extra);
}

// Puts a sample at the end of the media and notes where that is.
void Place(MovieTrack* track, size_t index, Bytes* media) {
    MovieSample& sample = track->samples[index];
    sample.offset = media->size();
    Append(media, SampleContent(track->id, index + 1, sample.size));
}

// The media of all tracks, chunk by chunk in turn; the samples' offsets are from its start.
Bytes PlaceMedia(std::vector<MovieTrack>* tracks) {
    Bytes media;
    bool more = true;
    for (size_t turn = 0; more; ++turn) {
        more = false;
        for (MovieTrack& track : *tracks) {
            const std::vector<Chunk> chunks = ChunksOf(track);
            if (turn >= chunks.size()) continue;
            more = true;
            for (size_t i = 0; i < chunks[turn].count; ++i)
                Place(&track, chunks[turn].first + i, &media);
        }
    }
    return media;
}

// One description for the whole run. Offsets count from the start of the moof; `media_at` is where
// its media begin.
Bytes Traf(const MovieTrack& track, size_t first, size_t last, size_t media_at) {
    TrunFields run{.row_flags = 0xF00, .count = static_cast<uint32_t>(last - first)};
    run.version = 1;
    run.data_offset = static_cast<int32_t>(track.samples[first].offset + media_at);
    for (size_t i = first; i < last; ++i) {
        const MovieSample& s = track.samples[i];
        for (const uint32_t word :
             {s.duration, s.size, s.sync ? 0 : kNotSync, static_cast<uint32_t>(s.composition)})
            run.words.push_back(word);
    }
    return Atom("traf",
                Tfhd({.track_id = track.id,
                      .description = track.samples[first].description,
                      .more_flags = 0x20000}),
                Trun(run));
}

// Appends one moof and its mdat for every `step` samples of each track from `first` on, and the
// index of them.
void AppendFragments(std::vector<MovieTrack>* tracks, size_t first, size_t step, Bytes* file) {
    std::vector<std::vector<TfraEntry>> index(tracks->size());
    size_t longest = 0;
    for (const MovieTrack& track : *tracks)
        longest = std::max(longest, track.samples.size());
    for (uint32_t sequence = 1; first < longest; first += step, ++sequence) {
        Bytes media;
        for (MovieTrack& track : *tracks)
            for (size_t i = first; i < std::min(first + step, track.samples.size()); ++i)
                Place(&track, i, &media);
        const auto moof = [&](size_t size) {
            std::vector<Bytes> trafs;
            for (const MovieTrack& track : *tracks) {
                const size_t last = std::min(first + step, track.samples.size());
                if (first < last) trafs.push_back(Traf(track, first, last, size + 8));
            }
            return Moof(sequence, trafs);
        };
        const size_t moof_size = moof(0).size();
        const Bytes head = moof(moof_size);
        uint32_t traf = 0;
        for (size_t t = 0; t < tracks->size(); ++t) {
            std::vector<MovieSample>& samples = (*tracks)[t].samples;
            if (first >= samples.size()) continue;
            index[t].push_back({samples[first].time, file->size(), ++traf});
            for (size_t i = first; i < std::min(first + step, samples.size()); ++i)
                samples[i].offset += file->size() + moof_size + 8;
        }
        Append(file, Join(head, Atom("mdat", media)));
    }
    std::vector<Bytes> tfras;
    for (size_t t = 0; t < tracks->size(); ++t)
        tfras.push_back(Tfra((*tracks)[t].id, index[t]));
    Append(file, Mfra(tfras));
}

}  // namespace

Bytes SampleContent(uint32_t track_id, uint64_t number, uint32_t size) {
    Bytes out(size);
    for (uint32_t i = 0; i < size; ++i)
        out[i] = static_cast<uint8_t>(track_id * 41 + number * 13 + i);
    return out;
}

MovieTrack VideoTrack(uint32_t count, uint32_t group, uint32_t between) {
    MovieTrack track{.handler = "vide", .timescale = 30000, .samples = {}};
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t at = i % group;
        const bool ahead = at > 0 && (at - 1) % (between + 1) == 0;  // B pictures follow
        uint32_t frames = at == 0 ? 1 : 0;
        if (ahead) frames = std::min(between, group - 1 - at) + 1;
        track.samples.push_back({.size = (at == 0 ? 90 : 30) + i % 7,
                                 .duration = 1001,
                                 .composition = between ? static_cast<int32_t>(frames * 1001) : 0,
                                 .sync = at == 0});
    }
    return track;
}

MovieTrack SoundTrack(uint32_t count) {
    MovieTrack track{.handler = "soun", .timescale = 48000, .samples = {}, .chunks = {2, 1, 3}};
    for (uint32_t i = 0; i < count; ++i)
        track.samples.push_back({.size = 20 + i % 5, .duration = 1024});
    return track;
}

Bytes MovieBuilder::Build() {
    for (size_t t = 0; t < tracks.size(); ++t) {
        if (tracks[t].id == 0) tracks[t].id = static_cast<uint32_t>(t + 1);
        uint64_t time = 0;
        for (MovieSample& sample : tracks[t].samples) {
            sample.time = time;
            time += sample.duration;
        }
    }
    const FourCC major = camera ? FourCC("MSNV") : FourCC("isom");
    Bytes file = Join(Ftyp(major, 0x200, {major, "isom", "mp42", "avc1"}),
                      camera ? Prof() : Bytes{}, top_extra);

    std::vector<MovieTrack> plain = tracks;
    for (MovieTrack& track : plain)
        if (fragment_samples > 0 && track.samples.size() > plain_samples)
            track.samples.resize(plain_samples);
    const Bytes media = PlaceMedia(&plain);
    const size_t moov_size = Moov(*this, plain).size();  // the same wherever the media lie
    const size_t start = file.size() + (moov_first ? moov_size : 0) + (large_mdat ? 16 : 8);
    for (MovieTrack& track : plain)
        for (MovieSample& sample : track.samples)
            sample.offset += start;
    for (size_t t = 0; t < tracks.size(); ++t)
        std::copy(plain[t].samples.begin(), plain[t].samples.end(), tracks[t].samples.begin());
    const Bytes moov = Moov(*this, plain);
    const Bytes mdat = large_mdat ? LargeAtom("mdat", media) : Atom("mdat", media);
    Append(&file, moov_first ? Join(moov, mdat) : Join(mdat, moov));

    if (fragment_samples > 0) AppendFragments(&tracks, plain_samples, fragment_samples, &file);
    return file;
}

MovieBuilder RichMovie(bool fragments) {
    MovieTrack video = VideoTrack(40, 12, 2);
    video.entries = {Avc1(), Mp4v()};
    for (size_t i = 24; i < video.samples.size(); ++i)
        video.samples[i].description = 2;
    video.edits = {{100, -1}, {1200, 1001}};
    video.role = 1;
    video.extra = Atom("tref", Atom("sync", Be32({2})));

    MovieTrack sound = SoundTrack(60);
    sound.edits = {{1280, 1024}};
    sound.version = 1;
    sound.co64 = true;
    sound.role = 1;

    MovieTrack pcm{.handler = "soun", .timescale = 48000, .samples = {}, .chunks = {480}};
    pcm.samples.assign(1000, {.size = 4, .duration = 1});
    pcm.entries = {Twos()};
    pcm.refs = {Url("file:///elsewhere"), Urn("name", "place"), Url()};
    pcm.size_bits = 0;
    pcm.role = 2;

    MovieTrack data{.handler = "meta", .timescale = 90000, .samples = {}, .size_bits = 4};
    for (uint32_t i = 0; i < 9; ++i)
        data.samples.push_back(
            {.size = 1 + i, .duration = 3000 + i, .composition = i % 2 ? -3 : 3, .sync = i > 4});
    data.ctts_version = 1;

    const MetaItem texts[] = {{.type = 1, .language = 0x15C7, .data = Be16({'H', 'i'})},
                              {.type = 10, .data = Be32({1, 0})}};
    MovieBuilder movie{.tracks = {video, sound, pcm, data}};
    movie.camera = true;
    movie.moov_extra = Join(Iods(), Uuid("USMT", Mtdt({texts[0], texts[1]}), Mtdf({texts[0]}),
                                         Atom("MTSM", Be32({7})), Atom("MVPL"), Atom("UASI")));
    movie.top_extra =
        Join(Uuid("LICI", Atom("LIC1", Be32({1}))), Uuid("MTSD", Be32({1, 2})),
             Atom("uuid", Be32({0x508E0CF1, 0x21864CCF, 0xAAB26344, 0xD2498006}), Be32({3})),
             Atom("mdri", Be32({4})), Atom("free", Bytes(10, 0)));
    movie.plain_samples = 30;
    movie.fragment_samples = fragments ? 20 : 0;
    return movie;
}

MovieBuilder RandomMovie(uint64_t seed) {
    std::mt19937_64 engine(seed);
    const auto below = [&](uint64_t n) { return static_cast<uint32_t>(engine() % n); };
    constexpr uint8_t kSizeBits[] = {32, 0, 4, 8, 16};
    MovieBuilder movie{.tracks = {}, .moov_first = below(2) == 0, .large_mdat = below(4) == 0};
    movie.camera = below(2) == 0;
    if (below(6) == 0) movie.fragment_samples = 1 + below(20);
    movie.plain_samples = below(2) * below(50);
    for (uint32_t t = 0, count = 1 + below(4); t < count; ++t) {
        const FourCC handlers[] = {"vide", "soun", "meta"};
        MovieTrack track{
            .handler = handlers[below(3)], .timescale = 1 + below(96000), .samples = {}};
        track.id = (t ? movie.tracks.back().id : 0) + 1 + below(3);
        track.size_bits = kSizeBits[below(5)];
        track.version = static_cast<uint8_t>(below(2));
        track.co64 = below(2) == 0;
        track.merge = below(4) != 0;
        track.sync_table = static_cast<SyncTable>(below(3));
        track.role = below(3);
        track.chunks.clear();
        for (uint32_t i = 0, n = 1 + below(5); i < n; ++i)
            track.chunks.push_back(1 + below(9));
        if (below(3) == 0) track.edits = {{below(500), -1}, {1 + below(5000), below(9000)}};
        const bool descriptions = below(4) == 0 && movie.fragment_samples == 0;
        if (descriptions)
            track.entries = {DefaultEntry(track.handler), DefaultEntry(track.handler)};
        const bool moved = below(2) == 0, uneven = below(3) == 0;
        const uint32_t keys = below(4) * 5, most = track.size_bits == 4 ? 15 : 200;
        // Many players take no empty samples in fragments.
        const uint32_t least = movie.fragment_samples ? 1 : 0;
        const uint32_t constant = 1 + below(9), duration = 1 + below(4000);
        for (uint32_t i = 0, n = below(300); i < n; ++i) {
            MovieSample sample{.size = track.size_bits ? least + below(most) : constant,
                               .duration = uneven ? 1 + below(duration) : duration};
            if (moved) sample.composition = static_cast<int32_t>(below(4) * duration);
            sample.sync = keys == 0 || below(keys) == 0;
            if (descriptions) sample.description = 1 + (i / 50) % 2;
            track.samples.push_back(sample);
        }
        if (moved && below(2) == 0) {
            track.ctts_version = uint8_t{1};
            for (MovieSample& sample : track.samples)
                sample.composition -= static_cast<int32_t>(duration);
        }
        movie.tracks.push_back(track);
    }
    return movie;
}

}  // namespace tarn
