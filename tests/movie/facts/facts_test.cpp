// Reads each clip in tests/data/clips and compares all that is known of it with the facts beside
// it, which an independent reader found.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "movie/engine/descriptions.h"
#include "movie/engine/meta_lists.h"
#include "movie/engine/samples.h"
#include "movie/engine/tracks.h"
#include "movie/facts/clip_session.h"

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
    for (uint32_t i = 0; i < block.size; ++i) {
        char byte[3];
        std::snprintf(byte, sizeof byte, "%02x", block.data[i]);
        text += byte;
    }
    return text;
}

Json matrix(const uint32_t (&values)[9]) {
    return Json(std::vector<uint32_t>(values, values + 9));
}

// The facts of these names, compared with what was read.
void expect(const Json& facts, std::initializer_list<std::pair<const char*, Json>> read) {
    for (const auto& [name, value] : read)
        EXPECT_EQ(facts.at(name), value) << name;
}

void compare_movie(Mp4ReadSession* session, const Json& facts) {
    Mp4FileType type{};
    ASSERT_EQ(mp4_get_file_type(session, &type), FF4_RET_OK);
    expect(facts["ftyp"], {{"major", code_text(type.major_brand)}, {"minor", type.minor_version}});
    Json brands = Json::array();
    uint32_t brand = 0;
    for (uint32_t n = 1; mp4_get_compatible_brand(session, n, &brand) == FF4_RET_OK; ++n)
        brands.push_back(code_text(brand));
    expect(facts["ftyp"], {{"compatible", brands}});

    Mp4MovieHeaderInfo header{};
    ASSERT_EQ(mp4_get_movie_header(session, &header), FF4_RET_OK);
    const Json& mvhd = facts["mvhd"];
    expect(mvhd, {{"creation", header.creation},
                  {"modification", header.modification},
                  {"timescale", header.timescale},
                  {"duration", header.duration},
                  {"rate", header.rate_integer << 16 | header.rate_fraction},
                  {"volume", header.volume_integer << 8 | header.volume_fraction},
                  {"matrix", matrix(header.matrix)},
                  {"next_track_id", header.next_track_id}});
}

void compare_headers(Mp4ReadSession* session, uint32_t track, const Json& facts) {
    Mp4TrackHeaderInfo header{};
    ASSERT_EQ(mp4_get_track_header(session, track, &header), FF4_RET_OK);
    const Json& tkhd = facts["tkhd"];
    expect(tkhd, {{"version", header.version},
                  {"flags", header.flags},
                  {"track_id", header.track_id},
                  {"duration", header.duration},
                  {"layer", header.layer},
                  {"alternate_group", header.alternate_group},
                  {"volume", header.volume},
                  {"matrix", matrix(header.matrix)},
                  {"width", header.width_integer + header.width_fraction / 65536.0},
                  {"height", header.height_integer + header.height_fraction / 65536.0}});

    Mp4MediaHeaderInfo media{};
    ASSERT_EQ(mp4_get_media_header(session, track, &media), FF4_RET_OK);
    char language[8];
    std::snprintf(language, sizeof language, "0x%04X", media.language);
    expect(facts["mdhd"],
           {{"timescale", media.timescale}, {"duration", media.duration}, {"language", language}});
    Mp4HandlerInfo handler{};
    ASSERT_EQ(mp4_get_handler(session, track, &handler), FF4_RET_OK);
    expect(facts, {{"handler", code_text(handler.type)}});
    EXPECT_EQ(handler.name.size, facts["handler_name"].get<std::string>().size());
}

void compare_edits(Mp4ReadSession* session, uint32_t track, const Json& facts) {
    Mp4EditList* list = nullptr;
    ASSERT_EQ(mp4_open_edit_list(session, track, &list), FF4_RET_OK);
    Json edits = Json::array();
    Mp4EditEntry edit{};
    for (uint32_t n = 1; mp4_get_edit_entry(session, list, n, &edit) == FF4_RET_OK; ++n) {
        edits.push_back(
            {edit.segment_duration, edit.media_time, edit.rate_integer << 16 | edit.rate_fraction});
    }
    EXPECT_EQ(facts["edits"].is_null() ? Json::array() : facts["edits"], edits);
    EXPECT_EQ(mp4_close_edit_list(session, list), FF4_RET_OK);
}

