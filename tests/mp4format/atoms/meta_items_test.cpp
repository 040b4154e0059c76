#include "mp4format/atoms/meta_items.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

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

}  // namespace
}  // namespace tarn
