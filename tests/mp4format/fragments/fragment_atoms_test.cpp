#include "mp4format/fragments/fragment_atoms.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

TEST(FragmentAtoms, EveryFieldOfAMoof) {
    const Mp4FragmentRow rows[] = {{10, 100, 0x10000, 5}, {11, 101, 0, -5}};
    const Mp4FragmentRow plain[] = {{0, 7, 0, 0}, {0, 8, 0, 0}, {0, 9, 0, 0}};
    const Mp4TrunBuild full[] = {{0xF05, -8, 0x2000000, rows, 2}};
    const Mp4TrunBuild bare[] = {{0, 0, 0, plain, 3}, {kTrunSize, 0, 0, plain, 3}};
    const Mp4TrafBuild trafs[] = {{{0x3B, 1, 0x100000000, 2, 3, 4, 5}, full, 1},
                                  {{0x020000, 2, 0, 0, 0, 0, 0}, bare, 2}};
    const Mp4MoofBuild moof{9, trafs, 2};
    TestHost host;
    const Bytes first = Atom(
        "traf",
        Tfhd({.base_offset = 0x100000000, .description = 2, .duration = 3, .size = 4, .flags = 5}),
        Trun({.data_offset = -8,
              .first_flags = 0x2000000,
              .row_flags = 0xF00,
              .count = 2,
              .words = {10, 100, 0x10000, 5, 11, 101, 0, 0xFFFFFFFB},
              .version = 1}));
    const Bytes second =
        Atom("traf", Tfhd({.track_id = 2, .more_flags = 0x20000}), Trun({.count = 3}),
             Trun({.row_flags = 0x200, .count = 3, .words = {7, 8, 9}}));
    EXPECT_EQ(Written(host, mp4_write_moof, moof), Moof(9, {first, second}));
}

}  // namespace
}  // namespace tarn
