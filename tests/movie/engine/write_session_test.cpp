#include "movie/engine/write_session.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "movie/engine/meta_lists.h"
#include "movie/engine/samples.h"
#include "movie/engine/session.h"
#include "movie/engine/tracks.h"
#include "movie/objects/movie_info.h"
#include "mp4format/atom_writer.h"
#include "support/fault_check.h"
#include "support/movie_builder.h"

namespace tarn {
namespace {

constexpr uint64_t k4G = uint64_t{1} << 32;

struct Plan {
    Mp4Layout layout = kMovieAfterMedia;
    uint64_t most_media = 60;
    Mp4WriteOptions options = kWriteAsNeeded;
    uint32_t text_bytes = 0;  // of metadata, to give the movie a size
};

// One track of sound: `count` samples of 10 bytes.
MovieBuilder Sound(uint32_t count = 6) {
    return {.tracks = {{.handler = "soun",
                        .timescale = 100,
                        .samples = std::vector<MovieSample>(count, {.size = 10, .duration = 5}),
                        .edits = {{50 * count, 0}},
                        .id = 1}}};
}

// Copies the tracks of a movie to a new file, three samples a chunk.
struct Rig {
    explicit Rig(TestHost& at, MovieBuilder from = Sound(), Mp4File* to = nullptr)
        : host(at), file(to ? to : at.Add({})), movie(std::move(from)), source(movie.Build()) {
        std::erase_if(movie.tracks, [](const MovieTrack& track) {
            return track.handler.value == fourcc("meta");  // read, but never written
        });
    }
    ~Rig() {
        if (session) {
            EXPECT_EQ(mp4_close_write(host, session), FF4_RET_OK);
        }
    }

    Mp4Result Open(const Plan& plan) {
        FF4_TRY(mp4_open_write(host, file, plan.options, &session));
        Mp4MovieHeader header{};
        header.timescale = 1000;
        FF4_TRY(mp4_create_movie(session, kFieldTimescale, header));
        const uint32_t brands[] = {fourcc("MSNV"), fourcc("isom")};
        FF4_TRY(mp4_set_file_type(session, fourcc("MSNV"), 0x146008A, brands, 2));
        for (uint32_t number = 1; number <= movie.tracks.size(); ++number)
            FF4_TRY(AddTrack(movie.tracks[number - 1], number));
        Mp4ProfileBuild profile{};
        profile.has_file = profile.has_audio = true;
        profile.audio.track_id = ProfileId();
        FF4_TRY(mp4_set_profile(session, profile));
        if (plan.text_bytes == 0) return FF4_RET_OK;
        Bytes text(plan.text_bytes, 't');
        Mp4MetaItem item{};
        item.data = {text.data(), plan.text_bytes};
        return mp4_add_meta_text(session, 0, item);
    }

    Mp4Result AddTrack(const MovieTrack& from, uint32_t number) {
        Mp4NewTrack fields{.handler_type = from.handler.value,
                           .timescale = from.timescale,
                           .track_id = from.id,
                           .visibility = 1};
        if (from.size_bits == 0 && !from.samples.empty())
            fields.constant_size = from.samples[0].size;
        if (from.size_bits > 0 && from.size_bits < 32) fields.field_bits = from.size_bits;
        uint32_t made = 0, id = 0, index = 0;
        FF4_TRY(mp4_add_track(session, fields, &made, &id));
        EXPECT_EQ(made, number);
        EXPECT_EQ(id, from.id);
        FF4_TRY(mp4_add_track_data_ref(session, number, fourcc("url "), nullptr, nullptr));
        Mp4SampleEntry entry{};
        entry.kind = from.handler.value == fourcc("vide") ? kEntryAvc : kEntryAudio;
        if (entry.kind == kEntryAudio) entry.format = fourcc("twos");
        entry.data_reference_index = 1;
        for (size_t i = 0; i < std::max<size_t>(from.entries.size(), 1); ++i)
            FF4_TRY(mp4_add_track_description(session, number, entry, &index));
        for (const Edit& edit : from.edits)
            FF4_TRY(mp4_add_track_edit(session, number,
                                       {edit.duration, edit.media_time, edit.rate, 0, nullptr}));
        return mp4_add_track_role(session, number, 1, 7);
    }

