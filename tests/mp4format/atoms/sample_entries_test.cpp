#include "mp4format/atoms/sample_entries.h"

#include <gtest/gtest.h>

#include "mp4format/atoms/sample_entry_copy.h"
#include "support/atoms.h"
#include "support/fault_check.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

const uint32_t kVide = fourcc("vide"), kSoun = fourcc("soun");

// The entries of one table, read and given back with the object.
class Entries {
public:
    Entries(const Bytes& bytes, uint32_t handler, uint32_t count = 100) : m_host(bytes) {
        result = mp4_read_sample_entries(m_host, m_host.File(), {0, bytes.size()}, count, handler,
                                         &m_list);
    }
    ~Entries() { mp4_free_sample_entries(m_host, &m_list); }
    const Mp4SampleEntry& At(uint32_t n) const { return *mp4_sample_entry_at(m_list, n); }
    uint32_t Count() const { return m_list.count; }

    Mp4Result result;

private:
    TestHost m_host;
    Mp4SampleEntryList m_list{};
};

// 64-bit float, channels, mark, bits, and what the rest of a version 2 entry holds.
Bytes Version2(uint64_t rate_bits, uint32_t channels, uint32_t bits) {
    return Join(Be32({72}), Be64({rate_bits}), Be32({channels, 0x7F000000, bits, 0, 0, 1}));
}

TEST(SampleEntries, SoundOfAllVersions) {
    const uint64_t k96000 = 0x40F7700000000000, kNan = 0x7FF8000000000000;
    const Bytes wave = Atom("wave", Atom("frma", Text("mp4a")), Esds(), Atom(uint32_t{0}));
    const std::tuple<const char*, Bytes, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t> cases[] =
        {
            {"plain", Mp4a(), 2, 16, 48000, 48000u << 16, 2},
            {"without descriptors", Twos(1), 1, 16, 48000, 48000u << 16, 0},
            {"version 1, esds in wave",
             AudioEntry({.rate = 44100, .version = 1, .children = Join(Zeros(16), wave)}), 2, 16,
             44100, 44100u << 16, 2},
            {"version 2",
             AudioEntry(
                 {.channels = 3, .version = 2, .children = Join(Version2(k96000, 6, 24), wave)}),
             6, 24, 96000, 0, 2},
            {"version 2 without a number",
             AudioEntry({.version = 2, .children = Version2(kNan, 1u << 20, 1u << 20)}), 65535, 16,
             0, 0, 0},
        };
    for (const auto& [name, coded, channels, bits, rate, rate_fixed, info_size] : cases) {
        SCOPED_TRACE(name);
        const Entries entries(coded, kSoun);
        ASSERT_EQ(entries.result, FF4_RET_OK);
        const Mp4SampleEntry& entry = entries.At(1);
        EXPECT_EQ(entry.kind, kEntryAudio);
        EXPECT_EQ(entry.audio.channel_count, channels);
        EXPECT_EQ(entry.audio.sample_size, bits);
        EXPECT_EQ(entry.audio.sampling_rate, rate);
        EXPECT_EQ(entry.audio.sample_rate, rate_fixed);
        EXPECT_EQ(entry.es.decoder_specific_info.size, info_size);
    }
}

TEST(SampleEntries, KindsFollowHandlerAndChildren) {
    const std::tuple<const char*, uint32_t, Bytes, uint32_t> cases[] = {
        {"picture of another codec", kVide, VisualEntry({.format = "hvc1"}), kEntryUnknown},
        {"no handler of ours", fourcc("text"), PlainEntry("tx3g"), kEntryUnknown},
        {"by code, picture", kHandlerByFormat, Mp4v(), kEntryMpeg4Visual},
        {"by code, metadata", kHandlerByFormat, PlainEntry("LBIN"), kEntryMetadata},
        {"by code, unknown and short", kHandlerByFormat, Atom("mp4a"), kEntryUnknown},
    };
    for (const auto& [name, handler, entry, kind] : cases) {
        SCOPED_TRACE(name);
        const Entries entries(entry, handler);
        ASSERT_EQ(entries.result, FF4_RET_OK);
        EXPECT_EQ(entries.At(1).kind, kind);
    }
}

