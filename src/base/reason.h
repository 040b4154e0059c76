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

// One for each cause that a user can meet. Comments name the arguments, in the order of the text.
enum class ReasonCode : uint16_t {
    kNone,  // no failure

    // Anything
    kUnexpected,  // none of the others: a fault of the program
    kOutOfMemory,
    kCancelled,

    // Files
    kCantOpen,       // the system's error
    kCantRead,       // the system's error
    kCantWrite,      // the system's error
    kExists,         // the output is there already
    kNoRoom,         // the system's error
    kTooLittleRoom,  // megabytes needed, megabytes free, and the system's error unsaid
    kChanged,        // changed or removed while it was read
    kNotAFile,       // a pipe, a device
    kNotAFolder,
    kLongPath,  // the most characters
    kSameFile,  // the output is the input
    kNotMovieOrWave,

    // Movies
    kEmptyFile,
    kNotAMovie,
    kNothingKnown,  // a movie file without anything that this program reads
    kNoMovieHeader,
    kEndsEarly,
    kDamaged,
    kNumberTooLarge,
    kDamagedAtom,         // the atom
    kDamagedPictureAtom,  // the atom, of the picture's track
    kDamagedSoundAtom,    // the atom, of the sound's track
    kNoTimescale,
    kNoTrack,  // neither picture nor sound that can be edited
    kNoVideoTrack,
    kNoAudioTrack,
    kNoSuchTrack,  // its number
    kNoSuchSample,
    kNoMoreSamples,
    kDamagedSample,  // its number
    kBrokenHeader,   // byte at which a broken atom header stands

    // Points
    kInPastEnd,    // the end
    kInPastEndAt,  // the in point, the end
    kOutBeforeIn,
    kOutsideMovie,

    // Pictures that can't be carried over
    kPictureDamaged,
    kPictureElsewhere,  // in another file
    kPictureNotMain,
    kPictureUnknown,
    kPictureKind,  // the codec's name

    // Sound that can't be edited, treated or encoded
    kSoundDamaged,
    kSoundElsewhere,
    kSoundNotMain,
    kSoundUnknown,
    kSoundKind,        // the codec's name
    kSoundNotDecoded,  // the codec's name
    kSoundMono,
    kSoundChannels,  // their number
    kSoundBits,      // bits a sample
    kSoundConfiguration,
    kSoundReplicated,  // AAC with band replication
    kSoundFrameLength,
    kSoundRate,  // samples a second
    kNoSound,
    kNoSoundShown,  // nothing that the waveform can show
    kProfileNotStereo,
    kSoundNotShown,  // only 16-bit PCM can be shown
    kSoundBroken,    // a decoder refuses it
    kSoundEndsEarly,
    kCodec,  // decoding or encoding failed
    kPeakUnknown,

    // Reading back what was saved
    kPictureDiffers,  // the picture's number
    kMorePictures,
    kCantReadBack,  // the system's error

    // WAV
    kWaveFormat,
    kWaveAsMovie,  // can only be saved as WAV
    kWaveNoSound,
    kWaveRate,  // samples a second
    kWaveTooLarge,
    kWaveOutTooLarge,  // more sound than a WAV file can hold
    kWaveRange,
    kWaveCutShort,
    kWaveShrank,

    // Preview
    kNoPlugin,          // what it would have done
    kNoStart,           // GStreamer can't be started
    kNoScreen,          // nothing to show pictures with
    kPictureNoDecoder,  // it can't be connected
    kSoundNoDecoder,
    kNoGraphPart,  // the elements' names
    kSoundDevice,  // the device's words
    kNoPictureThere,
    kPlayback,  // the player's words

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
