#include "mp4format/atoms/write_atoms.h"

#include <gtest/gtest.h>

#include "mp4format/atoms/sample_entry_copy.h"
#include "mp4format/atoms/write_user_atoms.h"
#include "mp4format/movie/file_index.h"
#include "mp4format/movie/track_ids.h"
#include "mp4format/tables/track_tables.h"
#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

constexpr uint64_t k4G = uint64_t{1} << 32;

// Owns a movie; its host outlives it.
struct Movie {
    explicit Movie(TestHost& at) : host(at) { mp4_init_movie_build(&build); }
    ~Movie() { mp4_free_movie_build(host, &build); }
    TestHost& host;
    Mp4MovieBuild build{};
};

Mp4TrackBuild* AddTrack(Movie& movie, const Mp4NewTrack& track = {.handler_type = fourcc("soun"),
                                                                  .timescale = 1}) {
    Mp4TrackBuild* made = nullptr;
    EXPECT_EQ(mp4_add_track_build(movie.host, track, &movie.build, &made), FF4_RET_OK);
    return made;
}

TEST(WriteAtoms, HeadersOfBothVersions) {
    for (const uint8_t version : {0, 1}) {
        SCOPED_TRACE(version);
        TestHost host;
        Movie movie(host);
        const Mp4WriteOptions options = {kSizeAuto, version ? kVersionAlways1 : kVersionAuto, 1};
        const uint64_t duration = version ? 0x123456789A : 77;
        // What is written is the builder's, and reads back as it was.
        const auto both_ways = [&](auto writer, auto reader, const auto& record,
                                   const Bytes& expected) {
            EXPECT_EQ(Written(host, writer, record, options), expected);
            auto read = std::remove_cvref_t<decltype(record)>{};
            TestHost file(expected);
            ASSERT_EQ(reader(file, file.File(), {8, expected.size() - 8}, &read), FF4_RET_OK);
            read.version_flags &= 0xFFFFFF;
            EXPECT_EQ(Written(host, writer, read, options), expected);
        };
        Mp4MovieHeader mvhd = movie.build.header;
        mvhd.creation_time = 11;
        mvhd.modification_time = 12;
        mvhd.duration = duration;
        mvhd.next_track_id = 3;
        both_ways(
            mp4_write_mvhd, mp4_read_mvhd, mvhd,
            Mvhd({.version = version, .creation = 11, .modification = 12, .duration = duration}));

        Mp4TrackHeader tkhd{};
        tkhd.version_flags = 7;
        tkhd.creation_time = 13;
        tkhd.modification_time = 14;
        tkhd.track_id = 9;
        tkhd.duration = duration;
        tkhd.layer = 1;
        tkhd.alternate_group = 2;
        tkhd.volume = 0x100;
        std::copy_n(mvhd.matrix, 9, tkhd.matrix);
        tkhd.width = 320 << 16;
        tkhd.height = 180 << 16;
        both_ways(mp4_write_tkhd, mp4_read_tkhd, tkhd,
                  Tkhd({.version = version,
                        .creation = 13,
                        .modification = 14,
                        .track_id = 9,
                        .duration = duration,
                        .layer = 1,
                        .alternate_group = 2,
                        .volume = 0x100,
                        .width = 320,
                        .height = 180}));

        both_ways(
            mp4_write_mdhd, mp4_read_mdhd, Mp4MediaHeader{0, 15, 16, 30000, duration, 0xD5C4},
            Mdhd({.version = version, .creation = 15, .modification = 16, .duration = duration}));
    }
}

TEST(WriteAtoms, HandlersHaveNamesAndHeaders) {
    const struct {
        FourCC type;
        const char* name;
        decltype(mp4_write_vmhd)* media_header;
    } cases[] = {
        {"vide", "Video Media Handler", mp4_write_vmhd},
        {"soun", "Sound Media Handler", mp4_write_smhd},
        {"GRAP", "Graphics Media Handler", mp4_write_nmhd},
        {"PKDT", "Packed Data Media Handler", mp4_write_nmhd},
        {"odsm", "ObjectDescriptor Media Handler", mp4_write_nmhd},
        {"BKDT", "Book Media Handler", mp4_write_nmhd},
    };
    TestHost host;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Written(host, mp4_write_hdlr, c.type.value), Hdlr(c.type, c.name));
        Movie movie(host);
        Mp4TrackBuild* made = AddTrack(movie, {.handler_type = c.type.value, .timescale = 1});
        const Mp4MediaHeaderAtom& header = made->media.media_header;
        EXPECT_EQ(Written(host, c.media_header, header), MediaHeader(c.type));
        auto* wrong = c.media_header == mp4_write_nmhd ? mp4_write_smhd : mp4_write_nmhd;
        EXPECT_EQ(DryRun(host, wrong, header), FF4_RET_INTERNAL);
    }
    EXPECT_EQ(DryRun(host, mp4_write_hdlr, fourcc("text")), FF4_RET_INTERNAL);
}