void compare_config(const Mp4SampleEntry& entry, const Json& facts) {
    if (facts.contains("avcC")) {
        const Json& avc = facts["avcC"];
        expect(avc, {{"bytes", hex(entry.avc.bytes)},
                     {"profile", entry.avc.profile},
                     {"level", entry.avc.level},
                     {"length_size", entry.avc.length_size_minus_one + 1}});
        EXPECT_EQ(avc["sps"][0], hex(entry.avc.sequence_sets.head->data));
        EXPECT_EQ(avc["pps"][0], hex(entry.avc.picture_sets.head->data));
    }
    if (facts.contains("esds")) {
        const Json& es = facts["esds"];
        expect(es, {{"bytes", "00000000" + hex(entry.es.bytes)},
                    {"es_id", entry.es.es_id},
                    {"object_type_indication", entry.es.object_type_indication},
                    {"stream_type", entry.es.stream_type},
                    {"max_bitrate", entry.es.max_bitrate},
                    {"avg_bitrate", entry.es.avg_bitrate},
                    {"dsi", hex(entry.es.decoder_specific_info)},
                    {"dsi_offset", entry.es.specific_info_offset}});
    }
}

void compare_entries(Mp4ReadSession* session, uint32_t track, const Json& facts) {
    Mp4SampleEntries* entries = nullptr;
    ASSERT_EQ(mp4_open_sample_entries(session, track, &entries), FF4_RET_OK);
    uint32_t count = 0;
    ASSERT_EQ(mp4_get_sample_entry_count(session, entries, &count), FF4_RET_OK);
    ASSERT_EQ(count, facts["entries"].size());
    for (uint32_t n = 1; n <= count; ++n) {
        const Json& fact = facts["entries"][n - 1];
        const Mp4SampleEntry* entry = nullptr;
        ASSERT_EQ(mp4_get_sample_entry(session, entries, n, &entry), FF4_RET_OK);
        expect(fact, {{"format", code_text(entry->format)},
                      {"kind", entry->kind},
                      {"data_reference_index", entry->data_reference_index}});
        if (facts["handler"] == "vide") {
            expect(fact, {{"width", entry->visual.width},
                          {"height", entry->visual.height},
                          {"hres", entry->visual.horizontal_resolution},
                          {"vres", entry->visual.vertical_resolution},
                          {"frame_count", entry->visual.frame_count},
                          {"compressor_len", entry->visual.compressor_name[0]},
                          {"depth", entry->visual.depth}});
        } else {
            expect(fact, {{"channels", entry->audio.channel_count},
                          {"sample_size", entry->audio.sample_size},
                          {"sample_rate", entry->audio.sampling_rate},
                          {"sample_rate_fixed", entry->audio.sample_rate}});
        }
        compare_config(*entry, fact);
    }
    EXPECT_EQ(mp4_close_sample_entries(session, entries), FF4_RET_OK);
}

void compare_samples(Mp4ReadSession* session, uint32_t track, const Json& facts) {
    uint32_t count = 0, syncs = 0;
    uint64_t bytes = 0, durations = 0, first_presented = UINT64_MAX;
    ASSERT_EQ(mp4_get_total_sample_count(session, track, &count), FF4_RET_OK);
    ASSERT_EQ(count, facts["sample_count"].get<uint32_t>());
    const Json& rows = facts["samples"];
    for (uint32_t n = 1; n <= count; ++n) {
        uint64_t time = 0;
        Mp4SampleInfo s{};
        ASSERT_EQ(mp4_get_numbered_sample(session, track, n, &time, &s), FF4_RET_OK) << n;
        const uint64_t presented = time + static_cast<uint64_t>(int64_t{s.compositionOffset});
        syncs += s.isSync;
        bytes += s.size;
        durations += s.duration;
        first_presented = std::min(first_presented, presented);
        if (n > rows.size()) continue;
        Json row = {n, s.offset, s.size, time, s.duration, presented, s.isSync};
        row.push_back(rows[n - 1][7]);  // the chunk, which no reader needs
        row.push_back(s.descriptionIndex);
        ASSERT_EQ(rows[n - 1], row);
    }
    expect(facts, {{"sync_count", syncs},
                   {"media_bytes", bytes},
                   {"first_presented", first_presented},
                   {"table_duration", durations}});
    uint64_t total = 0;
    EXPECT_EQ(mp4_get_media_bytes(session, track, &total), FF4_RET_OK);
    EXPECT_EQ(total, bytes);
}

