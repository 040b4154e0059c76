// Movies of all shapes, copied sample by sample through a write session and read back.
#include <gtest/gtest.h>

#include "movie/samples.h"
#include "movie/tracks.h"
#include "movie/write_session.h"
#include "mp4format/atom_writer.h"
#include "support/movie_builder.h"
#include "support/test_host.h"

namespace tarn {
namespace {

struct Copy {
    Mp4WriteSession* session = nullptr;
    uint64_t data_offset = 0, written = 0;
};

Mp4Result AddTrack(Copy* copy, const MovieTrack& from, uint32_t* number) {
    Mp4NewTrack fields{.handler_type = from.handler.value,
                       .timescale = from.timescale,
                       .track_id = from.id,
                       .visibility = 1};
    if (from.size_bits == 0 && !from.samples.empty()) fields.constant_size = from.samples[0].size;
    if (from.size_bits > 0 && from.size_bits < 32) fields.field_bits = from.size_bits;
    uint32_t id = 0, index = 0;
    FF4_TRY(mp4_add_track(copy->session, fields, number, &id));
    EXPECT_EQ(id, from.id);
    FF4_TRY(mp4_add_track_data_ref(copy->session, *number, fourcc("url "), nullptr, nullptr));
    Mp4SampleEntry entry{};
    entry.kind = from.handler.value == fourcc("vide") ? kEntryAvc : kEntryAudio;
    entry.data_reference_index = 1;
    for (size_t i = 0; i < std::max<size_t>(from.entries.size(), 1); ++i)
        FF4_TRY(mp4_add_track_description(copy->session, *number, entry, &index));
    for (const Edit& edit : from.edits)
        FF4_TRY(mp4_add_track_edit(copy->session, *number,
                                   {edit.duration, edit.media_time, edit.rate, 0, nullptr}));
    return FF4_RET_OK;
}

// The samples from `next` on that one chunk can hold; moves `next` behind them.
Mp4Result AddChunk(TestHost& host, Mp4File* file, const Bytes& source, const MovieTrack& from,
                   uint32_t number, size_t* next, Copy* copy) {
    const size_t first = *next;
    const uint32_t description = from.samples[first].description;
    const Mp4NewChunk place{copy->data_offset + copy->written, description, nullptr, 0};
    std::vector<Mp4SampleRun> runs;
    for (; *next < from.samples.size() && *next < first + 7; ++*next) {
        const MovieSample& sample = from.samples[*next];
        if (sample.description != description) break;
        runs.push_back({1, sample.size, sample.duration, sample.composition, sample.sync});
        FF4_TRY(mp4_put(host, file, copy->data_offset + copy->written,
                        source.data() + sample.offset, sample.size, &copy->written));
    }
    return mp4_add_track_chunk(
        copy->session, number,
        {place.offset, description, runs.data(), static_cast<uint32_t>(runs.size())});
}

Mp4Result CopyMovie(TestHost& host, Mp4File* file, const Bytes& source, const MovieBuilder& movie,
                    Mp4Layout layout, Copy* copy) {
    FF4_TRY(mp4_open_write(host, file, kWriteAsNeeded, &copy->session));
    FF4_TRY(mp4_create_movie(copy->session, 0, {}));
    std::vector<uint32_t> numbers(movie.tracks.size());
    for (size_t t = 0; t < movie.tracks.size(); ++t)
        FF4_TRY(AddTrack(copy, movie.tracks[t], &numbers[t]));
    FF4_TRY(mp4_begin_media(copy->session, layout, source.size(), &copy->data_offset));
    std::vector<size_t> next(movie.tracks.size());
    for (bool more = true; more;) {
        more = false;
        for (size_t t = 0; t < movie.tracks.size(); ++t) {
            if (next[t] == movie.tracks[t].samples.size()) continue;
            FF4_TRY(AddChunk(host, file, source, movie.tracks[t], numbers[t], &next[t], copy));
            more = true;
        }
    }
    uint64_t size = 0;
    return mp4_finish_write(copy->session, copy->written, &size);
}

void ExpectTrack(Mp4ReadSession* session, uint32_t number, const MovieTrack& truth,
                 const Bytes& source, const Bytes& copy) {
    ASSERT_EQ(mp4_open_track(session, number), FF4_RET_OK);
    uint32_t count = 0;
    ASSERT_EQ(mp4_get_sample_count(session, number, &count), FF4_RET_OK);
    ASSERT_EQ(count, truth.samples.size());
    for (uint32_t i = 0; i < count; ++i) {
        const MovieSample& sample = truth.samples[i];
        Mp4SampleInfo info{};
        ASSERT_EQ(mp4_get_sample_info(session, number, i + 1, &info), FF4_RET_OK);
        ASSERT_EQ(info.size, sample.size);
        ASSERT_EQ(info.duration, sample.duration);
        ASSERT_EQ(info.compositionOffset, sample.composition);
        ASSERT_EQ(info.isSync, sample.sync ? 1u : 0u);
        ASSERT_EQ(info.descriptionIndex, sample.description);
        ASSERT_EQ(Bytes(&copy[info.offset], &copy[info.offset] + info.size),
                  Bytes(&source[sample.offset], &source[sample.offset] + sample.size));
    }
    Mp4EditList* edits = nullptr;
    ASSERT_EQ(mp4_open_edit_list(session, number, &edits), FF4_RET_OK);
    ASSERT_EQ(edits->count, truth.edits.size());
    const Mp4Edit* edit = edits->head;
    for (size_t i = 0; i < truth.edits.size(); ++i, edit = edit->next) {
        EXPECT_EQ(edit->segment_duration, truth.edits[i].duration);
        EXPECT_EQ(edit->media_time, truth.edits[i].media_time);
    }
    EXPECT_EQ(mp4_close_edit_list(session, edits), FF4_RET_OK);
}

TEST(WriteRoundTrip, EverySampleComesBack) {
    for (uint64_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        MovieBuilder movie = RandomMovie(seed);
        const Bytes source = movie.Build();
        std::erase_if(movie.tracks, [](const MovieTrack& track) {
            return track.handler.value == fourcc("meta");  // read, but never written
        });
        TestHost host;
        Mp4File* file = host.Add({});
        Copy copy;
        const Mp4Layout layout = seed % 2 ? kMovieBeforeMedia : kMovieBehindMedia;
        ASSERT_EQ(CopyMovie(host, file, source, movie, layout, &copy), FF4_RET_OK);
        ASSERT_EQ(mp4_close_write(host, copy.session), FF4_RET_OK);

        const Bytes written = host.Content(file);
        TestHost reader(written);
        Mp4ReadSession* session = nullptr;
        uint32_t flags = 0;
        ASSERT_EQ(mp4_open_read(reader, reader.File(), {0, 50, 0}, &session, &flags), FF4_RET_OK);
        for (size_t t = 0; t < movie.tracks.size(); ++t)
            ExpectTrack(session, static_cast<uint32_t>(t + 1), movie.tracks[t], source, written);
        EXPECT_EQ(mp4_close_read(reader, session), FF4_RET_OK);
    }
}

}  // namespace
}  // namespace tarn
