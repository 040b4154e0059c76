#include "cli/waveform_picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace tarn {
namespace {

struct Colour {
    uint8_t red, green, blue;
};
constexpr Colour kBackground{0x14, 0x15, 0x19}, kLane{0x1B, 0x1D, 0x23}, kGrid{0x29, 0x2C, 0x35},
    kCentre{0x4A, 0x42, 0x3C}, kLabel{0x8C, 0x90, 0x9C};
constexpr Colour kPeak{0xC8, 0x6A, 0x2B}, kBody{0xFF, 0xB8, 0x66};  // outline and loudness

constexpr uint32_t kMargin = 16, kLaneHeight = 190, kLaneGap = 8, kRuler = 30;
constexpr uint32_t kHeight = kMargin + 2 * kLaneHeight + kLaneGap + kRuler;
constexpr double kFullScale = 0.94 * kLaneHeight / 2;  // pixels above the centre

// Five columns by seven rows, a byte a row.
constexpr uint32_t kGlyphWidth = 5, kGlyphHeight = 7, kGlyphStep = 6, kLabelGap = 4;
constexpr char kGlyphs[] = "0123456789:.";
constexpr uint8_t kFont[][kGlyphHeight] = {
    {14, 17, 19, 21, 25, 17, 14}, {4, 12, 4, 4, 4, 4, 14},  {14, 17, 1, 2, 4, 8, 31},
    {31, 2, 4, 2, 1, 17, 14},     {2, 6, 10, 18, 31, 2, 2}, {31, 16, 30, 1, 1, 17, 14},
    {6, 8, 16, 30, 17, 17, 14},   {31, 1, 2, 4, 8, 8, 8},   {14, 17, 17, 14, 17, 17, 14},
    {14, 17, 17, 15, 1, 2, 12},   {0, 4, 4, 0, 4, 4, 0},    {0, 0, 0, 0, 0, 12, 12},
};

class Canvas {
public:
    explicit Canvas(uint32_t width)
        : m_picture{width, kHeight, std::vector<uint8_t>(size_t{3} * width * kHeight)} {
        Fill(0, 0, width, kHeight, kBackground);
    }
    // `cover` 0 leaves the pixel, 1 paints it over.
    void Mix(uint32_t x, uint32_t y, Colour colour, double cover) {
        if (x >= m_picture.width || y >= kHeight) return;
        uint8_t* pixel = m_picture.rgb.data() + 3 * (size_t{y} * m_picture.width + x);
        const uint8_t parts[] = {colour.red, colour.green, colour.blue};
        for (int i = 0; i < 3; ++i)
            pixel[i] = static_cast<uint8_t>(std::lround(pixel[i] + cover * (parts[i] - pixel[i])));
    }
    void Fill(uint32_t x, uint32_t y, uint32_t width, uint32_t height, Colour colour) {
        for (uint32_t row = y; row < y + height; ++row)
            for (uint32_t column = x; column < x + width; ++column)
                Mix(column, row, colour, 1);
    }
    // A column from `top` to `bottom`, whose ends may lie inside a pixel.
    void Column(uint32_t x, double top, double bottom, Colour colour) {
        for (auto y = static_cast<uint32_t>(top); y < bottom; ++y)
            Mix(x, y, colour, std::min(bottom, y + 1.0) - std::max<double>(top, y));
    }
    void Text(uint32_t x, uint32_t y, const std::string& text) {
        for (const char c : text) {
            const size_t glyph = std::string(kGlyphs).find(c);
            for (uint32_t i = 0; i < kGlyphWidth * kGlyphHeight; ++i)
                if (kFont[glyph][i / kGlyphWidth] >> (kGlyphWidth - 1 - i % kGlyphWidth) & 1)
                    Mix(x + i % kGlyphWidth, y + i / kGlyphWidth, kLabel, 1);
            x += kGlyphStep;
        }
    }
    Picture Take() { return std::move(m_picture); }

private:
    Picture m_picture;
};

std::string time_text(double seconds, double step) {
    char text[32];
    const auto whole = static_cast<uint64_t>(seconds + 1e-6);
    const unsigned hours = static_cast<unsigned>(whole / 3600);
    const unsigned minutes = static_cast<unsigned>(whole / 60 % 60);
    const unsigned rest = static_cast<unsigned>(whole % 60);
    if (hours > 0) {
        std::snprintf(text, sizeof text, "%u:%02u:%02u", hours, minutes, rest);
    } else if (step < 1) {
        std::snprintf(text, sizeof text, "%u:%05.2f", minutes, std::fmod(seconds, 60));
    } else {
        std::snprintf(text, sizeof text, "%u:%02u", minutes, rest);
    }
    return text;
}

// Vertical lines at round times, with room for a label at each.
void draw_grid(Canvas* canvas, uint32_t lane_width, double seconds) {
    constexpr double kSteps[] = {0.01, 0.02, 0.05, 0.1,  0.2,   0.5,   1,     2,
                                 5,    10,   15,   30,   60,    120,   300,   600,
                                 1200, 1800, 3600, 7200, 14400, 28800, 86400, 604800};
    constexpr double kRoom = 72;  // pixels
    const double* step = std::find_if(std::begin(kSteps), std::end(kSteps) - 1,
                                      [&](double s) { return lane_width * s >= kRoom * seconds; });
    const uint32_t bottom = kHeight - kRuler;
    const double spacing = lane_width * *step / seconds;
    for (uint32_t i = 0; i * spacing < lane_width; ++i) {
        const uint32_t x = kMargin + static_cast<uint32_t>(i * spacing);
        canvas->Fill(x, kMargin, 1, bottom - kMargin + 5, kGrid);
        const std::string label = time_text(i * *step, *step);
        const auto width = static_cast<uint32_t>(label.size()) * kGlyphStep;
        if (x + kLabelGap + width <= kMargin + lane_width)
            canvas->Text(x + kLabelGap, bottom + 9, label);
    }
}

// The channel's course between two places, in points. Between two points it is a straight line.
class Course {
public:
    explicit Course(const WaveformRow& points) : m_points(points) {}

