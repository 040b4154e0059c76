// Atoms that are lists: data references, edits, metadata, profile records.
#include <gtest/gtest.h>

#include "mp4format/atoms/data_refs.h"
#include "mp4format/atoms/edit_list.h"
#include "mp4format/atoms/meta_items.h"
#include "mp4format/atoms/profile.h"
#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

TEST(DataRefs, TextsAndTheirEnds) {
    constexpr Mp4Result kOk = FF4_RET_OK, kBad = FF4_RET_FORMAT;
    // locations: "-" for none
    const std::tuple<const char*, std::vector<Bytes>, uint32_t, Mp4Result, std::vector<std::string>>
        cases[] = {
            {"same file", {Url()}, 1, kOk, {"-"}},
            {"a location", {Url("file:x")}, 1, kOk, {"file:x"}},
            {"without its closing zero", {FullAtom("url ", 0, 0, Text("abc"))}, 1, kOk, {"abc"}},
            {"an empty location", {FullAtom("url ", 0, 0)}, 1, kOk, {""}},
            {"flags beyond the first bit", {FullAtom("url ", 0, 3, TextZ("a"))}, 1, kOk, {"a"}},
            {"urn with both", {Urn("name", "where")}, 1, kOk, {"where"}},
            {"urn without a name", {Urn("", "where")}, 1, kOk, {"where"}},
            {"urn with a name alone", {FullAtom("urn ", 0, 0, TextZ("n"))}, 1, kOk, {"-"}},
            {"urn of 4 bytes", {FullAtom("urn ", 0, 0)}, 1, kBad, {}},
            {"url of 3 bytes", {Atom("url ", Bytes(3, 0))}, 1, kBad, {}},
            {"url of version 1", {FullAtom("url ", 1, 1)}, 1, kBad, {}},
            {"another kind", {Atom("alis", Bytes(2, 1)), Url("u")}, 9, kOk, {"-", "u"}},
            {"count below the entries", {Url(), Url()}, 1, kOk, {"-"}},
            {"count of zero", {Url()}, 0, kOk, {}},
        };
    for (const auto& [name, entries, count, result, due_locations] : cases) {
        SCOPED_TRACE(name);
        const Bytes bytes = Join(Be32({0, 0}), JoinAll(entries));
        TestHost host(bytes);
        Mp4DataRefs refs{};
        EXPECT_EQ(mp4_read_data_refs(host, host.File(), {8, bytes.size() - 8}, count, &refs),
                  result);
        std::vector<std::string> locations;
        for (const Mp4DataRef* ref = refs.head; ref; ref = ref->next)
            locations.push_back(ref->location ? ref->location : "-");
        EXPECT_EQ(locations, due_locations);
        mp4_free_data_refs(host, &refs);
        EXPECT_EQ(host.LiveBlocks(), 0u);
    }
}

TEST(DataRefs, WhatMayBeAdded) {
    const Bytes named = FullAtom("urn ", 0, 0, TextZ("name"));
    const std::tuple<const char*, FourCC, const char*, const char*, Mp4Result, std::vector<Bytes>>
        cases[] = {
            {"this file", "url ", nullptr, nullptr, FF4_RET_OK, {Url()}},
            {"another", "url ", "there", nullptr, FF4_RET_OK, {Url("there")}},
            {"a name", "urn ", nullptr, "name", FF4_RET_OK, {named}},
            {"a name and a place", "urn ", "where", "name", FF4_RET_OK, {Urn("name", "where")}},
            {"a url with a name", "url ", "there", "name", FF4_RET_ARGS, {}},
            {"a urn without one", "urn ", "there", nullptr, FF4_RET_ARGS, {}},
            {"another type", "alis", nullptr, nullptr, FF4_RET_ARGS, {}},
        };
    for (const auto& [name, type, location, urn, result, entries] : cases) {
        SCOPED_TRACE(name);
        TestHost host;
        Mp4DataRefs refs{};
        EXPECT_EQ(mp4_add_data_ref(host, type.value, location, urn, &refs), result);
        EXPECT_EQ(Written(host, mp4_write_dref, refs), Dref(entries));
        mp4_free_data_refs(host, &refs);
        EXPECT_EQ(host.LiveBlocks(), 0u);
    }
}

constexpr uint64_t k4G = uint64_t{1} << 32;

constexpr size_t kElstHead = 16;  // atom header, version and flags, count

