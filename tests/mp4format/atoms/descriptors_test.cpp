#include "mp4format/atoms/descriptors.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

TEST(Descriptors, MadeFromFields) {
    TestHost host;
    Bytes url = Text("there");
    Mp4EsDescriptor es{};
    es.has_es = true;
    es.es_id = 7;
    es.flags = 0xE3;
    es.depends_on_es_id = 8;
    es.ocr_es_id = 9;
    es.url = {url.data(), 5};
    const Bytes es_fields = Join(Be16({7}), Bytes{0xE3}, Be16({8}), Bytes{5}, url, Be16({9}));
    EXPECT_EQ(Written(host, mp4_write_esds, es), FullAtom("esds", 0, 0, Descriptor(3, es_fields)));
    es.url.size = 256;
    EXPECT_EQ(DryRun(host, mp4_write_esds, es), FF4_RET_OVERFLOW);
}

}  // namespace
}  // namespace tarn
