#include "mp4format/atoms/sample_entries.h"

#include <gtest/gtest.h>

#include <string>

#include "mp4format/atoms/sample_entry_copy.h"
#include "support/atoms.h"
#include "support/fault_check.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

const uint32_t kVide = fourcc("vide"), kSoun = fourcc("soun"), kGrap = fourcc("GRAP");

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

Bytes ToBytes(const Mp4ByteBlock& block) {
    return {block.data, block.data + block.size};
}

Bytes Zeros(size_t n) {
    return Bytes(n, 0);
}

// 64-bit float, channels, mark, bits, and what the rest of a version 2 entry holds.
Bytes Version2(uint64_t rate_bits, uint32_t channels, uint32_t bits) {
    return Join(Be32({72}), Be64({rate_bits}), Be32({channels, 0x7F000000, bits, 0, 0, 1}));
}

TEST(SampleEntries, AvcEntry) {
    const Bytes avcc = Avcc({{1, 2, 3}, {}}, {{4}});
    const Bytes dds = Be32({77});
    const Entries entries(
        VisualEntry({.children = Join(Uuid("3DDS", dds), Uuid("LICI", dds), avcc, Esds(),
                                      Atom("btrt", Zeros(12)), Atom("colr", Zeros(3)))}),
        kVide);
    ASSERT_EQ(entries.result, FF4_RET_OK);
    ASSERT_EQ(entries.Count(), 1u);
    const Mp4SampleEntry& entry = entries.At(1);
    EXPECT_EQ(ToBytes(entry.visual.extra), dds);
    ASSERT_EQ(entry.avc.sequence_sets.count, 2u);
    EXPECT_EQ(ToBytes(mp4_parameter_set_at(entry.avc.sequence_sets, 1)->data), (Bytes{1, 2, 3}));
    EXPECT_EQ(mp4_parameter_set_at(entry.avc.sequence_sets, 2)->data.size, 0u);
    EXPECT_EQ(ToBytes(mp4_parameter_set_at(entry.avc.picture_sets, 1)->data), Bytes{4});
    EXPECT_EQ(mp4_parameter_set_at(entry.avc.picture_sets, 2), nullptr);
    EXPECT_EQ(entry.es.bytes.size, 0u) << "the second configuration counts for nothing";
}

TEST(SampleEntries, EsDescriptorInItsForms) {
    const Bytes config = Join(Bytes{0x20, 0x13}, Be24({1}), Be32({2, 3}), Descriptor(5, {}));
    const Bytes es = Join(Be16({7}), Bytes{0xE5}, Be16({8}), Bytes{2, 'a', 'b'}, Be16({9}),
                          Descriptor(4, config), Descriptor(4, {}));
    const Entries all(AudioEntry({.children = FullAtom("esds", 0, 0, Descriptor(9, {1}),
                                                       Descriptor(3, es), Descriptor(3, {}))}),
                      kSoun);
    ASSERT_EQ(all.result, FF4_RET_OK);
    const Mp4EsDescriptor& read = all.At(1).es;
    EXPECT_EQ(read.es_id, 7);
    EXPECT_EQ(read.flags, 0xE5);
    EXPECT_EQ(read.depends_on_es_id, 8);
    EXPECT_EQ(ToBytes(read.url), Text("ab"));
    EXPECT_EQ(read.ocr_es_id, 9);
    EXPECT_EQ(read.stream_type, 4);
    EXPECT_EQ(read.up_stream, 1);
    EXPECT_EQ(read.avg_bitrate, 3u);
    EXPECT_TRUE(read.has_specific_info);
    EXPECT_EQ(read.decoder_specific_info.size, 0u);
}