TEST(EditList, BothVersionsAndTruncation) {
    // cut: bytes missing at the end
    const std::tuple<const char*, uint8_t, uint32_t, size_t, size_t> cases[] = {
        {"version 0", 0, 3, 0, 3},
        {"version 1", 1, 3, 0, 3},
        {"a lying count", 0, 1000000, 0, 3},
        {"count below the entries", 0, 2, 0, 2},
        {"a cut entry", 0, 3, 1, 2},
        {"a cut entry of version 1", 1, 3, 19, 2},
        {"no count", 1, 0, 0, 0},
    };
    for (const auto& [name, version, count, cut, due_edits] : cases) {
        SCOPED_TRACE(name);
        const Edit edits[] = {{1000, -1}, {2000, 1024}, {77, 5, 2}};
        const Bytes bytes = Elst({edits[0], edits[1], edits[2]}, version);
        TestHost host(bytes);
        Mp4EditList list{};
        ASSERT_EQ(mp4_read_edits(host, host.File(), {kElstHead, bytes.size() - kElstHead - cut},
                                 count, uint32_t{version} << 24, &list),
                  FF4_RET_OK);
        EXPECT_EQ(list.count, due_edits);
        const Edit* expected = edits;
        for (const Mp4Edit* edit = list.head; edit; edit = edit->next, ++expected) {
            EXPECT_EQ(edit->segment_duration, expected->duration);
            EXPECT_EQ(edit->media_time, expected->media_time);
            EXPECT_EQ(edit->rate_integer, expected->rate);
        }
        EXPECT_LT(host.LargestBlock(), 200u) << "a count allocates nothing";
        mp4_free_edits(host, &list);
    }
    TestHost host;
    Mp4EditList list{};
    const uint8_t entry[20] = {};
    EXPECT_EQ(mp4_decode_edits(host, entry, 20, 1, 2u << 24, &list), FF4_RET_ARGS);
}

TEST(EditList, TakesTheVersionItNeeds) {
    const std::tuple<const char*, uint32_t, Edit, Mp4Result, uint8_t> cases[] = {
        {"an empty edit fits", kVersionAuto, {9, -1}, FF4_RET_OK, 0},
        {"and is not wide under version 0", kVersion0, {9, -1}, FF4_RET_OK, 0},
        {"the longest that fit", kVersionAuto, {UINT32_MAX, INT32_MAX}, FF4_RET_OK, 0},
        {"the earliest time", kVersionAuto, {9, INT32_MIN}, FF4_RET_OK, 0},
        {"an earlier one", kVersionAuto, {9, INT64_C(-0x80000001)}, FF4_RET_OK, 1},
        {"a long duration", kVersionAuto, {k4G, 0}, FF4_RET_OK, 1},
        {"a late time", kVersionAuto, {9, 0x80000000}, FF4_RET_OK, 1},
        {"a late time that is refused", kVersion0Too, {9, k4G}, FF4_RET_STATE, 0},
        {"a duration that is refused", kVersion0, {k4G, 0}, FF4_RET_STATE, 0},
        {"always", kVersionAlways1, {9, 5}, FF4_RET_OK, 1},
    };
    for (const auto& [name, policy, edit, added, version] : cases) {
        SCOPED_TRACE(name);
        TestHost host;
        Mp4EditList list{};
        const Mp4WriteOptions options = {kSizeAuto, policy, kOffsetAuto};
        const auto add = [&](const Edit& e) {
            return mp4_add_edit(host, options, {e.duration, e.media_time, 1, 0, nullptr}, &list);
        };
        std::vector<Edit> edits = {{1, 2}};
        ASSERT_EQ(add(edits[0]), FF4_RET_OK);
        EXPECT_EQ(add(edit), added);
        if (added == FF4_RET_OK) edits.push_back(edit);
        EXPECT_EQ(Written(host, mp4_write_edts, list, options), Atom("edts", Elst(edits, version)));
        mp4_free_edits(host, &list);
    }
}

// Reads the one list atom in the bytes and its items; the caller frees.
Mp4Result ReadItems(TestHost& host, uint64_t size, uint64_t limit, Mp4MetaList* items) {
    Mp4UserAtomList list{};
    Mp4Result result = mp4_read_user_atoms(host, host.File(), {0, size}, 1, &list);
    if (result == FF4_RET_OK)
        result = mp4_read_meta_items(host, host.File(), *list.head, limit, items);
    mp4_free_user_atoms(host, &list);
    return result;
}

const Bytes kTexts = Mtdt({{.type = 1, .language = 0x95C4, .encoding = 1, .data = TextZ("title")},
                           {.type = 10, .language = 0x15C7, .data = Be32({5, 0})},
                           {.type = 10, .encoding = 1, .data = Be32({6, 0})},
                           {.type = 10, .data = Be32({1, 7})},
                           {.type = 3}});

