#include "cli/effect_options.h"

#include <CLI/CLI.hpp>
#include <vector>

namespace tarn {
namespace {

// The place of a name is its number.
using Names = std::vector<std::string>;

std::optional<int32_t> parse_choice(const Names& names, const std::string& text) {
    for (size_t i = 0; i < names.size(); ++i)
        if (CLI::detail::to_lower(text) == CLI::detail::to_lower(names[i]) ||
            text == std::to_string(i))
            return static_cast<int32_t>(i);
    return std::nullopt;
}

void add_choice(CLI::App* command, const std::string& option, int32_t* value, const Names& names,
                const std::string& what) {
    const std::string help =
        CLI::detail::join(names, ", ") + ", or 0 to " + std::to_string(names.size() - 1);
    command
        ->add_option_function<std::string>(
            option,
            [=](const std::string& text) {
                const std::optional<int32_t> number = parse_choice(names, text);
                if (!number) throw CLI::ValidationError(option, text + " is none of: " + help);
                *value = *number;
            },
            what + ": " + help)
        ->type_name("NAME");
}

void add_band(CLI::App* command, const std::string& option, int32_t* value) {
    CLI::Range range(-100, 100);
    command->add_option(option, *value, "-100 (none of it) to 100 (twice as much)")
        ->check(range.description(""));
}

}  // namespace

AMPEffectSettings EffectOptions::Settings(float measured) const {
    AMPEffectSettings all = settings;
    all.bypass = bypass;
    all.fade = fade;
    all.peak = peak.value_or(measured);
    return all;
}

bool EffectOptions::NeedsPeak() const {
    return settings.normalize != 0 && !bypass && !peak;
}

bool EffectOptions::AnyChosen() const {
    return !bypass && (fade || settings != AMPEffectSettings{});
}

void AddLevelOptions(CLI::App* command, AMPEffectSettings* settings) {
    add_choice(command, "--compressor", &settings->compressor,
               {"off", "soft", "mid", "high", "heavy"}, "How far loud sound is brought down");
    add_choice(command, "--normalize", &settings->normalize, {"off", "0dB", "-3dB", "-6dB"},
               "Level of the peak");
}

void AddEffectOptions(CLI::App* command, EffectOptions* options) {
    add_band(command, "--bass", &options->settings.bass);
    add_band(command, "--treble", &options->settings.treble);
    add_choice(command, "--reverb", &options->settings.reverb,
               {"off", "room-low", "room-mid", "room-high", "club-low", "club-mid", "club-high",
                "hall-low", "hall-mid", "hall-high"},
               "Space and depth");
    AddLevelOptions(command, &options->settings);
    command->add_flag("--fade", options->fade, "Fade in and out at the ends");
    command->add_flag("--bypass", options->bypass, "All effects off, samples copied");
    command
        ->add_option_function<float>(
            "--peak",
            [options](const float& peak) {
                if (!(peak >= 0.0f && peak <= 1.0f))
                    throw CLI::ValidationError("--peak", "must lie between 0 and 1");
                options->peak = peak;
            },
            "Peak of the clip for --normalize, 0 to 1; measured if not given")
        ->type_name("FLOAT");
}

}  // namespace tarn
