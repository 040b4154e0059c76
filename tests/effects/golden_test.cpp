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

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Json Golden(const std::string& name) {
    return Json::parse(Content(GoldenPath(name)));
}

TEST(Golden, WaveFiles) {
    TempDir dir;
    for (const Json& row : Golden("cases.json")) {
        const std::string name = row["case"];
        SCOPED_TRACE(name);
        const Json& s = row["settings"];
        const AMPEffectSettings settings = {s["bypass"],     s["treble"],    s["bass"], s["reverb"],
                                            s["compressor"], s["normalize"], s["fade"], s["peak"]};
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
    const std::pair<const char*, float> ours[] = {
        {"b0", c.b0}, {"b1", c.b1}, {"b2", c.b2}, {"a1", c.a1}, {"a2", c.a2}};
    for (const auto& [key, value] : ours) {
        const auto bits = std::stoul(golden[key].get<std::string>(), nullptr, 16);
        EXPECT_EQ(value, std::bit_cast<float>(static_cast<uint32_t>(bits))) << key;
    }
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
    AMPPreviewTable heavy, unknown, silent, off;
    AMPEffectBuildCompressorTable(&heavy, 3);
    AMPEffectBuildCompressorTable(&unknown, 77);
    AMPEffectBuildNormalizeTable(&silent, 1, 0.0f);
    AMPEffectBuildNormalizeTable(&off, 0, 0.0f);
    EXPECT_EQ(heavy[255], 126);  // ((32512 - 11626) 0.33 + 11626) 1.75 / 256 = 126.6
    EXPECT_EQ(heavy[0], -127) << "below the lowest point, not its edge";
    EXPECT_EQ(unknown[255] - unknown[0], 255);
    EXPECT_EQ((std::vector{silent[0], silent[128], silent[129]}),
              (std::vector<int8_t>{-125, 0, 125}));
    EXPECT_EQ(off, AMPPreviewTable{});
}

}  // namespace
}  // namespace tarn