TEST(WriteAtoms, EditListsTakeTheVersionTheyNeed) {
    const struct {
        const char* name;
        uint32_t policy;
        Mp4Edit edit;
        Mp4Result added;
        uint8_t version;
    } cases[] = {
        {"an empty edit fits", kVersionAuto, {9, -1, 1, 0, nullptr}, FF4_RET_OK, 0},
        {"and is not wide under version 0", kVersion0, {9, -1, 1, 0, nullptr}, FF4_RET_OK, 0},
        {"a long duration", kVersionAuto, {k4G, 0, 1, 0, nullptr}, FF4_RET_OK, 1},
        {"a late time", kVersionAuto, {9, 0x80000000, 1, 0, nullptr}, FF4_RET_OK, 1},
        {"a late time that is refused", kVersion0Too, {9, k4G, 1, 0, nullptr}, FF4_RET_STATE, 0},
        {"a duration that is refused", kVersion0, {k4G, 0, 1, 0, nullptr}, FF4_RET_STATE, 0},
        {"always", kVersionAlways1, {9, 5, 1, 0, nullptr}, FF4_RET_OK, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestHost host;
        Movie movie(host);
        Mp4TrackBuild* track = AddTrack(movie);
        const Mp4WriteOptions options = {kSizeAuto, c.policy, kOffsetAuto};
        ASSERT_EQ(mp4_add_edit(host, options, {1, 2, 1, 0, nullptr}, track), FF4_RET_OK);
        EXPECT_EQ(mp4_add_edit(host, options, c.edit, track), c.added);
        std::vector<Edit> edits = {{1, 2}};
        if (c.added == FF4_RET_OK) edits.push_back({c.edit.segment_duration, c.edit.media_time});
        EXPECT_EQ(Written(host, mp4_write_edts, track->edits, options),
                  Atom("edts", Elst(edits, c.version)));
    }
}

// Entries as they are read come out as they were, but for what is ours to say.
TEST(WriteAtoms, SampleEntriesComeBack) {
    // What is written carries the name of the coding.
    const auto named = [](Bytes entry) {
        const Bytes name = Text("\012AVC Coding");
        std::copy(name.begin(), name.end(), entry.begin() + 8 + 42);
        return entry;
    };
    const Bytes sinf = Atom("sinf", Atom("frma", Text("mp4v")), Atom("schm", Be32({1})));
    const Bytes pasp = Atom("pasp", Be32({4, 3})), colr = Atom("colr", Text("nclx"), Be16({1, 1}));
    const Bytes tail = Join(Avcc(), pasp, colr, Uuid("3DDS", Be32({5, 6})));
    const Bytes trailing = Atom("avcC", Bytes{1, 0x64, 0, 31, 0xFF, 0xE0, 0, 0xFD, 0xF8, 0xF8, 0});
    const Bytes rich = named(VisualEntry({.children = tail}));
    const Bytes high = named(VisualEntry({.children = trailing}));
    const Bytes coded = VisualEntry({.format = "encv", .children = Join(Esds(), sinf)});
    const Bytes graphics = Be32({1, 2, 3, 4, 5, 6});
    const Bytes stereo =
        PlainEntry("grap", Join(graphics, Atom("3STP", Bytes{1, 2, 3, 4, 5, 6, 7})));
    const struct {
        const char* name;
        FourCC handler;
        Bytes in, out;
    } cases[] = {
        {"avc1", "vide", Avc1(), named(Avc1())},
        {"with shape, colour and 3D", "vide", rich, rich},
        {"avcC with more behind its sets", "vide", high, high},
        {"mp4v", "vide", Mp4v(), Mp4v()},
        {"protected", "vide", coded, coded},
        {"mp4a, long lengths become short", "soun", Mp4a(4), Mp4a(1)},
        {"twos has no esds", "soun", Twos(), Twos()},
        {"version 1 becomes plain", "soun",
         AudioEntry({.format = "twos", .version = 1, .children = Bytes(16, 7)}),
         AudioEntry({.format = "twos"})},
        {"stream", "odsm", PlainEntry("mp4s", Esds()), PlainEntry("mp4s", Esds())},
        {"bookmark", "BKDT", PlainEntry("bkmk", Be32({0})), PlainEntry("bkmk", Be32({0}))},
        {"packed", "PKDT", PlainEntry("pack", Be32({0})), PlainEntry("pack", Be32({0}))},
        {"metadata", "meta", PlainEntry("encm", sinf), PlainEntry("encm", sinf)},
        {"graphics", "GRAP", PlainEntry("grap", graphics), PlainEntry("grap", graphics)},
        {"stereo graphics", "GRAP", stereo, stereo},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestHost host(c.in);
        Mp4SampleEntryList read{}, copied{};
        ASSERT_EQ(
            mp4_read_sample_entries(host, host.File(), {0, c.in.size()}, 1, c.handler.value, &read),
            FF4_RET_OK);
        ASSERT_EQ(mp4_copy_sample_entry(host, *read.head, &copied), FF4_RET_OK);
        mp4_free_sample_entries(host, &read);
        EXPECT_EQ(Written(host, mp4_write_stsd, copied), Stsd({c.out}));
        mp4_free_sample_entries(host, &copied);
    }
}

TEST(WriteAtoms, EntriesMadeFromFields) {
    TestHost host;
    Bytes set = {0x67, 1, 2}, picture = {0x68, 3};
    Mp4ParameterSet sps{{set.data(), 3}, nullptr}, pps{{picture.data(), 2}, nullptr};
    Mp4AvcConfig config{};
    config.configuration_version = 1;
    config.profile = 0x4D;
    config.profile_compatibility = 0x40;
    config.level = 0x0D;
    config.length_size_minus_one = 3;
    config.sequence_sets = {&sps, &sps, 1};
    config.picture_sets = {&pps, &pps, 1};
    EXPECT_EQ(Written(host, mp4_write_avcc, config), Avcc({set}, {picture}));
    config.sequence_sets.count = 32;
    EXPECT_EQ(DryRun(host, mp4_write_avcc, config), FF4_RET_OVERFLOW);

    Bytes url = Text("there");
    Mp4EsDescriptor es{};
    es.has_es = true;
    es.es_id = 7;
    es.flags = 0xE3;
    es.depends_on_es_id = 8;
    es.ocr_es_id = 9;
    es.url = {url.data(), 5};
    const Bytes es_fields = Join(Be16({7}), Bytes{0xE3}, Be16({8}), Bytes{5}, url, Be16({9}));
    EXPECT_EQ(Written(host, mp4_write_esds, es), FullAtom("esds", 0, 0, Descriptor(3, es_fields)));
    es.url.size = 256;
    EXPECT_EQ(DryRun(host, mp4_write_esds, es), FF4_RET_OVERFLOW);

    Mp4SampleEntry entry{};
    for (const auto& [kind, code] : {std::pair{kEntryMpeg4Visual, "mp4v"},
                                     {kEntryAvc, "avc1"},
                                     {kEntryAudio, "mp4a"},
                                     {kEntryStream, "mp4s"}}) {
        entry.kind = kind;
        const Bytes bytes = Written(host, mp4_write_sample_entry, entry);
        EXPECT_EQ(Bytes(bytes.begin() + 4, bytes.begin() + 8), Text(code));
    }
    entry.kind = kEntryUnknown;
    entry.format = fourcc("hev1");
    EXPECT_EQ(DryRun(host, mp4_write_sample_entry, entry), FF4_RET_INTERNAL);
}

TEST(WriteAtoms, ObjectDescriptors) {
    TestHost host;
    const uint32_t streams[] = {1, 0x10002};
    const Mp4ObjectDescriptor object{1, false, 0xFF, 0xFE, 0xFD, 0xFC, 0xFB, streams, 2};
    const Bytes bytes = Written(host, mp4_write_initial_object_descriptor, object);
    EXPECT_EQ(bytes,
              Descriptor(16, Join(Bytes{0, 0x4F, 0xFF, 0xFE, 0xFD, 0xFC, 0xFB},
                                  Descriptor(14, Be32({1})), Descriptor(14, Be32({0x10002})))));
    Bytes copy = bytes;
    EXPECT_EQ(Written(host, mp4_write_iods, Mp4ByteBlock{copy.data(), uint32_t(copy.size())}),
              FullAtom("iods", 0, 0, bytes));
    EXPECT_EQ(
        Written(host, mp4_write_object_descriptor, object),
        Descriptor(17, Join(Bytes{0, 0x5F}, Descriptor(15, Be16({1})), Descriptor(15, Be16({2})))));
    const uint8_t data[] = {1, 2};
    EXPECT_EQ(Written(host, mp4_write_ipmp_descriptor, Mp4IpmpDescriptor{3, 4, data, 2}),
              Descriptor(11, {3, 0, 4, 1, 2}));
}

TEST(WriteAtoms, ProfilesAndTheirAbsence) {
    TestHost host;
    Mp4ProfileBuild profile{};
    EXPECT_TRUE(Written(host, mp4_write_prof, profile).empty());
    profile.has_file = profile.has_audio = profile.has_video = true;
    profile.file_profile = 0x10000002;
    profile.audio = {2, fourcc("mp4a"), 0x20F, 0, 128, 96, 48000, 2};
    profile.video = {1,        fourcc("avc1"), 0x014D0015, 0,   4000, 3000,
                     0x1DF853, 0x1DF853,       320,        180, 1,    1};
    EXPECT_EQ(Written(host, mp4_write_prof, profile), Prof({Fprf(0x10000002), Aprf(), Vprf()}));
    profile.has_file = profile.has_audio = false;
    EXPECT_EQ(Written(host, mp4_write_prof, profile), Prof({Vprf()}));
}

TEST(WriteAtoms, UserMetadataUpToItsLimits) {
    TestHost host;
    Movie movie(host);
    Bytes data(65526, 'x');
    Mp4MetaItem item{};
    item.type = 3;
    item.flag = 1;
    item.language = 0x15C4;
    item.encoding = 1;
    item.data = {data.data(), 65526};
    EXPECT_EQ(mp4_add_meta_item(host, item, &movie.build.user.texts), FF4_RET_OVERFLOW);
    item.data.size = 65525;
    ASSERT_EQ(mp4_add_meta_item(host, item, &movie.build.user.texts), FF4_RET_OK);
    item.data.size = 0;
    ASSERT_EQ(mp4_add_meta_item(host, item, &movie.build.user.files), FF4_RET_OK);
    data.resize(65525);
    const Bytes texts = Mtdt({{.type = 3, .language = 0x95C4, .encoding = 1, .data = data}});
    const Bytes files = Mtdf({{.type = 3, .language = 0x95C4, .encoding = 1}});
    EXPECT_EQ(Written(host, mp4_write_usmt, movie.build.user), Uuid("USMT", texts, files));
    movie.build.user.texts.count = 65536;
    EXPECT_EQ(mp4_add_meta_item(host, item, &movie.build.user.texts), FF4_RET_OVERFLOW);
}

// A movie of two tracks with everything that can be in one.
Mp4Result MakeMovie(TestHost& host, Mp4MovieBuild* movie) {
    Mp4MovieHeader header{};
    header.timescale = 600;
    header.creation_time = header.modification_time = kTestDate;
    FF4_TRY(mp4_set_movie_fields(kOptions, kFieldTimescale | kFieldCreation | kFieldModification,
                                 header, movie));
    const uint8_t object[] = {0x10, 7, 0x00, 0x4F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    FF4_TRY(mp4_copy_block(host, object, sizeof object, &movie->iods));
    Mp4TrackBuild *video = nullptr, *sound = nullptr;
    FF4_TRY(mp4_add_track_build(host,
                                {.handler_type = fourcc("vide"),
                                 .timescale = 30000,
                                 .visibility = 1,
                                 .language = kLanguageUnd,
                                 .width_integer = 320,
                                 .height_integer = 180},
                                movie, &video));
    FF4_TRY(mp4_add_track_build(host,
                                {.handler_type = fourcc("soun"),
                                 .timescale = 48000,
                                 .track_id = 5,
                                 .visibility = 2,
                                 .language = kLanguageUnd},
                                movie, &sound));
    for (Mp4TrackBuild* track : {video, sound}) {
        track->header.creation_time = track->header.modification_time = kTestDate;
        track->media.header.creation_time = track->media.header.modification_time = kTestDate;
        FF4_TRY(mp4_add_data_ref(host, fourcc("url "), nullptr, nullptr, &track->media.refs));
    }
    FF4_TRY(mp4_add_data_ref(host, fourcc("urn "), "where", "name", &sound->media.refs));
    const uint32_t other = 5;
    FF4_TRY(mp4_add_track_reference(host, fourcc("sync"), &other, 1, video));
    FF4_TRY(mp4_add_edit(host, kOptions, {20, -1, 1, 0, nullptr}, video));
    FF4_TRY(mp4_add_edit(host, kOptions, {600, 1001, 1, 0, nullptr}, video));
    Mp4SampleEntry entry{};
    entry.data_reference_index = 1;
    entry.kind = kEntryMpeg4Visual;
    FF4_TRY(mp4_copy_sample_entry(host, entry, &video->media.tables.entries));
    entry.kind = kEntryAudio;
    FF4_TRY(mp4_copy_sample_entry(host, entry, &sound->media.tables.entries));
    const Mp4SampleRun pictures[] = {{1, 50, 1001, 1001, true}, {2, 20, 1001, 0, false}};
    const Mp4SampleRun frames[] = {{4, 10, 1024, 0, true}};
    FF4_TRY(mp4_add_chunk(host, &video->media.tables, {1000, 1, pictures, 2}));
    FF4_TRY(mp4_add_chunk(host, &sound->media.tables, {1090, 1, frames, 1}));
    FF4_TRY(mp4_add_trex(host, {{}, 5, 1, 1024, 0, 0, nullptr}, movie));
    movie->extends.fragment_duration = 900;
    Mp4MetaItem item{};
    item.type = 10;
    item.language = kLanguageUnd;
    return mp4_add_meta_item(host, item, &movie->user.texts);
}

TEST(WriteAtoms, AWholeMovieByteForByte) {
    TestHost host;
    Movie movie(host);
    ASSERT_EQ(MakeMovie(host, &movie.build), FF4_RET_OK);
    const Bytes visual =
        Atom("mp4v", Bytes(6, 0), Be16({1}), Bytes(66, 0), Be16({24, -1}), FullAtom("esds", 0, 0));
    const Bytes audio = Atom("mp4a", Bytes(6, 0), Be16({1}), Bytes(20, 0));
    const Bytes video_tables =
        Atom("stbl", Stsd({visual}), Stts({{3, 1001}}), Ctts({{1, 1001}, {2, 0}}),
             Stsc({{1, 3, 1}}), Stsz({50, 20, 20}), Stco({1000}), Stss({1}));
    const Bytes sound_tables = Atom("stbl", Stsd({audio}), Stts({{4, 1024}}), Stsc({{1, 4, 1}}),
                                    Stsz({10, 10, 10, 10}), Stco({1090}));
    const Bytes video =
        Atom("trak", Tkhd({.track_id = 1, .duration = 620, .width = 320, .height = 180}),
             Atom("tref", Atom("sync", Be32({5}))), Atom("edts", Elst({{20, -1}, {600, 1001}})),
             Atom("mdia", Mdhd({.duration = 3003}), Hdlr("vide", "Video Media Handler"),
                  Atom("minf", MediaHeader("vide"), Atom("dinf", Dref()), video_tables)));
    // 4096 of 48000 are 51.2 of 600.
    const Bytes sound =
        Atom("trak", Tkhd({.flags = 6, .track_id = 5, .duration = 51, .volume = 0x100}),
             Atom("mdia", Mdhd({.timescale = 48000, .duration = 4096}),
                  Hdlr("soun", "Sound Media Handler"),
                  Atom("minf", MediaHeader("soun"),
                       Atom("dinf", Dref({Url(), Urn("name", "where")})), sound_tables)));
    const Bytes expected =
        Atom("moov", Mvhd({.timescale = 600, .duration = 620, .next_track_id = 6}), Iods(), video,
             sound, Atom("mvex", Mehd(900), Trex({.track_id = 5, .duration = 1024})),
             Uuid("USMT", Mtdt({{.type = 10}})));
    EXPECT_EQ(Written(host, mp4_write_moov, &movie.build), expected);
    EXPECT_EQ(movie.build.atom_size, expected.size());
    EXPECT_EQ(movie.build.tracks.head->atom_size, video.size());
    EXPECT_EQ(movie.build.tracks.tail->media.tables.atom_size, sound_tables.size());
}

TEST(WriteAtoms, EveryFaultIsReportedAndLeaksNothing) {
    const auto step = [](TestHost& host) {
        Movie movie(host);
        FF4_TRY(MakeMovie(host, &movie.build));
        Mp4Sink sink{host, kOptions, host.File(), 0};
        return mp4_write_moov(sink, &movie.build);
    };
    ExpectFaultsTold({HostCall::kWrite, HostCall::kSeek, HostCall::kAlloc}, {}, step, 31);
}

TEST(MovieBuild, TrackIdsAndTheNextOne) {
    const struct {
        const char* name;
        std::vector<uint32_t> given;
        uint32_t picked, next;
    } cases[] = {
        {"the first", {}, 1, 1},
        {"above the highest, not in a hole", {1, 5}, 6, 6},
        {"the last of the low ones", {126}, 127, 127},
        {"over the gap", {127}, 1024, 1024},
        {"high", {1024}, 1025, 1025},
        {"the last", {63486}, 63487, 63487},
        {"the highest used up: a low one", {63487, 1, 2}, 3, 0xFFFFFFFF},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestHost host;
        Movie movie(host);
        Mp4NewTrack fields{.handler_type = fourcc("soun"), .timescale = 1};
        for (const uint32_t id : c.given) {
            fields.track_id = id;
            AddTrack(movie, fields);
        }
        EXPECT_EQ(mp4_next_track_id(movie.build), c.next);
        EXPECT_EQ(AddTrack(movie)->header.track_id, c.picked);
        for (const uint32_t bad : {128u, 1023u, 63488u, c.picked}) {
            fields.track_id = bad;
            Mp4TrackBuild* none = nullptr;
            EXPECT_EQ(mp4_add_track_build(host, fields, &movie.build, &none), FF4_RET_ARGS) << bad;
        }
    }
    // All low ones and the highest are taken: on from 1024.
    TestHost host;
    Movie movie(host);
    Mp4NewTrack highest{.handler_type = fourcc("soun"), .timescale = 1, .track_id = 63487};
    AddTrack(movie, highest);
    for (int i = 0; i < 127; ++i)
        AddTrack(movie);
    EXPECT_EQ(AddTrack(movie)->header.track_id, 1024u);
}

TEST(MovieBuild, FieldsAreTakenByTheMask) {
    TestHost host;
    Movie movie(host);
    Mp4MovieHeader header{};
    header.rate = 0x00025678;
    header.volume = 0x0342;
    header.creation_time = k4G;
    const Mp4WriteOptions narrow = {kSizeAuto, kVersion0Too, kOffsetAuto};
    EXPECT_EQ(mp4_set_movie_fields(narrow, kFieldTimescale, header, &movie.build), FF4_RET_ARGS);
    EXPECT_EQ(
        mp4_set_movie_fields(narrow, kFieldCreation | kFieldRateInteger, header, &movie.build),
        FF4_RET_STATE);
    EXPECT_EQ(movie.build.header.rate, 0x10000u) << "nothing is taken";
    EXPECT_EQ(mp4_set_movie_fields(narrow, kFieldRateFraction | kFieldVolumeInteger, header,
                                   &movie.build),
              FF4_RET_OK);
    EXPECT_EQ(movie.build.header.rate, 0x15678u);
    EXPECT_EQ(movie.build.header.volume, 0x300);
    EXPECT_EQ(movie.build.header.creation_time, 0u);
}

TEST(MovieBuild, VisibilityAndDurationsPast64Bits) {
    const std::pair<int32_t, int64_t> cases[] = {{0, 0}, {-1, 0}, {1, 7},  {8, 7},
                                                 {2, 6}, {6, 6},  {3, -1}, {7, -1}};
    for (const auto& [visibility, expected] : cases) {
        uint32_t flags = 99;
        const Mp4Result result = mp4_track_flags(visibility, &flags);
        EXPECT_EQ(result, expected < 0 ? FF4_RET_ARGS : FF4_RET_OK) << visibility;
        EXPECT_EQ(flags, expected < 0 ? 99 : expected) << visibility;
    }
    TestHost host;
    Movie movie(host);
    Mp4TrackBuild* track = AddTrack(movie);
    track->media.tables.duration = UINT64_MAX / 1000 + 1;
    uint64_t duration = 0;
    EXPECT_EQ(mp4_track_duration(movie.build, *track, &duration), FF4_RET_OVERFLOW);
    EXPECT_EQ(DryRun(host, mp4_write_moov, &movie.build), FF4_RET_OVERFLOW);
}

}  // namespace
}  // namespace tarn
