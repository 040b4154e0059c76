#include "base/reason.h"

#include <cerrno>
#include <cstdio>

#include "base/xp_file.h"
#include "base/xp_output_file.h"

namespace tarn {
namespace {

struct Row {
    const char* name;
    const char* pattern;
};
// By code.
constexpr Row kRows[] = {
#define TARN_REASON(code, name, text) {name, text},
#include "base/reasons.def"
#undef TARN_REASON
};

struct AtomName {
    char code[5];
    const char* name;
};
constexpr AtomName kAtomNames[] = {
    {"moov", "movie"},
    {"mvhd", "movie header"},
    {"mvex", "fragment defaults"},
    {"mehd", "fragments' duration"},
    {"moof", "fragments"},
    {"trak", "track"},
    {"tkhd", "track header"},
    {"edts", "edits"},
    {"elst", "edit list"},
    {"mdia", "media"},
    {"mdhd", "media header"},
    {"hdlr", "handler"},
    {"minf", "media information"},
    {"dinf", "data information"},
    {"dref", "data references"},
    {"stbl", "sample tables"},
    {"stsd", "sample descriptions"},
    {"esds", "decoder configuration"},
    {"avcC", "decoder configuration"},
    {"stts", "sample durations"},
    {"ctts", "composition offsets"},
    {"stsc", "samples of the chunks"},
    {"stsz", "sample sizes"},
    {"stz2", "sample sizes"},
    {"stco", "chunk offsets"},
    {"co64", "chunk offsets"},
    {"stss", "sync samples"},
    {"uuid", "camera's records"},
};

struct ArgumentText {
    std::string operator()(const std::string& text) const { return text; }
    std::string operator()(uint64_t number) const { return std::to_string(number); }
    std::string operator()(ReasonTime time) const { return TimeText(time.ms); }
    std::string operator()(ReasonAtom atom) const { return AtomText(atom.type); }
    std::string operator()(ReasonError error) const { return XpErrorText(error.number); }
};

const Row& row_of(ReasonCode code) {
    return kRows[static_cast<size_t>(code)];
}

}  // namespace

int Reason::SystemError() const {
    for (const ReasonArgument& argument : arguments)
        if (const auto* error = std::get_if<ReasonError>(&argument)) return error->number;
    return 0;
}

Reason SystemReason(ReasonCode code, ReasonSide side, const std::string& file, int error) {
    if (side == ReasonSide::kTarget && error == EEXIST) code = ReasonCode::kExists;
    if (side == ReasonSide::kTarget && XpIsDiskFull(error)) code = ReasonCode::kNoRoom;
    if (side == ReasonSide::kSource && error == ESPIPE) code = ReasonCode::kNotAFile;
    if (error == ENOMEM) code = ReasonCode::kOutOfMemory;
    return {code, side, file, {ReasonError{error}}};
}

const char* ReasonName(ReasonCode code) {
    return row_of(code).name;
}

const char* ReasonPattern(ReasonCode code) {
    return row_of(code).pattern;
}

std::string ReasonText(const Reason& reason) {
    std::string text;
    for (const char* at = ReasonPattern(reason.code); *at; ++at) {
        const bool marked = *at == '%' && at[1] >= '1' && at[1] <= '9';
        if (!marked) {
            text += *at;
            continue;
        }
        const size_t index = static_cast<size_t>(*++at - '1');
        if (index < reason.arguments.size())
            text += std::visit(ArgumentText{}, reason.arguments[index]);
    }
    return text;
}

const char* ReasonSideName(ReasonSide side) {
    switch (side) {
        case ReasonSide::kSource:
            return "source";
        case ReasonSide::kTarget:
            return "target";
        case ReasonSide::kDevice:
            return "device";
        case ReasonSide::kNone:
            break;
    }
    return "";
}

std::string AtomText(uint32_t type) {
    std::string code;
    for (int shift = 24; shift >= 0; shift -= 8)
        code += static_cast<char>(type >> shift);
    for (const AtomName& atom : kAtomNames)
        if (code == atom.code) return std::string(atom.name) + " (" + code + ")";
    return code;
}

std::string TimeText(uint64_t ms) {
    char text[48];
    std::snprintf(text, sizeof text, "%llu:%02llu:%02llu.%03llu",
                  static_cast<unsigned long long>(ms / 3600000),
                  static_cast<unsigned long long>(ms / 60000 % 60),
                  static_cast<unsigned long long>(ms / 1000 % 60),
                  static_cast<unsigned long long>(ms % 1000));
    return text;
}

}  // namespace tarn
