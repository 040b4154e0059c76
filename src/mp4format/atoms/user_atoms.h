// user_atoms.h - the lists inside the 'uuid' atoms of the camera's family: user metadata ('USMT'),
// profiles ('PROF') and licence data ('LICI').
#pragma once

#include <cstdint>

#include "mp4format/atom.h"
#include "mp4format/atom_writer.h"

namespace tarn {

struct Mp4UserAtom {
    uint32_t type;
    int32_t item_count;  // -1 for an atom that is not a counted list
    Mp4Span atom;
    Mp4Span payload;
    Mp4Span entries;  // behind the count; offset 0 where the kind has none
    Mp4UserAtom* next;
};

struct Mp4UserAtomList {
    Mp4Span atom;     // the whole 'uuid' atom
    Mp4Span payload;  // behind its 16-byte name
    Mp4UserAtom* head;
    Mp4UserAtom* tail;
};

// The 16-byte name in front of a 'uuid' payload.
struct Mp4ExtendedType {
    uint32_t words[4];
    bool family;  // the last three words are the camera family's; words[0] is then a four-character
                  // name
    Mp4Span rest;  // behind the name
};

// FF4_RET_FORMAT for a payload below 16 bytes.
Mp4Result mp4_read_extended_type(Mp4Host* host, Mp4File* file, const Mp4Span& payload,
                                 Mp4ExtendedType* type);
// The same from memory; spans index `buffer`.
Mp4Result mp4_read_extended_type_mem(const uint8_t* buffer, const Mp4Span& payload,
                                     Mp4ExtendedType* type);
// Puts the name of the camera's family with `name` in front.
Mp4Result mp4_put_extended_type(Mp4Sink& sink, uint32_t name);

constexpr int64_t kNoAtomLimit = -1;

// Appends the atoms of `span` to the list, in order, at most `limit` of them (kNoAtomLimit: all
// that fit). The bytes of the items stay in the file.
Mp4Result mp4_read_user_atoms(Mp4Host* host, Mp4File* file, const Mp4Span& span, int64_t limit,
                              Mp4UserAtomList* list);
void mp4_free_user_atoms(Mp4Host* host, Mp4UserAtomList* list);

// The first atom of a type, or null.
const Mp4UserAtom* mp4_find_user_atom(const Mp4UserAtomList& list, uint32_t type);

}  // namespace tarn
