// Arbitrary configurations and frames, and descriptors that should hold a configuration.
//
// The first byte says how the rest is used: bit 0 takes it as descriptors of an `esds` atom first,
// bit 1 asks for parametric stereo. Then a configuration, then frames, each behind a length byte of
// its own, which counts bytes of the configuration and eights of bytes of a frame. Bit 2 starts
// over at an empty frame.
#include <algorithm>
#include <span>

#include "fuzz_movie.h"
#include "movie/umc/aac_config.h"
#include "movie/umc/aac_decoder.h"

namespace {

using namespace tarn::UMC;
using tarn::Check;
using Part = std::span<const uint8_t>;

void Set(MediaData* data, Part bytes) {
    if (bytes.empty()) return;
    const auto size = static_cast<uint32_t>(bytes.size());
    Check(data->SetBufferPointer(const_cast<uint8_t*>(bytes.data()), size) == kStatusOk);
    Check(data->SetDataSize(size) == kStatusOk);
}

Part Take(Part* rest, size_t unit) {
    if (rest->empty()) return {};
    const Part taken = rest->subspan(1, std::min<size_t>((*rest)[0] * unit, rest->size() - 1));
    *rest = rest->subspan(1 + taken.size());
    return taken;
}

void DecodeOne(AACDecoder* decoder, MediaData* out, Part frame) {
    AACDecoderParams info;
    Check(decoder->GetInfo(&info) >= 0);
    if (out->GetBufferSize() < info.suggestedOutputSize)
        Check(out->Alloc(info.suggestedOutputSize) == kStatusOk);
    out->Reset();
    MediaData in;
    Set(&in, frame);
    if (decoder->GetFrame(&in, out) != kStatusOk) return;
    Check(decoder->GetInfo(&info) == kStatusOk);
    const uint32_t block = static_cast<uint32_t>(info.info.channels) * 2;
    Check(block > 0 && out->GetDataSize() > 0 && out->GetDataSize() % block == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint8_t mode = data[0];
    Part rest(data + 1, size - 1);
    const Part given = Take(&rest, 1), config = mode & 1 ? FindDecoderSpecificInfo(given) : given;

    MediaData configured, out;
    Set(&configured, config);
    AACDecoderParams params;
    params.data = &configured;
    params.info.streamType = config.empty() ? 0 : kStreamAacConfigured;
    params.psSupport = mode >> 1 & 1;
    AACDecoder decoder;
    if (decoder.Init(&params) != kStatusOk) return 0;
    while (!rest.empty()) {
        const Part frame = Take(&rest, 8);
        if (frame.empty() && (mode & 4)) Check(decoder.Reset() == kStatusOk);
        if (!frame.empty()) DecodeOne(&decoder, &out, frame);
    }
    return 0;
}
