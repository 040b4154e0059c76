#include "mp4format/atoms/data_refs.h"

#include <gtest/gtest.h>

#include <tuple>

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

}  // namespace
}  // namespace tarn