    struct Span {
        double largest, smallest, loudness;  // -1 to 1; loudness is the root of the mean square
    };
    Span Over(double from, double to) const {
        double largest = At(from), smallest = largest, squares = largest * largest;
        size_t count = 1;
        const auto add = [&](double value) {
            largest = std::max(largest, value);
            smallest = std::min(smallest, value);
            squares += value * value;
            ++count;
        };
        for (auto i = static_cast<size_t>(from) + 1; static_cast<double>(i) < to; ++i)
            add(Point(i));
        add(At(to));
        return {largest, smallest, std::sqrt(squares / static_cast<double>(count))};
    }

private:
    double Point(size_t i) const { return m_points[std::min(i, m_points.size() - 1)] / 128.0; }
    double At(double place) const {
        const auto i = static_cast<size_t>(place);
        const double part = place - static_cast<double>(i);
        return Point(i) * (1 - part) + Point(i + 1) * part;
    }
    const WaveformRow& m_points;
};

void draw_channel(Canvas* canvas, uint32_t top, uint32_t lane_width, const WaveformRow& points) {
    constexpr double kThinnest = 0.5;     // half of a line in silence, pixels
    constexpr double kCentreCover = 0.4;  // of the centre line over the sound
    const double centre = top + kLaneHeight / 2.0;
    canvas->Fill(kMargin, top + kLaneHeight / 2, lane_width, 1, kCentre);
    if (points.empty()) return;
    const Course course(points);
    const double step = static_cast<double>(points.size()) / lane_width;
    for (uint32_t x = 0; x < lane_width; ++x) {
        const Course::Span span = course.Over(x * step, (x + 1) * step);
        const double up = centre - span.largest * kFullScale - kThinnest;
        const double down = centre - span.smallest * kFullScale + kThinnest;
        canvas->Column(kMargin + x, up, down, kPeak);
        const double body = span.loudness * kFullScale;
        canvas->Column(kMargin + x, std::max(up, centre - body), std::min(down, centre + body),
                       kBody);
        canvas->Mix(kMargin + x, top + kLaneHeight / 2, kCentre, kCentreCover);
    }
}

}  // namespace

Picture DrawWaveform(const PeakSource& peaks, uint32_t width) {
    width = std::clamp(width, kNarrowestPicture, kWidestPicture);
    const uint32_t lane_width = width - 2 * kMargin;
    Canvas canvas(width);
    const uint32_t tops[] = {kMargin, kMargin + kLaneHeight + kLaneGap};
    for (const uint32_t top : tops)
        canvas.Fill(kMargin, top, lane_width, kLaneHeight, kLane);
    if (peaks.GetCount() > 0)
        draw_grid(&canvas, lane_width,
                  double{1.0} * peaks.GetCount() / PeakSource::PointsPerSecond());
    for (const int channel : {0, 1})
        draw_channel(&canvas, tops[channel], lane_width, peaks.GetPoints(channel));
    return canvas.Take();
}

}  // namespace tarn