    // The next samples of a track; moves `next` past them.
    Mp4Result AddChunk(const MovieTrack& from, uint32_t number, size_t* next) {
        const uint32_t description = from.samples[*next].description;
        const uint64_t at = data_offset + written;
        std::vector<Mp4SampleRun> runs;
        for (; *next < from.samples.size() && runs.size() < 3; ++*next) {
            const MovieSample& sample = from.samples[*next];
            if (sample.description != description) break;
            runs.push_back({1, sample.size, sample.duration, sample.composition, sample.sync});
            Mp4Sink sink{host, kWriteAsNeeded, file, data_offset + written};
            FF4_TRY(mp4_put(sink, source.data() + sample.offset, sample.size));
            written += sample.size;
        }
        return mp4_add_track_chunk(
            session, number, {at, description, runs.data(), static_cast<uint32_t>(runs.size())});
    }

    Mp4Result Make(const Plan& plan) {
        FF4_TRY(Open(plan));
        FF4_TRY(mp4_begin_media(session, plan.layout, plan.most_media, &data_offset));
        std::vector<size_t> next(movie.tracks.size());
        for (bool more = true; more;) {
            more = false;
            for (size_t t = 0; t < movie.tracks.size(); ++t) {
                if (next[t] == movie.tracks[t].samples.size()) continue;
                FF4_TRY(AddChunk(movie.tracks[t], static_cast<uint32_t>(t + 1), &next[t]));
                more = true;
            }
        }
        FF4_TRY(mp4_set_times(session, kTestDate, kTestDate));
        return mp4_finish_write(session, written, &file_size);
    }

    uint32_t ProfileId() const { return movie.tracks.empty() ? 0 : movie.tracks.back().id; }

    // The atoms at the top, "ftyp uuid free:100 ...": sizes of the fillers.
    std::string Top() const {
        std::string out;
        const Bytes& content = host.Content(file);
        for (uint64_t at = 0, size = 0; at < content.size(); at += size) {
            size = get_be32(&content[at]);
            if (size == 1) size = get_be64(&content[at + 8]);
            const std::string type(&content[at + 4], &content[at + 8]);
            out += (at ? " " : "") + type + (type == "free" ? ":" + std::to_string(size) : "");
        }
        return out;
    }

