// Reads of each clip in tests/data/clips what no command shows, and compares it with the facts
// beside it, which an independent reader found.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

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
        for (const Json& track : facts["tracks"]) {
            const uint32_t number = track["number"];
            SCOPED_TRACE(number);
            ASSERT_EQ(mp4_open_track(clip.get(), number), FF4_RET_OK);
            compare_headers(clip.get(), number, track);
            EXPECT_EQ(mp4_close_track(clip.get(), number), FF4_RET_OK);
        }
    }
    EXPECT_EQ(clips, 12);
}

}  // namespace
}  // namespace tarn
