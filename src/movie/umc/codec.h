// codec.h - the common face of the sound codecs: parameter records and the calls.
//
// One call of GetFrame takes one input block and gives one output block. A codec object belongs to
// one thread at a time. Init may be called again: it starts over, and a failed one leaves the codec
// closed.
#pragma once

#include <cstdint>
#include <memory>

#include "movie/umc/media_data.h"
#include "movie/umc/memory_allocator.h"
#include "movie/umc/status.h"

namespace tarn::UMC {

// Stream types: what a decoder is given, and what both codecs report of their PCM side.
inline constexpr int32_t kStreamAacConfigured = 0x11;  // bare AAC frames, configuration in `data`
inline constexpr int32_t kStreamPcm = 0x800;

// Audio object types of MPEG-4, the values of `profile` and `objectType`.
inline constexpr int32_t kAacMain = 1;
inline constexpr int32_t kAacLc = 2;
inline constexpr int32_t kAacLtp = 4;
inline constexpr int32_t kAacSbr = 5;  // spectral band replication over a core of half the rate
inline constexpr int32_t kAacPs = 29;  // the same, with parametric stereo over a mono core

struct StreamInfo {
    int32_t streamType = 0;
    int32_t streamSubType = 0;
};

struct AudioStreamInfo : StreamInfo {
    int32_t profile = 0;  // audio object type
    int32_t bitRate = 0;  // bits a second
    int32_t channels = 0;
    int32_t sampleRate = 0;  // hertz
    int32_t bitsPerSample = 0;
    int32_t channelMask = 0;  // bit 0 left, 1 right, 2 centre, 3 low frequencies, 4 and 5 back
};

enum class ParamsType { kBase, kAudioDecoder, kAudioEncoder, kAacDecoder, kAacEncoder };

struct BaseCodecParams {
    virtual ~BaseCodecParams() = default;
    virtual ParamsType GetType() const { return ParamsType::kBase; }

    MediaData* data = nullptr;             // initial configuration; read in Init only
    MemoryAllocator* allocator = nullptr;  // outlives the codec; null for one of its own
    uint32_t suggestedInputSize = 0;       // bytes; filled by GetInfo
    uint32_t suggestedOutputSize = 0;
};

struct AudioDecoderParams : BaseCodecParams {
    ParamsType GetType() const override { return ParamsType::kAudioDecoder; }
    AudioStreamInfo info;
};

struct AudioEncoderParams : BaseCodecParams {
    ParamsType GetType() const override { return ParamsType::kAudioEncoder; }
    AudioStreamInfo info;
};

class BaseCodec {
public:
    virtual ~BaseCodec() = default;
    virtual Status Init(BaseCodecParams* params);
    virtual Status GetFrame(MediaData* in, MediaData* out) = 0;
    // Fills the sizes, and the stream's figures where `params` has an `info`.
    virtual Status GetInfo(BaseCodecParams* params) = 0;
    virtual Status Close();
    // Back to the start of a stream, configured as before.
    virtual Status Reset() = 0;
    virtual Status SetParams(BaseCodecParams* params) = 0;

protected:
    MemoryAllocator* Allocator() const { return m_allocator; }

private:
    std::unique_ptr<MemoryAllocator> m_ownAllocator;
    MemoryAllocator* m_allocator = nullptr;
};

// Whether the library that does the codecs' work is there. Loads it.
bool HasCodecLibrary();

class AudioDecoder : public BaseCodec {};
class AudioEncoder : public BaseCodec {};

}  // namespace tarn::UMC
