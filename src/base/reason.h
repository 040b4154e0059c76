// reason.h - why something failed, as a record: what happened, to which file, with which numbers.
//
// Whoever meets a failure makes the record and says which side it was on. Words are made of it by
// the program that shows it: the command line by ReasonText, the desktop application from its table
// of texts, where the text of a code stands under IDS_REASON_ and the code's name, with the same
// arguments.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace tarn {

// One for each cause that a user can meet; reasons.def has them, with their arguments.
enum class ReasonCode : uint16_t {
#define TARN_REASON(code, name, text) code,
#include "base/reasons.def"
#undef TARN_REASON
    kCount
};

// Which side of the work failed.
enum class ReasonSide : uint8_t { kNone, kSource, kTarget, kDevice };

// How an argument is shown is the program's affair, so each says what it is.
struct ReasonTime {
    uint64_t ms;
    bool operator==(const ReasonTime&) const = default;
};
struct ReasonAtom {
    uint32_t type;  // four-character code
    bool operator==(const ReasonAtom&) const = default;
};
struct ReasonError {
    int number;  // errno
    bool operator==(const ReasonError&) const = default;
};
using ReasonArgument = std::variant<std::string, uint64_t, ReasonTime, ReasonAtom, ReasonError>;

struct Reason {
    ReasonCode code = ReasonCode::kNone;
    ReasonSide side = ReasonSide::kNone;
    std::string file;  // path, where one file is to blame
    std::vector<ReasonArgument> arguments;

    // Whether anything failed.
    explicit operator bool() const { return code != ReasonCode::kNone; }
    bool operator==(const Reason&) const = default;
    // errno among the arguments, 0 without one.
    int SystemError() const;
};

// A system call failed: `code` for ordinary errors, and a code of its own for what users can mend
// (the target exists, the disk is full, it is no ordinary file).
Reason SystemReason(ReasonCode code, ReasonSide side, const std::string& file, int error);

// "SOUND_CHANNELS": for the table of texts and for scripts.
const char* ReasonName(ReasonCode code);
// The English text with its arguments as %1 and %2: "the sound has %1 channels; ...".
const char* ReasonPattern(ReasonCode code);
// The whole sentence in English, without the file's name. Empty for no failure.
std::string ReasonText(const Reason& reason);
// "source", "target", "device", or empty.
const char* ReasonSideName(ReasonSide side);

// What an atom is for, with its code: "sample sizes (stsz)"; the code alone for one without a name.
std::string AtomText(uint32_t type);
// "0:00:12.500"
std::string TimeText(uint64_t ms);

}  // namespace tarn