TEST(SampleEntries, SoundOfAllVersions) {
    const uint64_t k96000 = 0x40F7700000000000, kNan = 0x7FF8000000000000;
    const Bytes wave = Atom("wave", Atom("frma", Text("mp4a")), Esds(), Atom(uint32_t{0}));
    const struct {
        const char* name;
        Bytes entry;
        uint32_t channels, bits, rate, rate_fixed, info_size;
    } cases[] = {
        {"plain", Mp4a(), 2, 16, 48000, 48000u << 16, 2},
        {"without descriptors", Twos(1), 1, 16, 48000, 48000u << 16, 0},
        {"version 1, esds in wave",
         AudioEntry({.rate = 44100, .version = 1, .children = Join(Zeros(16), wave)}), 2, 16, 44100,
         44100u << 16, 2},
        {"version 2",
         AudioEntry({.channels = 3, .version = 2, .children = Join(Version2(k96000, 6, 24), wave)}),
         6, 24, 96000, 0, 2},
        {"version 2 without a number",
         AudioEntry({.version = 2, .children = Version2(kNan, 1u << 20, 1u << 20)}), 65535, 16, 0,
         0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Entries entries(c.entry, kSoun);
        ASSERT_EQ(entries.result, FF4_RET_OK);
        const Mp4SampleEntry& entry = entries.At(1);
        EXPECT_EQ(entry.kind, kEntryAudio);
        EXPECT_EQ(entry.audio.channel_count, c.channels);
        EXPECT_EQ(entry.audio.sample_size, c.bits);
        EXPECT_EQ(entry.audio.sampling_rate, c.rate);
        EXPECT_EQ(entry.audio.sample_rate, c.rate_fixed);
        EXPECT_EQ(entry.es.decoder_specific_info.size, c.info_size);
    }
}

TEST(SampleEntries, KindsFollowHandlerAndChildren) {
    const Bytes graphics = PlainEntry("grap", Zeros(24));
    const Bytes stereo = Atom("3STP", Bytes{1, 1, 2, 3, 4, 5, 6});
    const struct {
        const char* name;
        uint32_t handler;
        Bytes entry;
        uint32_t kind;
    } cases[] = {
        {"MPEG-4 picture", kVide, Mp4v(), kEntryMpeg4Visual},
        {"picture of another codec", kVide, VisualEntry({.format = "hvc1"}), kEntryUnknown},
        {"stream", fourcc("odsm"), PlainEntry("mp4s", Esds()), kEntryStream},
        {"bookmarks", fourcc("BKDT"), PlainEntry("bkdt", Zeros(4)), kEntryBookmark},
        {"metadata", fourcc("meta"), PlainEntry("mett"), kEntryMetadata},
        {"packed data", fourcc("PKDT"), PlainEntry("pkdt", Zeros(4)), kEntryPackedData},
        {"graphics", kGrap, graphics, kEntryGraphics},
        {"stereo graphics", kGrap, PlainEntry("grap", Join(Zeros(24), stereo)),
         kEntryGraphicsStereo},
        {"no handler of ours", fourcc("text"), PlainEntry("tx3g"), kEntryUnknown},
        {"by code, picture", kHandlerByFormat, Mp4v(), kEntryMpeg4Visual},
        {"by code, metadata", kHandlerByFormat, PlainEntry("LBIN"), kEntryMetadata},
        {"by code, unknown and short", kHandlerByFormat, Atom("mp4a"), kEntryUnknown},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Entries entries(c.entry, c.handler);
        ASSERT_EQ(entries.result, FF4_RET_OK);
        EXPECT_EQ(entries.At(1).kind, c.kind);
        EXPECT_EQ(entries.At(1).format, get_be32(c.entry.data() + 4));
    }
}

TEST(SampleEntries, WhatEndsTheList) {
    const Bytes avcc = Avcc();
    const Bytes cut_avcc = Atom("avcC", Bytes(avcc.begin() + 8, avcc.begin() + 20));
    const Bytes no_picture_sets = Atom("avcC", Bytes{1, 2, 3, 4, 5, 0xE1, 0, 1, 9});
    const auto esds = [](const Bytes& rest) {
        return AudioEntry({.children = Atom("esds", rest)});
    };
    const Bytes es_url_past = Join(Be16({1}), Bytes{0x40, 200, 'a'});
    const struct {
        const char* name;
        uint32_t handler;
        Bytes bytes;
        uint32_t count;
        Mp4Result result;
        uint32_t read;
    } cases[] = {
        {"as many as the table says", kSoun, Join(Twos(), Twos(), Twos()), 2, FF4_RET_OK, 2},
        {"as many as there are", kSoun, Join(Twos(), Twos(), Zeros(7)), 0x7FFFFFFF, FF4_RET_OK, 2},
        {"none", kSoun, {}, 5, FF4_RET_OK, 0},
        {"sound of 27 bytes", kSoun, Join(Twos(), Atom("twos", Zeros(27))), 9, FF4_RET_FORMAT, 1},
        {"picture of 77 bytes", kVide, Atom("avc1", Zeros(77)), 9, FF4_RET_FORMAT, 0},
        {"version 1 without its bytes", kSoun, AudioEntry({.version = 1, .children = Zeros(15)}), 1,
         FF4_RET_FORMAT, 0},
        {"a size inside its header", kSoun, Join(Twos(), Be32({5, 0, 0})), 9, FF4_RET_FORMAT, 1},
        {"second set past the end", kVide, VisualEntry({.children = cut_avcc}), 1, FF4_RET_FORMAT,
         0},
        {"sequence sets alone", kVide, VisualEntry({.children = no_picture_sets}), 1, FF4_RET_OK,
         1},
        {"esds of version 1", kSoun, esds(Be32({0x01000000})), 1, FF4_RET_FORMAT, 0},
        {"esds of nothing", kSoun, esds(Be32({0})), 1, FF4_RET_OK, 1},
        {"esds without its head", kSoun, esds(Zeros(3)), 1, FF4_RET_FORMAT, 0},
        {"ES descriptor of 2 bytes", kSoun, esds(Join(Be32({0}), Descriptor(3, Zeros(2)))), 1,
         FF4_RET_FORMAT, 0},
        {"URL past the end", kSoun, esds(Join(Be32({0}), Descriptor(3, es_url_past))), 1,
         FF4_RET_FORMAT, 0},
        {"decoder config of 12 bytes", kSoun,
         esds(Join(Be32({0}), Descriptor(3, Join(Zeros(3), Descriptor(4, Zeros(12)))))), 1,
         FF4_RET_FORMAT, 0},
        {"length without an end", kSoun, esds(Join(Be32({0}), Bytes{3, 0x80, 0x80, 0x80, 0x80, 0})),
         1, FF4_RET_FORMAT, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Entries entries(c.bytes, c.handler, c.count);
        EXPECT_EQ(entries.result, c.result);
        EXPECT_EQ(entries.Count(), c.read);
    }
}

TEST(SampleEntries, EveryFaultIsToldAndNothingIsLost) {
    const Bytes picture = VisualEntry(
        {.children = Join(Atom("sinf", Atom("frma", Text("avc1"))), Avcc({{1}, {2}}, {{3}}),
                          Atom("pasp", Zeros(8)), Atom("colr", Zeros(4)), Uuid("3DDS", Zeros(4)))});
    const Bytes sound =
        Join(Mp4a(),
             AudioEntry({.children = FullAtom(
                             "esds", 0, 0, Descriptor(3, Join(Be16({1}), Bytes{0x40, 1, 'u'})))}));
    for (const auto& [bytes, handler] : {std::pair{picture, kVide}, {sound, kSoun}}) {
        const auto step = [&, h = handler, size = bytes.size()](TestHost& host) {
            Mp4SampleEntryList list{};
            const Mp4Result result =
                mp4_read_sample_entries(host, host.File(), {0, size}, 2, h, &list);
            mp4_free_sample_entries(host, &list);
            return result;
        };
        ExpectFaultsTold({HostCall::kAlloc}, bytes, step, 6);
        ExpectFaultsTold({HostCall::kRead, HostCall::kSeek}, bytes, step);
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
}

}  // namespace
}  // namespace tarn