void compare_profile(Mp4ReadSession* session, const Json& facts) {
    Mp4ProfileCounts counts{};
    if (facts["profile"].is_null()) {
        EXPECT_EQ(mp4_get_profile_counts(session, &counts), FF4_RET_NOTFOUND);
        return;
    }
    ASSERT_EQ(mp4_get_profile_counts(session, &counts), FF4_RET_OK);
    EXPECT_EQ(counts.fprf + counts.vprf + counts.aprf, facts["profile"]["records"].size());
    for (const Json& record : facts["profile"]["records"]) {
        if (record["type"] == "FPRF") {
            uint32_t value = 1;
            ASSERT_EQ(mp4_get_file_profile(session, &value), FF4_RET_OK);
            expect(record, {{"value", value}});
        } else if (record["type"] == "APRF") {
            Mp4AudioProfile a{};
            ASSERT_EQ(mp4_get_audio_profile(session, &a), FF4_RET_OK);
            expect(record, {{"words", Json::array({a.track_id, a.codec, a.codec_detail,
                                                   a.attributes, a.max_bitrate, a.average_bitrate,
                                                   a.sampling_rate, a.channels})}});
        } else {
            Mp4VideoProfile v{};
            ASSERT_EQ(mp4_get_video_profile(session, &v), FF4_RET_OK);
            expect(record,
                   {{"words", Json::array({v.track_id, v.codec, v.codec_detail, v.attributes,
                                           v.max_bitrate, v.average_bitrate})},
                    {"halves",
                     Json::array({v.max_frame_rate >> 16, v.max_frame_rate & 0xFFFF,
                                  v.average_frame_rate >> 16, v.average_frame_rate & 0xFFFF,
                                  v.width, v.height, v.aspect_horizontal, v.aspect_vertical})}});
        }
    }
}

void compare_texts(Mp4ReadSession* session, uint32_t track, const Json& user) {
    Mp4MetaList* list = nullptr;
    const Mp4Result opened = mp4_open_meta_texts(session, track, &list);
    if (user.is_null()) {
        EXPECT_EQ(opened, FF4_RET_NOTFOUND);
        return;
    }
    ASSERT_EQ(opened, FF4_RET_OK);
    const Json& items = user[0]["items"];
    uint32_t count = 0;
    ASSERT_EQ(mp4_get_meta_count(session, list, &count), FF4_RET_OK);
    ASSERT_EQ(count, items.size());
    for (uint32_t n = 1; n <= count; ++n) {
        Mp4MetaTextEntry entry{};
        ASSERT_EQ(mp4_get_meta_text(session, list, n, &entry), FF4_RET_OK);
        std::vector<uint8_t> data(entry.size + 1);
        ASSERT_EQ(mp4_get_meta_data(session, list, n, entry.size, data.data()), FF4_RET_OK);
        expect(items[n - 1], {{"type", entry.type},
                              {"encoding", entry.encoding},
                              {"data", hex({data.data(), entry.size})}});
    }
    EXPECT_EQ(mp4_close_meta_list(session, list), FF4_RET_OK);
}

class Facts : public testing::TestWithParam<std::string> {};

TEST_P(Facts, EveryOneIsReproduced) {
    const std::string stem = std::string(TARN_TEST_DATA) + "/clips/" + GetParam();
    const Json facts = Json::parse(std::ifstream(stem + ".json"));
    ClipSession clip;
    ASSERT_FALSE(clip.Open(stem + ".mp4"));
    EXPECT_EQ(clip.Size(), facts["size"]);
    compare_movie(clip.get(), facts);
    compare_profile(clip.get(), facts);
    compare_texts(clip.get(), 0, facts["movie_user"]);
    for (const Json& track : facts["tracks"]) {
        const uint32_t number = track["number"];
        SCOPED_TRACE(number);
        ASSERT_EQ(mp4_open_track(clip.get(), number), FF4_RET_OK);
        compare_headers(clip.get(), number, track);
        compare_edits(clip.get(), number, track);
        compare_entries(clip.get(), number, track);
        compare_samples(clip.get(), number, track);
        compare_texts(clip.get(), number, track["user"]);
        EXPECT_EQ(mp4_close_track(clip.get(), number), FF4_RET_OK);
    }
}

std::vector<std::string> clips() {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(TARN_TEST_DATA "/clips"))
        if (file.path().extension() == ".json") names.push_back(file.path().stem());
    std::sort(names.begin(), names.end());
    return names;
}

INSTANTIATE_TEST_SUITE_P(Clips, Facts, testing::ValuesIn(clips()),
                         [](const auto& name) { return name.param; });

}  // namespace
}  // namespace tarn
