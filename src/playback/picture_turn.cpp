#include "playback/picture_turn.h"

namespace tarn {
namespace {

int sign(uint32_t number) {
    const auto value = static_cast<int32_t>(number);
    return (value > 0) - (value < 0);
}

struct Turn {
    int a, b, c, d;  // x' = a x + c y, y' = b x + d y; y points down
    int turn;
};

constexpr Turn kTurns[] = {{0, 1, -1, 0, 1}, {-1, 0, 0, -1, 2}, {0, -1, 1, 0, 3}, {-1, 0, 0, 1, 4},
                           {1, 0, 0, -1, 5}, {0, 1, 1, 0, 6},   {0, -1, -1, 0, 7}};

}  // namespace

int TurnOfMatrix(const uint32_t (&matrix)[9]) {
    const int a = sign(matrix[0]), b = sign(matrix[1]), c = sign(matrix[3]), d = sign(matrix[4]);
    for (const Turn& row : kTurns)
        if (row.a == a && row.b == b && row.c == c && row.d == d) return row.turn;
    return 0;
}

GstElementPtr MakePictureTurner(int turn) {
    GstElementPtr turner = MakeElement("videoflip", "Picture Turner");
    if (turner) g_object_set(turner.get(), "video-direction", turn, nullptr);
    return turner;
}

}  // namespace tarn
