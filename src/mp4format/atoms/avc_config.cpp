#include "mp4format/atoms/avc_config.h"

#include "mp4format/atom.h"

namespace tarn {
namespace {

constexpr uint64_t kHead = 6;

// `count` sets of u16 length and bytes; moves `at` past them.
Mp4Result read_sets(Mp4Host* host, const uint8_t* bytes, uint64_t size, uint32_t count,
                    uint64_t* at, Mp4ParameterSetList* sets) {
    constexpr uint64_t kLength = 2;
    for (uint32_t i = 0; i < count; ++i) {
        if (size - *at < kLength) return FF4_RET_FORMAT;
        const uint16_t length = get_be16(bytes + *at);
        *at += kLength;
        if (length > size - *at) return FF4_RET_FORMAT;

        auto set = mp4_make<Mp4ParameterSet>(host);
        if (!set) return FF4_RET_NOMEM;
        FF4_TRY(mp4_copy_block(host, bytes + *at, length, &set->data));
        mp4_append(sets, set.release());
        ++sets->count;
        *at += length;
    }
    return FF4_RET_OK;
}

void free_sets(Mp4Host* host, Mp4ParameterSetList* sets) {
    mp4_free_list(sets, [=](Mp4ParameterSet* set) {
        mp4_free_block(host, &set->data);
        mp4_free(host, set);
    });
}

// A count of parameter sets and the sets, each behind its length.
Mp4Result put_sets(Mp4Sink& sink, const Mp4ParameterSetList& sets, uint32_t most,
                   uint32_t reserved_bits) {
    if (sets.count > most) return FF4_RET_OVERFLOW;
    Mp4Fields<1> head;
    head.U8(reserved_bits | sets.count);
    FF4_TRY(mp4_put_fields(sink, head));
    for (const Mp4ParameterSet* set = sets.head; set; set = set->next) {
        if (set->data.size > UINT16_MAX) return FF4_RET_OVERFLOW;
        Mp4Fields<2> length;
        length.U16(set->data.size);
        FF4_TRY(mp4_put_fields(sink, length));
        FF4_TRY(mp4_put(sink, set->data.data, set->data.size));
    }
    return FF4_RET_OK;
}

}  // namespace

Mp4Result mp4_read_avc_config(Mp4Host* host, const uint8_t* bytes, uint64_t size,
                              Mp4AvcConfig* config) {
    if (!host || !bytes || !config) return FF4_RET_ARGS;
    if (size < kHead) return FF4_RET_FORMAT;
    FF4_TRY(mp4_copy_block(host, bytes, size, &config->bytes));
    config->configuration_version = bytes[0];
    config->profile = bytes[1];
    config->profile_compatibility = bytes[2];
    config->level = bytes[3];
    config->length_size_minus_one = bytes[4] & 3;

    uint64_t at = kHead;
    FF4_TRY(read_sets(host, bytes, size, bytes[5] & 0x1F, &at, &config->sequence_sets));
    if (at == size) return FF4_RET_OK;
    const uint32_t picture_sets = bytes[at++];
    return read_sets(host, bytes, size, picture_sets, &at, &config->picture_sets);
}

void mp4_free_avc_config(Mp4Host* host, Mp4AvcConfig* config) {
    mp4_free_block(host, &config->bytes);
    free_sets(host, &config->sequence_sets);
    free_sets(host, &config->picture_sets);
    *config = {};
}

const Mp4ParameterSet* mp4_parameter_set_at(const Mp4ParameterSetList& sets, uint32_t n) {
    return mp4_nth(sets.head, n);
}

Mp4Result mp4_write_avcc(Mp4Sink& sink, const Mp4AvcConfig& config) {
    constexpr uint32_t kMostSequenceSets = 31, kMostPictureSets = 255;
    if (config.bytes.size > 0)
        return mp4_write_plain_atom(sink, fourcc("avcC"), config.bytes.data, config.bytes.size);
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<5> head;
        head.U8(config.configuration_version);
        head.U8(config.profile);
        head.U8(config.profile_compatibility);
        head.U8(config.level);
        head.U8(0xFCu | (config.length_size_minus_one & 3u));
        FF4_TRY(mp4_put_fields(to, head));
        FF4_TRY(put_sets(to, config.sequence_sets, kMostSequenceSets, 0xE0));
        return put_sets(to, config.picture_sets, kMostPictureSets, 0);
    };
    return mp4_write_container(sink, fourcc("avcC"), body);
}

}  // namespace tarn