// One array with a set of three bytes.
Bytes Hvcc() {
    return Atom("hvcC", Join(Bytes{1}, Zeros(21), Bytes{1, 0x20}, Be16({1, 3}), Bytes{1, 2, 3}));
}

TEST(SampleEntries, HevcCountsWhereAllOfItIsThere) {
    const Bytes whole = Hvcc(), cut_pasp = Join(Be32({17}), Text("pasp"), Be32({1, 1}));
    const struct {
        const char* name;
        Bytes children;
        bool whole;
    } cases[] = {
        {"with the zeros that some put after it", Join(whole, Zeros(4)), true},
        {"without a configuration", {}, false},
        {"a cut set", Atom("hvcC", Bytes(whole.begin() + 8, whole.end() - 1)), false},
        {"a cut child", Join(whole, cut_pasp), false},
        {"half a child's head", Join(whole, Be32({16})), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Entries entries(VisualEntry({.format = "hvc1", .children = c.children}), kVide);
        ASSERT_EQ(entries.result, FF4_RET_OK);
        EXPECT_EQ(entries.At(1).visual.config_type, c.whole ? fourcc("hvcC") : 0);
        EXPECT_EQ(entries.At(1).visual.as_read.size > 0, c.whole);
    }
}

TEST(SampleEntries, WhatEndsTheList) {
    const Bytes avcc = Avcc();
    const Bytes cut_avcc = Atom("avcC", Bytes(avcc.begin() + 8, avcc.begin() + 20));
    const Bytes no_sets = Atom("avcC", Bytes{1, 2, 3, 4, 5, 0xE0});
    const Bytes one_set = Atom("avcC", Bytes{1, 2, 3, 4, 5, 0xE1, 0, 1, 9});
    const auto esds = [](const Bytes& rest) {
        return AudioEntry({.children = Atom("esds", rest)});
    };
    const auto es = [&](const Bytes& rest) { return esds(Join(Be32({0}), Descriptor(3, rest))); };
    const Bytes short_config = Join(Zeros(3), Descriptor(4, Zeros(12)));
    const Bytes endless{0, 0, 0, 0, 3, 0x80, 0x80, 0x80, 0x80, 0};
    constexpr Mp4Result kOk = FF4_RET_OK, kBad = FF4_RET_FORMAT;
    const std::tuple<const char*, uint32_t, Bytes, Mp4Result, uint32_t> cases[] = {
        {"as many as the table says", kSoun, Join(Twos(), Twos(), Twos(), Twos()), kOk, 3},
        {"as many as there are", kSoun, Join(Twos(), Twos(), Zeros(7)), kOk, 2},
        {"none", kSoun, {}, kOk, 0},
        {"sound of 27 bytes", kSoun, Join(Twos(), Atom("twos", Zeros(27))), kBad, 1},
        {"picture of 77 bytes", kVide, Atom("avc1", Zeros(77)), kBad, 0},
        {"version 1 cut", kSoun, AudioEntry({.version = 1, .children = Zeros(15)}), kBad, 0},
        {"a size inside its header", kSoun, Join(Twos(), Be32({5, 0, 0})), kBad, 1},
        {"second set past the end", kVide, VisualEntry({.children = cut_avcc}), kBad, 0},
        {"no sets at all", kVide, VisualEntry({.children = no_sets}), kOk, 1},
        {"sequence sets alone", kVide, VisualEntry({.children = one_set}), kOk, 1},
        {"esds of version 1", kSoun, esds(Be32({0x01000000})), kBad, 0},
        {"esds of nothing", kSoun, esds(Be32({0})), kOk, 1},
        {"esds without its head", kSoun, esds(Zeros(3)), kBad, 0},
        {"ES descriptor of 2 bytes", kSoun, es(Zeros(2)), kBad, 0},
        {"URL past the end", kSoun, es(Join(Be16({1}), Bytes{0x40, 200, 'a'})), kBad, 0},
        {"decoder config of 12 bytes", kSoun, es(short_config), kBad, 0},
        {"length without an end", kSoun, esds(endless), kBad, 0},
    };
    for (const auto& [name, handler, bytes, result, read] : cases) {
        SCOPED_TRACE(name);
        const Entries entries(bytes, handler, 3);
        EXPECT_EQ(entries.result, result);
        EXPECT_EQ(entries.Count(), read);
    }
}

// Entries as they are read come out as they were, but for what is ours to say.
TEST(SampleEntries, ComeBackAsTheyWere) {
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
    const Bytes hevc = VisualEntry(
        {.format = "hev1", .children = Join(Atom("clli", Be32({5})), Hvcc(), Be32({0}))});
    const Bytes graphics = Be32({1, 2, 3, 4, 5, 6});
    const Bytes stereo =
        PlainEntry("grap", Join(graphics, Atom("3STP", Bytes{1, 2, 3, 4, 5, 6, 7})));
    const Bytes dds = Uuid("3DDS", Be32({77}));
    const Bytes two = Join(dds, Uuid("LICI", Be32({1})), Avcc({{1, 2, 3}, {}}, {{4}}), Esds());
    const Bytes config = Join(Bytes{0x20, 0x13}, Be24({1}), Be32({2, 3}), Descriptor(5, {}));
    const Bytes fields = Join(Be16({7}), Bytes{0xE5}, Be16({8}), Bytes{2, 'a', 'b'}, Be16({9}),
                              Descriptor(4, config));
    const auto stream = [](const Bytes& a, const Bytes& b = {}) {
        return PlainEntry("mp4s", FullAtom("esds", 0, 0, a, b));
    };
    const struct {
        const char* name;
        FourCC handler;
        Bytes in, out;
    } cases[] = {
        {"the first configuration", "vide", VisualEntry({.children = two}),
         named(VisualEntry({.children = Join(Avcc({{1, 2, 3}, {}}, {{4}}), dds)}))},
        {"all fields, the first of each", "odsm",
         stream(Descriptor(9, {1}),
                Join(Descriptor(3, Join(fields, Descriptor(4, {}))), Descriptor(3, {}))),
         stream(Descriptor(3, Join(fields, Descriptor(6, {2}))))},
        {"avc1", "vide", Avc1(), named(Avc1())},
        {"with shape, colour and 3D", "vide", rich, rich},
        {"avcC with more behind its sets", "vide", high, high},
        {"HEVC, byte for byte", "vide", hevc, hevc},
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
        Mp4SampleEntryList copied{};
        const auto copy = [&](TestHost& host) {
            Mp4SampleEntryList read{};
            Mp4Result result = mp4_read_sample_entries(host, host.File(), {0, c.in.size()}, 1,
                                                       c.handler.value, &read);
            if (result == FF4_RET_OK) result = mp4_copy_sample_entry(host, *read.head, &copied);
            mp4_free_sample_entries(host, &read);
            return result;
        };
        TestHost host(c.in);
        ASSERT_EQ(copy(host), FF4_RET_OK);
        EXPECT_EQ(Written(host, mp4_write_stsd, copied), Stsd({c.out}));
        mp4_free_sample_entries(host, &copied);
        const auto step = [&](TestHost& at) {
            const Mp4Result result = copy(at);
            mp4_free_sample_entries(at, &copied);
            return result;
        };
        ExpectFaultsTold({HostCall::kAlloc, HostCall::kRead, HostCall::kSeek}, c.in, step);
    }
}

TEST(SampleEntries, CodesOfEntriesMadeFromFields) {
    TestHost host;
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

    // What a field has no room for.
    Bytes url(256, 'u');
    Mp4EsDescriptor es{};
    es.has_es = true;
    es.flags = 0x40;
    es.url = {url.data(), 256};
    EXPECT_EQ(DryRun(host, mp4_write_esds, es), FF4_RET_OVERFLOW);
    Mp4ParameterSet set{{url.data(), 65536}, nullptr};
    for (const uint32_t count : {1, 32}) {
        Mp4AvcConfig config{};
        config.sequence_sets = {&set, &set, count};
        EXPECT_EQ(DryRun(host, mp4_write_avcc, config), FF4_RET_OVERFLOW);
        set.data.size = 1;
    }
}

}  // namespace
}  // namespace tarn
