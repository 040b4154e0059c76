#include "mp4format/atoms/data_refs.h"

#include <cstring>

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint32_t kSameFile = 1;  // the flags of an entry whose data is in this file

struct RefDeleter {
    Mp4Host* host;
    void operator()(Mp4DataRef* ref) const {
        mp4_free(host, ref->location);
        mp4_free(host, ref->name);
        mp4_free(host, ref);
    }
};
using RefPtr = std::unique_ptr<Mp4DataRef, RefDeleter>;

// Takes a text off the front of `left`, up to its closing zero or the end.
Mp4Result take_text(Mp4Host* host, const uint8_t* buffer, Mp4Span* left, char** text) {
    const uint64_t length = mp4_text_length(buffer + left->offset, left->size);
    HostPtr<char> copy(nullptr, {host});
    FF4_TRY(mp4_copy_text(host, buffer + left->offset, length, &copy));
    *text = copy.release();
    const uint64_t taken = length < left->size ? length + 1 : length;
    left->offset += taken;
    left->size -= taken;
    return FF4_RET_OK;
}

Mp4Result read_entry(Mp4Host* host, const uint8_t* buffer, const Mp4AtomInfo& atom,
                     Mp4DataRef* ref) {
    ref->type = atom.type;
    const bool url = atom.type == fourcc("url "), urn = atom.type == fourcc("urn ");
    if (!url && !urn) return FF4_RET_OK;
    if (atom.payload.size < kFullHead + (urn ? 1 : 0)) return FF4_RET_FORMAT;
    ref->version_flags = get_be32(buffer + atom.payload.offset);
    if (full_version(ref->version_flags) != 0) return FF4_RET_FORMAT;

    Mp4Span left = {atom.payload.offset + kFullHead, atom.payload.size - kFullHead};
    if (url) {
        if (full_flags(ref->version_flags) == kSameFile) return FF4_RET_OK;
        return take_text(host, buffer, &left, &ref->location);
    }
    FF4_TRY(take_text(host, buffer, &left, &ref->name));
    return left.size > 0 ? take_text(host, buffer, &left, &ref->location) : FF4_RET_OK;
}

// A text with a closing zero; null stays null.
Mp4Result copy_text(Mp4Host* host, const char* from, char** to) {
    if (!from) return FF4_RET_OK;
    const auto* bytes = reinterpret_cast<const uint8_t*>(from);
    HostPtr<char> copy(nullptr, {host});
    FF4_TRY(mp4_copy_text(host, bytes, mp4_text_length(bytes, UINT32_MAX), &copy));
    *to = copy.release();
    return FF4_RET_OK;
}

Mp4Result put_text(Mp4Sink& sink, const char* text) {
    return text ? mp4_put(sink, text, std::strlen(text) + 1) : FF4_RET_OK;
}

// One entry of 'dref'. In a 'urn ' the name comes first.
Mp4Result write_data_ref(Mp4Sink& sink, const Mp4DataRef& ref) {
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_words(to, ref.version_flags));
        FF4_TRY(put_text(to, ref.name));
        return put_text(to, ref.location);
    };
    return mp4_write_container(sink, ref.type, body);
}

}  // namespace

Mp4Result mp4_read_data_refs(Mp4Host* host, Mp4File* file, const Mp4Span& entries, uint32_t count,
                             Mp4DataRefs* refs) {
    if (!host || !file || !refs) return FF4_RET_ARGS;
    HostPtr<uint8_t> bytes(nullptr, {host});
    FF4_TRY(mp4_read_block(host, file, entries.offset, entries.size, &bytes));
    Mp4Span left = {0, entries.size};
    while (refs->count < count && left.size >= kAtomHeader) {
        Mp4AtomInfo atom{};
        FF4_TRY(mp4_blame(host, fourcc("dref"),
                          mp4_read_atom_header_mem(bytes.get(), left.offset, left.size, &atom)));
        RefPtr ref(mp4_make<Mp4DataRef>(host).release(), {host});
        if (!ref) return FF4_RET_NOMEM;
        FF4_TRY(mp4_blame(host, atom.type, read_entry(host, bytes.get(), atom, ref.get())));
        mp4_append(refs, ref.release());
        ++refs->count;
        left.offset += atom.atom.size;
        left.size -= atom.atom.size;
    }
    return FF4_RET_OK;
}

void mp4_free_data_refs(Mp4Host* host, Mp4DataRefs* refs) {
    mp4_free_list(refs, RefDeleter{host});
}

Mp4Result mp4_add_data_ref(Mp4Host* host, uint32_t type, const char* location, const char* name,
                           Mp4DataRefs* refs) {
    if (!host || !refs) return FF4_RET_ARGS;
    const bool url = type == fourcc("url "), urn = type == fourcc("urn ");
    if ((!url && !urn) || urn != (name != nullptr)) return FF4_RET_ARGS;
    RefPtr ref(mp4_make<Mp4DataRef>(host).release(), {host});
    if (!ref) return FF4_RET_NOMEM;
    ref->type = type;
    ref->version_flags = url && !location ? kSameFile : 0;
    FF4_TRY(copy_text(host, location, &ref->location));
    FF4_TRY(copy_text(host, name, &ref->name));
    mp4_append(refs, ref.release());
    ++refs->count;
    return FF4_RET_OK;
}

Mp4Result mp4_write_dref(Mp4Sink& sink, const Mp4DataRefs& refs) {
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_words(to, 0, refs.count));
        for (const Mp4DataRef* ref = refs.head; ref; ref = ref->next)
            FF4_TRY(write_data_ref(to, *ref));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("dref"), body);
}

}  // namespace tarn