TEST(MetaItems, TextsLoadUpToTheLimit) {
    TestHost host(kTexts);
    Mp4MetaList items{};
    ASSERT_EQ(ReadItems(host, kTexts.size(), 6, &items), FF4_RET_OK);
    ASSERT_EQ(items.count, 5u);

    const Mp4MetaItem& title = *mp4_meta_item_at(items, 1);
    EXPECT_EQ(title.flag, 1);
    EXPECT_EQ(title.language, 0x15C4);
    EXPECT_EQ(title.encoding, 1);
    EXPECT_TRUE(title.loaded);
    uint32_t index = 0;
    const Mp4MetaItem* role = nullptr;
    ASSERT_EQ(mp4_find_meta_item(items, &index, &role), FF4_RET_OK);
    EXPECT_EQ(index, 4u);
    EXPECT_FALSE(role->loaded) << "8 bytes are above the limit";
    EXPECT_EQ(role->data.data, nullptr);

    for (const auto& [item, bytes] : {std::pair{&title, TextZ("title")}, {role, Be32({1, 7})}}) {
        Bytes out(bytes.size());
        EXPECT_EQ(mp4_get_meta_payload(host, host.File(), *item, out.size() - 1, out.data()),
                  FF4_RET_ARGS);
        EXPECT_EQ(mp4_get_meta_payload(host, host.File(), *item, out.size(), out.data()),
                  FF4_RET_OK);
        EXPECT_EQ(out, bytes);
    }
    EXPECT_TRUE(mp4_meta_item_at(items, 5)->loaded);
    EXPECT_EQ(mp4_meta_item_at(items, 6), nullptr);
    mp4_free_meta_items(host, &items);
}

TEST(MetaItems, WhatEndsTheList) {
    const Bytes item = SmallAtom(1, Be16({0, 0})), three = SmallAtom(1, Bytes(3, 0));
    const Bytes past = Join(Be16({99}), Be32({1}), Be16({1, 2}), Bytes{8});
    constexpr Mp4Result kOk = FF4_RET_OK, kBad = FF4_RET_FORMAT;
    const std::tuple<const char*, Bytes, Mp4Result, uint32_t> cases[] = {
        {"the count", Atom("MTDT", Be16({1}), item, item), kOk, 1},
        {"fewer bytes than a header", Atom("MTDT", Be16({-1}), item, Bytes(5, 0)), kOk, 1},
        {"an item of 3 bytes", Atom("MTDF", Be16({2}), item, three), kBad, 1},
        {"an item of size 0", Atom("MTDT", Be16({2}), item, Bytes(10, 0)), kBad, 1},
        {"a count of 1 byte", Atom("MTDT", Bytes{1}), kBad, 0},
        {"no counted list", Atom("MTSM", Be16({1})), FF4_RET_ARGS, 0},
        {"an item past the end is cut", Atom("MTDT", Be16({2}), past), kOk, 1},
    };
    for (const auto& [name, bytes, result, read] : cases) {
        SCOPED_TRACE(name);
        TestHost host(bytes);
        Mp4MetaList items{};
        EXPECT_EQ(ReadItems(host, bytes.size(), 0, &items), result);
        EXPECT_EQ(items.count, read);
        uint32_t index = 0;
        const Mp4MetaItem* role = nullptr;
        EXPECT_EQ(mp4_find_meta_item(items, &index, &role), FF4_RET_NOTFOUND);
        mp4_free_meta_items(host, &items);
    }
}

TEST(MetaItems, WrittenUpToItsLimits) {
    TestHost host;
    Mp4UserBuild user{};
    Bytes data(65526, 'x');
    Mp4MetaItem item{3, 1, 0x15C4, 1, {}, true, {data.data(), 65526}, nullptr};
    EXPECT_EQ(mp4_add_meta_item(host, item, &user.texts), FF4_RET_OVERFLOW);
    item.data.size = 65525;
    ASSERT_EQ(mp4_add_meta_item(host, item, &user.texts), FF4_RET_OK);
    item.data.size = 4;
    ASSERT_EQ(mp4_add_meta_item(host, item, &user.files), FF4_RET_OK);
    data.resize(65525);
    const Bytes texts = Mtdt({{.type = 3, .language = 0x95C4, .encoding = 1, .data = data}});
    const Bytes files =
        Mtdf({{.type = 3, .language = 0x95C4, .encoding = 1, .data = Text("xxxx")}});
    EXPECT_EQ(Written(host, mp4_write_usmt, user), Uuid("USMT", texts, files));
    user.texts.count = 65535;
    EXPECT_EQ(mp4_add_meta_item(host, item, &user.texts), FF4_RET_OVERFLOW);
    mp4_free_user_build(host, &user);
    EXPECT_TRUE(Written(host, mp4_write_usmt, user).empty());

    TestHost reader(files);
    Mp4MetaList items{};
    ASSERT_EQ(ReadItems(reader, files.size(), 0, &items), FF4_RET_OK);
    EXPECT_TRUE(items.head->loaded) << "file records always are";
    EXPECT_EQ(items.head->language, 0x15C4);
    mp4_free_meta_items(reader, &items);
}

