// Results of an independent model, to the last bit; see tests/data/golden/README.md.
#include <gtest/gtest.h>

#include <bit>
#include <fstream>
#include <nlohmann/json.hpp>

#include "effects/equalizer.h"
#include "effects/preview_tables.h"
#include "effects/reverb.h"
#include "effects/wave_file.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

using Json = nlohmann::json;

std::string GoldenPath(const std::string& name) {
    return std::string(TARN_TEST_DATA) + "/golden/" + name;
}

Json Golden(const std::string& name) {
    std::ifstream file(GoldenPath(name));
    return Json::parse(file);
}

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Golden, WaveFiles) {
    TempDir dir;
    for (const Json& row : Golden("cases.json")) {
        const std::string name = row["case"];
        SCOPED_TRACE(name);
        const Json& s = row["settings"];
        AMPEffectSettings settings;
        settings.bypass = s["bypass"];
        settings.treble = s["treble"];
        settings.bass = s["bass"];
        settings.reverb = s["reverb"];
        settings.compressor = s["compressor"];
        settings.normalize = s["normalize"];
        settings.fade = s["fade"];
        settings.peak = s["peak"];
        const std::string input = GoldenPath("in/" + row["input"].get<std::string>());
        EXPECT_EQ(AMPEffectProcessWaveFile(dir.Path("out.wav"), input, settings, s["in"], s["out"],
                                           nullptr),
                  row["result"]);
        if (row["written"]) {
            EXPECT_TRUE(dir.Read("out.wav") == Content(GoldenPath("out/" + name + ".wav")));
        }
    }
}

void ExpectCoefficients(const AMPBiQuadraticCoefficients& c, const Json& golden) {
    const auto bits = [&](const char* key) {
        const auto word =
            static_cast<uint32_t>(std::stoul(golden[key].get<std::string>(), nullptr, 16));
        return std::bit_cast<float>(word);
    };
    EXPECT_EQ(c.b0, bits("b0"));
    EXPECT_EQ(c.b1, bits("b1"));
    EXPECT_EQ(c.b2, bits("b2"));
    EXPECT_EQ(c.a1, bits("a1"));
    EXPECT_EQ(c.a2, bits("a2"));
}

TEST(Golden, CoefficientsAndDelays) {
    for (const Json& row : Golden("coefficients.json")) {
        const uint32_t rate = row["rate"];
        SCOPED_TRACE(rate);
        ExpectCoefficients(AMPDesignLowPass(rate), row["eq_low"]);
        ExpectCoefficients(AMPDesignHighPass(rate), row["eq_high"]);
        ExpectCoefficients(AMPDesignReverbHighPass(rate), row["reverb_highpass"]);
        for (const Json& golden : row["reverb"]) {
            AMPReverbPreset preset{};
            AMPLoadReverbPreset(&preset, golden["setting"].get<int>() - 1);
            EXPECT_FLOAT_EQ(preset.dry, golden["dry"]);
            EXPECT_FLOAT_EQ(preset.wet, golden["wet"]);
            EXPECT_EQ(AMPDelayInSamples(preset.pre_delay, rate), golden["pre_delay"]);
            EXPECT_EQ(AMPDelayInSamples(preset.all_pass_delay, rate), golden["all_pass"]);
            for (size_t k = 0; k < kCombCount; ++k) {
                EXPECT_EQ(AMPDelayInSamples(preset.combs[k].delay, rate), golden["combs"][k]);
                EXPECT_FLOAT_EQ(preset.combs[k].damping, golden["damping"][k]);
                EXPECT_FLOAT_EQ(preset.combs[k].cross_gain, golden["feedback"][k]);
            }
        }
    }
}

TEST(Golden, PreviewTables) {
    for (const Json& row : Golden("tables.json")) {
        AMPPreviewTable compressor, normalize;
        AMPEffectBuildCompressorTable(&compressor, row["compressor_setting"]);
        AMPEffectBuildNormalizeTable(&normalize, row["normalize_setting"], row["peak"]);
        for (size_t i = 0; i < 255; ++i) {
            ASSERT_EQ(compressor[i], row["compressor"][i]) << row["compressor_setting"] << " " << i;
            ASSERT_EQ(normalize[i], row["normalize"][i]) << row["normalize_setting"] << " " << i;
        }
    }
}

TEST(PreviewTables, EdgesOfTheirRange) {
    AMPPreviewTable table;
    AMPEffectBuildCompressorTable(&table, 3);
    EXPECT_EQ(table[255], 126);  // ((32512 - 11626) 0.33 + 11626) 1.75 / 256 = 126.6
    EXPECT_EQ(table[0], -127) << "below the lowest point, not its edge";
    AMPEffectBuildCompressorTable(&table, 77);
    EXPECT_EQ(table[255], 127);
    EXPECT_EQ(table[0], -128);
    AMPEffectBuildNormalizeTable(&table, 1, 0.0f);  // a silent clip
    EXPECT_EQ(table[128], 0);
    EXPECT_EQ(table[129], 125);
    EXPECT_EQ(table[0], -125);
    AMPEffectBuildNormalizeTable(&table, 0, 0.0f);
    for (const int8_t point : table)
        EXPECT_EQ(point, 0);
}

}  // namespace
}  // namespace tarn
