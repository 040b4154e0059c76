// info_command.cpp - `tarn info FILE…`: what a clip is.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>

#include "base/reason.h"
#include "base/xp_path.h"
#include "cli/commands.h"
#include "cli/json_stream.h"
#include "cli/report.h"
#include "movie/facts/clip_info.h"
#include "movie/facts/movie_text.h"
#include "mp4format/time_math.h"

namespace tarn {
namespace {

using Json = nlohmann::ordered_json;

std::string date_text(const Mp4Date& date) {
    char text[48];
    std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02uZ", date.year, date.month,
                  date.day, date.hour, date.minute, date.second);
    return text;
}

// 16.16 as a number
double fixed(uint32_t value) {
    return value / 65536.0;
}

// --- JSON

void print_json(JsonStream& out, const std::vector<MovieEdit>& edits) {
    out.Open('[');
    for (const MovieEdit& edit : edits) {
        out.Value({{"segment_duration", edit.segmentDuration},
                   {"media_time", edit.mediaTime},
                   {"rate", fixed(edit.rate)}});
    }
    out.Close();
}

// `own` is what only a track of that kind has.
void print_json(JsonStream& out, const ClipTrackInfo& track, const Json& own) {
    out.Open('{');
    out.Key("codec").Text(CodeText(track.codec));
    out.Members(own);
    out.Members({{"bit_rate", track.bitRate},
                 {"samples", track.samples},
                 {"timescale", track.timescale},
                 {"duration", track.duration}});
    out.Key("edits");
    print_json(out, track.edits);
    if (track.missing > 0) out.Members({{"missing_samples", track.missing}});
    out.Close();
}

void print_tracks_json(JsonStream& out, const ClipInfo& info) {
    out.Key("video");
    if (const auto& v = info.video) {
        print_json(out, *v,
                   {{"width", v->width}, {"height", v->height}, {"frame_rate", v->frameRate}});
    } else {
        out.Value(nullptr);
    }
    out.Key("audio");
    if (const auto& a = info.audio) {
        print_json(out, *a,
                   {{"channels", a->channels}, {"sample_rate", a->sampleRate}, {"bits", a->bits}});
    } else {
        out.Value(nullptr);
    }
}

Json profile_json(const ClipInfo& info) {
    if (!info.hasProfile) return nullptr;
    Json video = Json::array(), audio = Json::array();
    if (const auto& v = info.videoProfile) {
        video.push_back({{"track_id", v->track_id},
                         {"codec", CodeText(v->codec)},
                         {"codec_detail", v->codec_detail},
                         {"attributes", v->attributes},
                         {"max_bit_rate", v->max_bitrate},
                         {"average_bit_rate", v->average_bitrate},
                         {"max_frame_rate", fixed(v->max_frame_rate)},
                         {"average_frame_rate", fixed(v->average_frame_rate)},
                         {"width", v->width},
                         {"height", v->height},
                         {"aspect_horizontal", v->aspect_horizontal},
                         {"aspect_vertical", v->aspect_vertical}});
    }
    if (const auto& a = info.audioProfile) {
        audio.push_back({{"track_id", a->track_id},
                         {"codec", CodeText(a->codec)},
                         {"codec_detail", a->codec_detail},
                         {"attributes", a->attributes},
                         {"max_bit_rate", a->max_bitrate},
                         {"average_bit_rate", a->average_bitrate},
                         {"sample_rate", a->sampling_rate},
                         {"channels", a->channels}});
    }
    return {{"file", info.fileProfile}, {"video", video}, {"audio", audio}};
}

void print_metadata_json(JsonStream& out, const ClipInfo& info) {
    out.Key("metadata").Open('[');
    for (const CMetaDataInfo& item : info.metadata) {
        Json json = {{"type", item.type},
                     {"language", LanguageText(item.language)},
                     {"encoding", item.encoding},
                     {"size", item.data.size()}};
        if (const auto text = MetaText(item)) json["text"] = *text;
        out.Value(json);
    }
    out.Close();
}

void print_json(JsonStream& out, const std::string& path, const ClipInfo& info) {
    out.Open('{');
    out.Members({{"path", path},
                 {"size", info.size},
                 {"brand", CodeText(info.brand)},
                 {"minor", info.minor}});
    out.Key("compatible").Open('[');
    for (const uint32_t brand : info.compatible)
        out.Text(CodeText(brand));
    out.Close();
    out.Key("duration_ms").Number(info.durationMs);
    out.Key("created").Value(info.created.year != 0 ? Json(date_text(info.created))
                                                    : Json(nullptr));
    print_tracks_json(out, info);
    out.Key("profile").Value(profile_json(info));
    print_metadata_json(out, info);
    out.Key("fragmented").Value(info.fragmented);
    out.Close();
}

// --- text

std::string codec_text(uint32_t code) {
    const std::string name = CodecName(code);
    return name.empty() ? CodeText(code) : name + " (" + CodeText(code) + ")";
}

void print_edits(const std::vector<MovieEdit>& edits) {
    for (const MovieEdit& edit : edits) {
        std::cout << "  edit      " << edit.segmentDuration << " movie units from media time "
                  << edit.mediaTime << '\n';
    }
}

void print_length(const ClipTrackInfo& track) {
    const uint64_t ms = mp4_mul_div_or(track.duration, 1000, track.timescale, 0);
    std::cout << "  length    " << TimeText(ms) << ", " << track.samples << " samples, "
              << track.bitRate / 1000 << " kbit/s\n";
}

void print_tracks(const ClipInfo& info) {
    if (const auto& v = info.video) {
        std::cout << "picture     " << codec_text(v->codec) << ", " << v->width << " x "
                  << v->height << ", " << std::setprecision(5) << v->frameRate << " frames/s\n";
        print_length(*v);
        print_edits(v->edits);
    }
    if (const auto& a = info.audio) {
        std::cout << "sound       " << codec_text(a->codec) << ", " << a->channels << " channel"
                  << (a->channels == 1 ? "" : "s") << ", " << a->sampleRate << " Hz, " << a->bits
                  << " bits\n";
        print_length(*a);
        print_edits(a->edits);
    }
}

void print_profile(const ClipInfo& info) {
    if (!info.hasProfile) return;
    std::cout << "profile     file " << info.fileProfile;
    if (const auto& v = info.videoProfile) {
        std::cout << "; picture " << CodeText(v->codec) << ' ' << v->width << " x " << v->height
                  << ", " << v->average_bitrate << " kbit/s";
    }
    if (const auto& a = info.audioProfile) {
        std::cout << "; sound " << CodeText(a->codec) << ' ' << a->sampling_rate << " Hz, "
                  << a->average_bitrate << " kbit/s";
    }
    std::cout << '\n';
}

void print_info(const std::string& path, const ClipInfo& info) {
    std::cout << XpPath::Printable(path) << "\nsize        " << info.size << " bytes\nbrand       "
              << CodeText(info.brand) << " (";
    for (size_t i = 0; i < info.compatible.size(); ++i)
        std::cout << (i ? ", " : "") << CodeText(info.compatible[i]);
    std::cout << ")\nlength      " << TimeText(info.durationMs) << '\n';
    if (info.created.year != 0) std::cout << "created     " << date_text(info.created) << '\n';
    print_tracks(info);
    print_profile(info);
    for (const CMetaDataInfo& item : info.metadata) {
        const auto text = MetaText(item);
        std::cout << "text        " << LanguageText(item.language) << ": "
                  << (text ? XpPath::Printable(*text) : std::to_string(item.data.size()) + " bytes")
                  << '\n';
    }
    if (info.missing) std::cout << "damage      " << ReasonText(info.missing) << '\n';
    if (info.fragmented) std::cout << "fragmented  yes\n";
}

// `json` is null for text.
int show_one(const std::string& path, JsonStream* json) {
    ClipInfo info;
    if (const Reason reason = ReadClipInfo(path, &info)) {
        if (json) json->Value({{"path", path}, {"error", ReasonJson(reason)}});
        return Fail(reason);
    }
    if (json) {
        print_json(*json, path, info);
    } else {
        print_info(path, info);
    }
    return kExitDone;
}

int run_info(const std::vector<std::string>& paths, bool json) {
    std::optional<JsonStream> out;
    if (json) out.emplace();
    // One file gives its own document, several a list in their order.
    const bool list = json && paths.size() > 1;
    if (list) out->Open('[');
    int status = kExitDone;
    for (const std::string& path : paths) {
        const int one = show_one(path, json ? &*out : nullptr);
        if (one != kExitDone) status = one;
    }
    if (list) out->Close();
    return status;
}

}  // namespace

void AddInfoCommand(CLI::App& app, int* status) {
    struct Options {
        std::vector<std::string> paths;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("info", "Show what a clip is");
    command->add_option("FILE", options->paths, "Movie files")->required();
    command->add_flag("--json", options->json,
                      "Print one JSON document: an object, or a list for several files");
    command->callback([options, status] { *status = run_info(options->paths, options->json); });
}

}  // namespace tarn