// The records as the top-level list has them; the host gives them back.
class Records {
public:
    explicit Records(const Bytes& bytes) : host(Join(Bytes(8, 0), bytes)) {
        list.atom = {8, bytes.size()};
        EXPECT_EQ(mp4_read_user_atoms(host, host.File(), list.atom, kNoAtomLimit, &list),
                  FF4_RET_OK);
    }
    ~Records() { mp4_free_user_atoms(host, &list); }

    TestHost host;
    Mp4UserAtomList list{};
};

TEST(Profile, RecordsThatCannotBeRead) {
    const auto records = [](uint8_t version, size_t file, size_t video, size_t audio) {
        const auto record = [&](FourCC type, size_t size) {
            Bytes payload(size, 0);
            payload[0] = version;
            return Atom(type, payload);
        };
        return Join(record("FPRF", file), record("VPRF", video), record("APRF", audio));
    };
    const std::tuple<const char*, Bytes, Mp4Result, Mp4Result, Mp4Result> cases[] = {
        {"none", {}, FF4_RET_NOTFOUND, FF4_RET_NOTFOUND, FF4_RET_NOTFOUND},
        {"a byte short", records(0, 11, 43, 35), FF4_RET_FORMAT, FF4_RET_FORMAT, FF4_RET_FORMAT},
        {"of a version", records(1, 12, 44, 36), FF4_RET_FORMAT, FF4_RET_OK, FF4_RET_OK},
    };
    for (const auto& [name, bytes, due_file, due_video, due_audio] : cases) {
        SCOPED_TRACE(name);
        Records read(bytes);
        uint32_t file = 0;
        Mp4VideoProfile video{};
        Mp4AudioProfile audio{};
        TestHost& host = read.host;
        EXPECT_EQ(mp4_read_file_profile(host, host.File(), read.list, &file), due_file);
        EXPECT_EQ(mp4_read_video_profile(host, host.File(), read.list, &video), due_video);
        EXPECT_EQ(mp4_read_audio_profile(host, host.File(), read.list, &audio), due_audio);
    }
}

TEST(Profile, BothWaysWhereThereAreAny) {
    Records records(Join(Fprf(0x10000002), Aprf(), Vprf(), Aprf(3), Atom("BPRF"), Atom("XPRF")));
    Mp4ProfileCounts c{};
    EXPECT_EQ(mp4_count_profiles({}, &c), FF4_RET_NOTFOUND);
    ASSERT_EQ(mp4_count_profiles(records.list, &c), FF4_RET_OK);
    EXPECT_EQ((std::vector{c.fprf, c.vprf, c.aprf, c.bprf, c.pprf}),
              (std::vector<uint32_t>{1, 1, 2, 1, 0}));
    TestHost& host = records.host;
    Mp4File* file = host.File();
    Mp4ProfileBuild profile{};
    EXPECT_TRUE(Written(host, mp4_write_prof, profile).empty());
    ASSERT_EQ(mp4_read_file_profile(host, file, records.list, &profile.file_profile), FF4_RET_OK);
    ASSERT_EQ(mp4_read_audio_profile(host, file, records.list, &profile.audio), FF4_RET_OK);
    ASSERT_EQ(mp4_read_video_profile(host, file, records.list, &profile.video), FF4_RET_OK);
    EXPECT_EQ(profile.video.average_bitrate, 3000u);
    EXPECT_EQ(profile.video.height, 180);
    EXPECT_EQ(profile.audio.max_bitrate, 128u);
    EXPECT_EQ(profile.audio.channels, 2u);
    profile.has_file = profile.has_audio = profile.has_video = true;
    EXPECT_EQ(Written(host, mp4_write_prof, profile), Prof({Fprf(0x10000002), Aprf(), Vprf()}));
    profile.has_file = profile.has_audio = false;
    EXPECT_EQ(Written(host, mp4_write_prof, profile), Prof({Vprf()}));
}

}  // namespace
}  // namespace tarn
