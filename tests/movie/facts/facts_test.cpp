// Reads of each clip in tests/data/clips what no command shows, and compares it with the facts
// beside it, which an independent reader found.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "movie/engine/descriptions.h"
#include "movie/engine/meta_lists.h"
#include "movie/engine/tracks.h"
#include "movie/facts/clip_session.h"
#include "movie/facts/movie_text.h"

namespace tarn {
namespace {

using Json = nlohmann::json;

std::string code_text(uint32_t code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += static_cast<char>(code >> shift & 0xFF);
    return text;
}

std::string hex(const Mp4ByteBlock& block) {
    std::string text;
    for (uint32_t i = 0; i < block.size; ++i)
        for (const int shift : {4, 0})
            text += "0123456789abcdef"[block.data[i] >> shift & 0xF];
    return text;
}

// The facts of these names, compared with what was read, in the same order.
void expect(const Json& facts, const std::string& names, const std::vector<Json>& read) {
    std::istringstream in(names);
    for (const Json& value : read) {
        std::string name;
        in >> name;
        EXPECT_EQ(facts.at(name), value) << name;
    }
    EXPECT_TRUE(in.eof());
}

// The answer to one question.
template <class Answer>
Answer ask(auto question, auto... about) {
    Answer answer{};
    EXPECT_EQ(question(about..., &answer), FF4_RET_OK);
    return answer;
}

void compare_movie(Mp4ReadSession* session, const Json& facts) {
    const auto h = ask<Mp4MovieHeaderInfo>(mp4_get_movie_header, session);
    expect(facts, "creation modification timescale duration rate volume matrix next_track_id",
           {h.creation, h.modification, h.timescale, h.duration,
            h.rate_integer << 16 | h.rate_fraction, h.volume_integer << 8 | h.volume_fraction,
            h.matrix, h.next_track_id});
}

void compare_headers(Mp4ReadSession* session, uint32_t track, const Json& facts) {
    const auto h = ask<Mp4TrackHeaderInfo>(mp4_get_track_header, session, track);
    expect(facts["tkhd"],
           "version flags track_id duration layer alternate_group volume matrix width height",
           {h.version, h.flags, h.track_id, h.duration, h.layer, h.alternate_group, h.volume,
            h.matrix, h.width_integer + h.width_fraction / 65536.0,
            h.height_integer + h.height_fraction / 65536.0});
    const auto media = ask<Mp4MediaHeaderInfo>(mp4_get_media_header, session, track);
    expect(facts["mdhd"], "timescale duration lang",
           {media.timescale, media.duration, LanguageText(media.language)});
    const auto handler = ask<Mp4HandlerInfo>(mp4_get_handler, session, track);
    EXPECT_EQ(facts["handler"], code_text(handler.type));
    EXPECT_EQ(handler.name.size, facts["handler_name"].get<std::string>().size());
}

void compare_entry(const Mp4SampleEntry& entry, const Json& facts, bool video) {
    expect(facts, "format kind data_reference_index",
           {code_text(entry.format), entry.kind, entry.data_reference_index});
    if (video) {
        const auto& v = entry.visual;
        expect(facts, "width height hres vres frame_count compressor_len depth",
               {v.width, v.height, v.horizontal_resolution, v.vertical_resolution, v.frame_count,
                v.compressor_name[0], v.depth});
    } else {
        const auto& a = entry.audio;
        expect(facts, "channels sample_size sample_rate sample_rate_fixed",
               {a.channel_count, a.sample_size, a.sampling_rate, a.sample_rate});
    }
    if (facts.contains("avcC")) {
        const auto& avc = entry.avc;
        expect(facts["avcC"], "bytes profile level length_size sps pps",
               {hex(avc.bytes), avc.profile, avc.level, avc.length_size_minus_one + 1,
                Json::array({hex(avc.sequence_sets.head->data)}),
                Json::array({hex(avc.picture_sets.head->data)})});
    }
    if (facts.contains("esds")) {
        const auto& es = entry.es;
        expect(facts["esds"],
               "bytes es_id object_type_indication stream_type max_bitrate avg_bitrate dsi "
               "dsi_offset",
               {"00000000" + hex(es.bytes), es.es_id, es.object_type_indication, es.stream_type,
                es.max_bitrate, es.avg_bitrate, hex(es.decoder_specific_info),
                es.specific_info_offset});
    }
}

void compare_entries(Mp4ReadSession* session, uint32_t track, const Json& facts) {
    auto* entries = ask<Mp4SampleEntries*>(mp4_open_sample_entries, session, track);
    ASSERT_EQ(ask<uint32_t>(mp4_get_sample_entry_count, session, entries), facts["entries"].size());
    uint32_t n = 0;
    for (const Json& entry : facts["entries"])
        compare_entry(*ask<const Mp4SampleEntry*>(mp4_get_sample_entry, session, entries, ++n),
                      entry, facts["handler"] == "vide");
    EXPECT_EQ(mp4_close_sample_entries(session, entries), FF4_RET_OK);
}

void compare_texts(Mp4ReadSession* session, uint32_t track, const Json& user) {
    Mp4MetaList* list = nullptr;
    const Mp4Result opened = mp4_open_meta_texts(session, track, &list);
    ASSERT_EQ(opened, user.is_null() ? FF4_RET_NOTFOUND : FF4_RET_OK);
    if (user.is_null()) return;
    const Json& items = user[0]["items"];
    ASSERT_EQ(list->count, items.size());
    uint32_t n = 0;
    for (const Json& item : items) {
        const auto entry = ask<Mp4MetaTextEntry>(mp4_get_meta_text, session, list, ++n);
        std::vector<uint8_t> data(entry.size + 1);
        ASSERT_EQ(mp4_get_meta_data(session, list, n, entry.size, data.data()), FF4_RET_OK);
        expect(item, "type encoding data",
               {entry.type, entry.encoding, hex({data.data(), entry.size})});
    }
    EXPECT_EQ(mp4_close_meta_list(session, list), FF4_RET_OK);
}

TEST(Facts, AreReproduced) {
    int clips = 0;
    for (const auto& file : std::filesystem::directory_iterator(TARN_TEST_DATA "/clips")) {
        if (file.path().extension() != ".json") continue;
        SCOPED_TRACE(file.path());
        ++clips;
        const Json facts = Json::parse(std::ifstream(file.path()));
        ClipSession clip;
        ASSERT_FALSE(clip.Open(std::filesystem::path(file.path()).replace_extension(".mp4")));
        compare_movie(clip.get(), facts["mvhd"]);
        compare_texts(clip.get(), 0, facts["movie_user"]);
        for (const Json& track : facts["tracks"]) {
            const uint32_t number = track["number"];
            SCOPED_TRACE(number);
            ASSERT_EQ(mp4_open_track(clip.get(), number), FF4_RET_OK);
            compare_headers(clip.get(), number, track);
            compare_entries(clip.get(), number, track);
            compare_texts(clip.get(), number, track["user"]);
            EXPECT_EQ(mp4_close_track(clip.get(), number), FF4_RET_OK);
        }
    }
    EXPECT_EQ(clips, 12);
}

}  // namespace
}  // namespace tarn
