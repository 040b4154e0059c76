#include "base/reason.h"

#include <cerrno>
#include <cstdio>
#include <iterator>

#include "base/xp_file.h"
#include "base/xp_output_file.h"

namespace tarn {
namespace {

struct Row {
    ReasonCode code;
    const char* name;
    const char* pattern;
};

using enum ReasonCode;

constexpr Row kRows[] = {
    {kNone, "NONE", ""},
    {kUnexpected, "UNEXPECTED", "unexpected failure"},
    {kOutOfMemory, "OUT_OF_MEMORY", "not enough memory"},
    {kCancelled, "CANCELLED", "cancelled, nothing was written"},

    {kCantOpen, "CANT_OPEN", "can't be opened: %1"},
    {kCantRead, "CANT_READ", "can't be read: %1"},
    {kCantWrite, "CANT_WRITE", "can't be written: %1"},
    {kExists, "EXISTS", "already exists; choose another name"},
    {kNoRoom, "NO_ROOM", "no room for the output (%1)"},
    {kTooLittleRoom, "TOO_LITTLE_ROOM",
     "not enough room on the disk: %1 MB are needed, %2 MB are free"},
    {kChanged, "CHANGED", "the file was changed or removed while it was read"},
    {kNotAFile, "NOT_A_FILE", "not an ordinary file"},
    {kNotAFolder, "NOT_A_FOLDER", "is not a folder"},
    {kLongPath, "LONG_PATH", "the path is longer than %1 characters"},
    {kSameFile, "SAME_FILE", "the output is the input itself"},
    {kNotMovieOrWave, "NOT_MOVIE_OR_WAVE", "neither an .mp4 nor a .wav file"},

    {kEmptyFile, "EMPTY_FILE", "the file is empty"},
    {kNotAMovie, "NOT_A_MOVIE", "not an MP4 file"},
    {kNothingKnown, "NOTHING_KNOWN", "the file holds nothing that this program reads"},
    {kNoMovieHeader, "NO_MOVIE_HEADER", "the recording is cut short: it has no movie header"},
    {kEndsEarly, "ENDS_EARLY", "the file can't be read, or ends too early"},
    {kDamaged, "DAMAGED", "the file is damaged"},
    {kNumberTooLarge, "NUMBER_TOO_LARGE", "the file is damaged: a number in it is too large"},
    {kDamagedAtom, "DAMAGED_ATOM", "the file is damaged: %1"},
    {kDamagedPictureAtom, "DAMAGED_PICTURE_ATOM", "the file is damaged: the picture's %1"},
    {kDamagedSoundAtom, "DAMAGED_SOUND_ATOM", "the file is damaged: the sound's %1"},
    {kNoTimescale, "NO_TIMESCALE", "the movie header is damaged: it has no time scale"},
    {kNoTrack, "NO_TRACK", "no picture or sound that this program can edit"},
    {kNoVideoTrack, "NO_VIDEO_TRACK", "there is no video track"},
    {kNoAudioTrack, "NO_AUDIO_TRACK", "there is no audio track"},
    {kNoSuchTrack, "NO_SUCH_TRACK", "there is no track %1"},
    {kNoSuchSample, "NO_SUCH_SAMPLE", "no such sample"},
    {kNoMoreSamples, "NO_MORE_SAMPLES", "the movie has no further samples"},
    {kDamagedSample, "DAMAGED_SAMPLE", "sample %1 is damaged"},
    {kBrokenHeader, "BROKEN_HEADER", "broken atom header at byte %1"},

    {kInPastEnd, "IN_PAST_END", "the in point lies at or after the end, %1"},
    {kInPastEndAt, "IN_PAST_END_AT", "the in point %1 is not before the end, which is at %2"},
    {kOutBeforeIn, "OUT_BEFORE_IN", "the out point lies before the in point"},
    {kOutsideMovie, "OUTSIDE_MOVIE", "the in or out point lies outside the movie"},

    {kPictureDamaged, "PICTURE_DAMAGED",
     "the picture is damaged and can't be carried; save the sound as WAV"},
    {kPictureElsewhere, "PICTURE_ELSEWHERE",
     "the picture lies in another file and can't be carried; save the sound as WAV"},
    {kPictureNotMain, "PICTURE_NOT_MAIN",
     "the picture is not marked as the main one and can't be carried; save the sound as WAV"},
    {kPictureUnknown, "PICTURE_UNKNOWN",
     "the picture is of a kind that can't be carried; save the sound as WAV"},
    {kPictureKind, "PICTURE_KIND", "the picture (%1) can't be carried; save the sound as WAV"},

    {kSoundDamaged, "SOUND_DAMAGED", "the sound is damaged and can't be re-encoded"},
    {kSoundElsewhere, "SOUND_ELSEWHERE", "the sound lies in another file and can't be re-encoded"},
    {kSoundNotMain, "SOUND_NOT_MAIN",
     "the sound is not marked as the main one and can't be re-encoded"},
    {kSoundUnknown, "SOUND_UNKNOWN", "the sound is of a kind that can't be re-encoded"},
    {kSoundKind, "SOUND_KIND", "the sound (%1) can't be re-encoded"},
    {kSoundNotDecoded, "SOUND_NOT_DECODED",
     "the sound is %1, which can't be decoded here; only AAC and PCM can"},
    {kSoundMono, "SOUND_MONO", "the sound is mono; only stereo can be edited"},
    {kSoundChannels, "SOUND_CHANNELS", "the sound has %1 channels; only stereo can be edited"},
    {kSoundBits, "SOUND_BITS", "the sound has %1 bits a sample; only 16 can be treated"},
    {kSoundConfiguration, "SOUND_CONFIGURATION",
     "the sound's AAC configuration is missing or broken"},
    {kSoundReplicated, "SOUND_REPLICATED",
     "the sound is AAC with band replication, which can't be re-encoded; save it as WAV"},
    {kSoundFrameLength, "SOUND_FRAME_LENGTH",
     "the sound has AAC frames of an unusual length; save it as WAV"},
    {kSoundRate, "SOUND_RATE",
     "the sound has %1 samples a second, which AAC can't hold; save it as WAV"},
    {kNoSound, "NO_SOUND", "the clip has no sound that could be saved"},
    {kNoSoundShown, "NO_SOUND_SHOWN", "the clip has no sound that can be shown"},
    {kProfileNotStereo, "PROFILE_NOT_STEREO", "the clip's profile does not say stereo sound"},
    {kSoundNotShown, "SOUND_NOT_SHOWN", "only PCM sound of 16 bits can be shown"},
    {kSoundBroken, "SOUND_BROKEN", "the sound can't be decoded"},
    {kSoundEndsEarly, "SOUND_ENDS_EARLY", "the sound ends early"},
    {kCodec, "CODEC", "the sound can't be decoded or encoded"},
    {kPeakUnknown, "PEAK_UNKNOWN", "the peak of its sound can't be measured"},

    {kPictureDiffers, "PICTURE_DIFFERS",
     "reading back: picture %1 is not the source's; nothing was saved"},
    {kMorePictures, "MORE_PICTURES",
     "reading back: there are more pictures than were kept; nothing was saved"},
    {kCantReadBack, "CANT_READ_BACK", "can't be read back: %1; nothing was saved"},

    {kWaveFormat, "WAVE_FORMAT", "not a WAV file of 16-bit stereo with a plain header"},
    {kWaveAsMovie, "WAVE_AS_MOVIE", "a WAV file can only be exported as .wav"},
    {kWaveNoSound, "WAVE_NO_SOUND", "the WAV file has no sound"},
    {kWaveRate, "WAVE_RATE", "the WAV file has an impossible sample rate of %1"},
    {kWaveTooLarge, "WAVE_TOO_LARGE", "WAV files of 4 GiB or more can't be treated"},
    {kWaveOutTooLarge, "WAVE_OUT_TOO_LARGE", "more sound than a WAV file can hold"},
    {kWaveRange, "WAVE_RANGE", "the in and out points lie outside the sound"},
    {kWaveCutShort, "WAVE_CUT_SHORT", "the file ends before its sound does"},
    {kWaveShrank, "WAVE_SHRANK", "the file got shorter while it was read"},

    {kNoPlugin, "NO_PLUGIN", "no plug-in of GStreamer is there for this: %1"},
    {kNoStart, "NO_START", "GStreamer can't be started"},
    {kNoScreen, "NO_SCREEN", "there is nothing to show pictures with"},
    {kPictureNoDecoder, "PICTURE_NO_DECODER", "the picture decoder can't be connected"},
    {kSoundNoDecoder, "SOUND_NO_DECODER", "the sound decoder can't be connected"},
    {kNoGraphPart, "NO_GRAPH_PART", "an element of GStreamer is missing: %1"},
    {kSoundDevice, "SOUND_DEVICE", "the sound device is gone: %1"},
    {kNoPictureThere, "NO_PICTURE_THERE", "there is no picture at that time"},
    {kPlayback, "PLAYBACK", "the player says: %1"},
};

constexpr bool rows_in_order() {
    for (size_t i = 0; i < std::size(kRows); ++i)
        if (static_cast<size_t>(kRows[i].code) != i) return false;
    return std::size(kRows) == static_cast<size_t>(ReasonCode::kCount);
}
static_assert(rows_in_order(), "one row for each code, in the order of the enumeration");

struct AtomName {
    char code[5];
    const char* name;
};
constexpr AtomName kAtomNames[] = {
    {"moov", "movie"},
    {"mvhd", "movie header"},
    {"mvex", "fragment defaults"},
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
    if (side == ReasonSide::kTarget && error == EEXIST) code = kExists;
    if (side == ReasonSide::kTarget && XpIsDiskFull(error)) code = kNoRoom;
    if (side == ReasonSide::kSource && error == ESPIPE) code = kNotAFile;
    if (error == ENOMEM) code = kOutOfMemory;
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
