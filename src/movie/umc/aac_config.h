// aac_config.h - what is said about an AAC stream outside its frames: the AudioSpecificConfig of
// ISO/IEC 14496-3 (1.6.2), where an `esds` atom keeps it, and the headers of streams without one.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "movie/umc/status.h"

namespace tarn::UMC {

struct AacConfig {
    int32_t objectType = 0;      // of the frames as coded; see codec.h
    int32_t channelConfig = 0;   // 0: told by a program config element inside
    int32_t sampleRate = 0;      // of the frames as coded, hertz
    bool sbr = false;            // band replication is announced: the output has outputRate
    bool ps = false;             // parametric stereo is announced
    int32_t outputRate = 0;      // hertz
    int32_t frameLength = 1024;  // sample frames in one coded frame, before band replication
};

// BadParameter where the bytes end too soon or name a reserved rate. Band replication that the
// configuration doesn't announce may still turn up in the frames.
Status ParseAacConfig(std::span<const uint8_t> bytes, AacConfig* config);

// The decoder specific info (the AudioSpecificConfig) inside the descriptors of an `esds` atom;
// `descriptors` are the bytes behind version and flags. The result is a part of them: in the
// camera's files the two bytes at offset 22, elsewhere wherever the descriptors put it, with its
// own length. A length that claims more than is there is cut. Empty where there is none.
std::span<const uint8_t> FindDecoderSpecificInfo(std::span<const uint8_t> descriptors);

// False for a frame that ends without a channel element (raw_data_block, 4.4.2.1): of fill elements
// and data alone.
bool AacFrameHasSound(std::span<const uint8_t> frame);

// The length of the ADTS frame that `bytes` start with, header included; 0 where they don't start
// with a whole one.
uint32_t AdtsFrameLength(std::span<const uint8_t> bytes);

// The 7-byte ADTS header of a frame of `payload` bytes. Empty where the format can't say it: object
// types above 4, channel configuration 0, a rate off the table, more than 8184 bytes.
std::vector<uint8_t> MakeAdtsHeader(const AacConfig& config, uint32_t payload);

// The header that opens an ADIF stream of this bit rate, with its program config element. Empty as
// above and for more than 6 channels.
std::vector<uint8_t> MakeAdifHeader(const AacConfig& config, int32_t bit_rate);

}  // namespace tarn::UMC