    TestHost& host;
    Mp4File* file;
    MovieBuilder movie;
    Bytes source;
    Mp4WriteSession* session = nullptr;
    uint64_t data_offset = 0, written = 0, file_size = 0;
};

void ExpectTrack(Mp4ReadSession* session, uint32_t number, const MovieTrack& truth,
                 const Bytes& source, const Bytes& copy) {
    ASSERT_EQ(mp4_open_track(session, number), FF4_RET_OK);
    Mp4TrackRole role{};
    EXPECT_EQ(mp4_get_track_role(session, number, &role), FF4_RET_OK);
    EXPECT_EQ(role.detail, 7u);
    uint32_t count = 0;
    ASSERT_EQ(mp4_get_sample_count(session, number, &count), FF4_RET_OK);
    ASSERT_EQ(count, truth.samples.size());
    for (uint32_t i = 0; i < count; ++i) {
        const MovieSample& sample = truth.samples[i];
        Mp4SampleInfo info{};
        ASSERT_EQ(mp4_get_sample_info(session, number, i + 1, &info), FF4_RET_OK);
        ASSERT_EQ(std::tuple(info.size, info.duration, info.compositionOffset, info.isSync,
                             info.descriptionIndex),
                  std::tuple(sample.size, sample.duration, sample.composition, sample.sync,
                             sample.description));
        ASSERT_TRUE(
            std::equal(&copy[info.offset], &copy[info.offset] + info.size, &source[sample.offset]));
    }
    Mp4EditList* edits = nullptr;
    ASSERT_EQ(mp4_open_edit_list(session, number, &edits), FF4_RET_OK);
    const Mp4Edit* edit = edits->head;
    for (const Edit& due : truth.edits) {
        ASSERT_NE(edit, nullptr);
        EXPECT_EQ(std::tuple(edit->segment_duration, edit->media_time, edit->rate_integer),
                  std::tuple(due.duration, due.media_time, due.rate));
        edit = edit->next;
    }
    EXPECT_EQ(edit, nullptr);
    EXPECT_EQ(mp4_close_edit_list(session, edits), FF4_RET_OK);
}

// A session finds in the file what was put in, and every sample is where its table says.
void ExpectReadsBack(const Rig& rig) {
    const Bytes content = rig.host.Content(rig.file);
    EXPECT_EQ(content.size(), rig.file_size);
    TestHost host(content);
    Mp4ReadSession* session = nullptr;
    uint32_t flags = 0;
    ASSERT_EQ(mp4_open_read(host, host.File(), {0, 50, 0}, &session, &flags), FF4_RET_OK);
    Mp4FileType type{};
    EXPECT_EQ(mp4_get_file_type(session, &type), FF4_RET_OK);
    EXPECT_EQ(type.major_brand, fourcc("MSNV"));
    EXPECT_EQ(type.minor_version, 0x146008Au);
    Mp4AudioProfile profile{};
    EXPECT_EQ(mp4_get_audio_profile(session, &profile), FF4_RET_OK);
    EXPECT_EQ(profile.track_id, rig.ProfileId());
    for (size_t t = 0; t < rig.movie.tracks.size(); ++t)
        ExpectTrack(session, static_cast<uint32_t>(t + 1), rig.movie.tracks[t], rig.source,
                    content);
    EXPECT_EQ(mp4_close_read(host, session), FF4_RET_OK);
}

TEST(WriteSession, BothLayoutsReadBack) {
    const std::tuple<Plan, const char*, uint32_t> cases[] = {
        {{}, "ftyp uuid mdat moov", 6},
        {{.most_media = k4G}, "ftyp uuid free:8 mdat moov", 6},  // announced, and little came
        {{.options = {kSizeAlways64, 1, 1}}, "ftyp uuid mdat moov", 6},
        // 65536 - ftyp 24 - PROF 96 - moov 636 - mdat 8
        {{.layout = kMovieBeforeMedia}, "ftyp uuid moov free:64772 mdat", 6},
        {{.layout = kMovieBeforeMedia, .text_bytes = 65500}, "ftyp uuid free:65408 mdat moov", 6},
        {{.layout = kMovieBeforeMedia}, "ftyp uuid moov free:64824 mdat", 0},
    };
    for (const auto& [plan, top, samples] : cases) {
        TestHost host;
        Rig rig(host, Sound(samples));
        ASSERT_EQ(rig.Make(plan), FF4_RET_OK);
        EXPECT_EQ(rig.Top(), top);
        ExpectReadsBack(rig);
    }
}

// The movie grows byte by byte until it fills the room: no gap ever is too small for a 'free', no
// media is overwritten, and the movie goes after the media only when it must.
TEST(WriteSession, GapsOfAllSizes) {
    TestHost first;
    Rig one(first);
    ASSERT_EQ(one.Make({.layout = kMovieBeforeMedia, .text_bytes = 1}), FF4_RET_OK);
    const uint64_t movie = one.session->movie.atom_size;
    const uint64_t room = 0x10000 - 24 - 96 - 8;  // without ftyp, PROF and the header of mdat
    for (int64_t gap = 12; gap >= -2; --gap) {
        SCOPED_TRACE(gap);
        const auto bytes = static_cast<uint32_t>(static_cast<int64_t>(room - movie + 1) - gap);
        TestHost host;
        Rig rig(host);
        ASSERT_EQ(rig.Make({.layout = kMovieBeforeMedia, .text_bytes = bytes}), FF4_RET_OK);
        const std::string free = gap >= 8 ? " free:" + std::to_string(gap) : "";
        EXPECT_EQ(rig.Top(),
                  gap >= 0 ? "ftyp uuid moov" + free + " mdat" : "ftyp uuid free:65408 mdat moov");
        ExpectReadsBack(rig);
    }
}

// On a file with a hole of 4 GB in it.
TEST(WriteSession, HeaderOfTheMediaFollowsTheRealSize) {
    const uint32_t mdat = fourcc("mdat");
    const Bytes wide = Join(Be32({1, mdat}), Be64({k4G + 16})), narrow = Be32({68, mdat});
    // front: of the media
    const std::tuple<Mp4Layout, uint64_t, uint64_t, Bytes, Mp4Result> cases[] = {
        {kMovieAfterMedia, k4G - 9, k4G - 9, Be32({0xFFFFFFFF, mdat}), FF4_RET_OK},
        {kMovieAfterMedia, k4G, k4G, wide, FF4_RET_OK},
        {kMovieAfterMedia, k4G, 60, Join(Be32({8, fourcc("free")}), narrow), FF4_RET_OK},
        {kMovieAfterMedia, 60, k4G, narrow, FF4_RET_OVERFLOW},  // large without a word
        {kMovieBeforeMedia, 60, k4G, wide, FF4_RET_OK},
        {kMovieBeforeMedia, 60, UINT64_MAX, Bytes(8, 0), FF4_RET_OVERFLOW},
    };
    for (const auto& [layout, most, media, due_front, result] : cases) {
        std::FILE* hole = std::tmpfile();
        ASSERT_NE(hole, nullptr);
        TestHost host;
        Rig rig(host, Sound(), host.AddDescriptor(fileno(hole)));
        ASSERT_EQ(rig.Open({}), FF4_RET_OK);
        ASSERT_EQ(mp4_begin_media(rig.session, layout, most, &rig.data_offset), FF4_RET_OK);
        EXPECT_EQ(mp4_finish_write(rig.session, media, &rig.file_size), result);
        Bytes front(due_front.size());
        const auto at = static_cast<off_t>(rig.data_offset - front.size());
        EXPECT_GE(pread(fileno(hole), front.data(), front.size(), at), 0);
        EXPECT_EQ(front, due_front);
        const off_t length = lseek(fileno(hole), 0, SEEK_END);
        if (result == FF4_RET_OK && layout == kMovieAfterMedia) {
            EXPECT_EQ(static_cast<uint64_t>(length), rig.file_size);
        }
        std::fclose(hole);
    }
}

TEST(WriteSession, RoomInFrontGrowsWithTheMedia) {
    // One kilobyte of media more than 65535 - 16 of them asks for the next step.
    EXPECT_EQ(mp4_reserved_front(0), 0x10000u);
    EXPECT_EQ(mp4_reserved_front(uint64_t{0xFFEF} * 1024 + 1023), 0x10000u);
    EXPECT_EQ(mp4_reserved_front(uint64_t{0xFFF0} * 1024), 0x20000u);
    EXPECT_EQ(mp4_reserved_front(24ull << 30), 0x1810000u);
    EXPECT_EQ(mp4_reserved_front(5ull << 40), 0x140010000u) << "past 32 bits";
}

TEST(WriteSession, EveryFaultIsReportedAndLeaksNothing) {
    for (const Mp4Layout layout : {kMovieBeforeMedia, kMovieAfterMedia}) {
        const auto step = [&](TestHost& host) { return Rig(host).Make({.layout = layout}); };
        ExpectFaultsTold({HostCall::kWrite, HostCall::kSeek, HostCall::kAlloc}, {}, step, 10);
    }
}

TEST(WriteSession, CallsOutOfTurn) {
    TestHost host;
    Rig rig(host);
    uint64_t size = 0;
    uint32_t n = 0, id = 0;
    const Mp4Result ok = FF4_RET_OK, state = FF4_RET_STATE, args = FF4_RET_ARGS;
    ASSERT_EQ(mp4_open_write(host, rig.file, kWriteAsNeeded, &rig.session), ok);
    Mp4WriteSession* s = rig.session;
    const Mp4NewTrack sound{.handler_type = fourcc("soun"), .timescale = 100};
    EXPECT_EQ(mp4_add_track(s, sound, &n, &id), state) << "no movie yet";
    EXPECT_EQ(mp4_begin_media(s, kMovieAfterMedia, 0, &size), state);
    ASSERT_EQ(mp4_create_movie(s, 0, {}), ok);
    EXPECT_EQ(mp4_create_movie(s, 0, {}), state);
    EXPECT_EQ(mp4_finish_write(s, 0, &size), state) << "no media yet";
    EXPECT_EQ(mp4_add_track(s, sound, &n, nullptr), args);
    ASSERT_EQ(mp4_add_track(s, sound, &n, &id), ok);

    Mp4SampleEntry entry{};
    entry.kind = kEntryAudio;
    entry.data_reference_index = 1;
    EXPECT_EQ(mp4_add_track_description(s, 1, entry, &n), args) << "no such place";
    ASSERT_EQ(mp4_add_track_data_ref(s, 1, fourcc("url "), nullptr, nullptr), ok);
    entry.kind = kEntryUnknown;
    EXPECT_EQ(mp4_add_track_description(s, 1, entry, &n), state);
    EXPECT_EQ(mp4_add_track_description(s, 2, entry, &n), FF4_RET_NOTFOUND);
    EXPECT_EQ(mp4_add_track_description(s, 0, entry, &n), args);
    EXPECT_EQ(mp4_begin_media(s, Mp4Layout{}, 0, &size), args);
    const std::vector<uint32_t> brands(0x4000, fourcc("isom"));
    ASSERT_EQ(mp4_set_file_type(s, brands[0], 0, brands.data(), 0x4000), ok);
    EXPECT_EQ(mp4_begin_media(s, kMovieBeforeMedia, 0, &size), FF4_RET_OVERFLOW) << "no room";
    ASSERT_EQ(mp4_begin_media(s, kMovieAfterMedia, 0, &size), ok);
    EXPECT_EQ(mp4_set_file_type(s, 1, 1, nullptr, 0), state) << "its place is taken";
    Mp4ProfileBuild profile{};
    profile.has_video = true;
    EXPECT_EQ(mp4_set_profile(s, profile), state);
    EXPECT_EQ(mp4_shift_chunk_offsets(s, 0, 0, -1), ok) << "there are no chunks";
    ASSERT_EQ(mp4_finish_write(s, 0, &size), ok);
    EXPECT_EQ(mp4_finish_write(s, 0, &size), state);
    EXPECT_EQ(mp4_get_movie_size(s, &size), state);
}

TEST(WriteSession, ShiftsTheChunksOfAllTracksOrNone) {
    TestHost host;
    Rig rig(host);
    ASSERT_EQ(rig.Open({}), FF4_RET_OK);
    const Mp4SampleRun run{1, 1, 1, 0, true};
    ASSERT_EQ(mp4_add_track_chunk(rig.session, 1, {100, 1, &run, 1}), FF4_RET_OK);
    const Mp4EntryCursor<uint64_t> chunk(rig.session->movie.tracks.head->media.tables.chunks);
    EXPECT_EQ(mp4_shift_chunk_offsets(rig.session, 0, 0, -101), FF4_RET_OVERFLOW);
    EXPECT_EQ(*chunk.Get(), 100u) << "nothing was moved";
    EXPECT_EQ(mp4_shift_chunk_offsets(rig.session, 0, 1, -40), FF4_RET_OK);
    EXPECT_EQ(*chunk.Get(), 60u);
    EXPECT_EQ(mp4_shift_chunk_offsets(rig.session, 1, 2, -40), FF4_RET_OK) << "no such description";
    EXPECT_EQ(*chunk.Get(), 60u);
    EXPECT_EQ(mp4_shift_chunk_offsets(rig.session, 2, 0, 1), FF4_RET_NOTFOUND);
}

TEST(WriteSession, MoviesOfAllShapesReadBack) {
    for (uint64_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        TestHost host;
        Rig rig(host, RandomMovie(seed));
        const Mp4Layout layout = seed % 2 ? kMovieBeforeMedia : kMovieAfterMedia;
        ASSERT_EQ(rig.Make({.layout = layout, .most_media = rig.source.size()}), FF4_RET_OK);
        ExpectReadsBack(rig);
    }
}

}  // namespace
}  // namespace tarn
