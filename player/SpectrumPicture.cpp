#include "player/SpectrumPicture.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace velorine {

namespace {

constexpr int width = 1000;
constexpr int height = 560;
constexpr double left = 70.0;
constexpr double right = 20.0;
constexpr double top = 40.0;
constexpr double bottom = 55.0;
constexpr double lowestHz = 20.0;
constexpr double rangeDb = 90.0;
constexpr double gridDb = 10.0;

struct Colour {
    double red, green, blue;
};
constexpr Colour curveColours[] = {{0.55, 0.58, 0.62}, {0.05, 0.40, 0.75}};
constexpr Colour ink = {0.15, 0.17, 0.20};
constexpr Colour grid = {0.88, 0.89, 0.90};

struct CairoDeleter {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};

std::string frequencyText(double hz) {
    return hz < 1000.0 ? std::to_string(static_cast<int>(hz))
                       : std::to_string(static_cast<int>(hz / 1000.0)) + "k";
}

class Plot {
public:
    Plot(int streamRate, const std::vector<SpectrumCurve>& spectra)
        : surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)),
          context(cairo_create(surface.get())), rate(streamRate),
          highestHz(std::min(20'000.0, rate / 2.0)), curves(spectra) {
        double loudest = -200.0;
        for (std::size_t i = 0; i < curves.size(); ++i) {
            std::vector<double>& sums = totals.emplace_back(1, 0.0);
            for (const double power : curves[i].power)
                sums.push_back(sums.back() + power);
            for (double x = left; x <= width - right; x += 1.0)
                loudest = std::max(loudest, levelAt(i, x));
        }
        topDb = std::ceil(loudest / gridDb) * gridDb;
    }

    bool draw(const std::string& path, const std::string& title) {
        setColour({1.0, 1.0, 1.0});
        cairo_paint(context.get());
        drawGrid();
        for (std::size_t i = 0; i < curves.size(); ++i)
            drawCurve(i);
        setColour(ink);
        setFont(15.0);
        text(title, left, top - 16.0, 0.0);
        setFont(13.0);
        text("frequency, Hz", (left + width - right) / 2.0, height - 14.0, 0.5);
        text("dB", left - 12.0, top - 16.0, 1.0);
        return cairo_surface_write_to_png(surface.get(), path.c_str()) == CAIRO_STATUS_SUCCESS;
    }

private:
    double xOf(double hz) const {
        return left +
               std::log(hz / lowestHz) / std::log(highestHz / lowestHz) * (width - left - right);
    }
    double yOf(double db) const {
        const double clipped = std::clamp(db, topDb - rangeDb, topDb);
        return top + (topDb - clipped) / rangeDb * (height - top - bottom);
    }

    /// Mean level of the sixth of an octave around a place: as steady at high frequencies, where
    /// many bins meet in one place, as at low ones, where a bin spans many.
    double levelAt(std::size_t curve, double x) const {
        const double hz =
            lowestHz * std::pow(highestHz / lowestHz, (x - left) / (width - left - right));
        const double from = hz * std::exp2(-1.0 / 12.0);
        const double to = std::min(hz * std::exp2(1.0 / 12.0), rate / 2.0);
        const double hzPerBin = rate / 2.0 / static_cast<double>(curves[curve].power.size());
        const double power = powerBelow(curve, to / hzPerBin) - powerBelow(curve, from / hzPerBin);
        return 10.0 * std::log10(power / ((to - from) / hzPerBin) + 1e-20);
    }

    /// Sum of a curve's power up to a place between two bins.
    double powerBelow(std::size_t curve, double bin) const {
        const std::vector<double>& sums = totals[curve];
        const double place = std::clamp(bin, 0.0, static_cast<double>(sums.size() - 1));
        const auto whole = std::min(static_cast<std::size_t>(place), sums.size() - 2);
        const double share = place - static_cast<double>(whole);
        return sums[whole] + (sums[whole + 1] - sums[whole]) * share;
    }

    void drawGrid() {
        cairo_set_line_width(context.get(), 1.0);
        setFont(12.0);
        for (double db = topDb; db >= topDb - rangeDb; db -= gridDb) {
            line(left, yOf(db), width - right, yOf(db));
            setColour(ink);
            text(std::to_string(static_cast<int>(db)), left - 8.0, yOf(db) + 4.0, 1.0);
        }
        for (const double hz :
             {20.0, 50.0, 100.0, 200.0, 500.0, 1000.0, 2000.0, 5000.0, 10'000.0, 20'000.0}) {
            if (hz > highestHz) continue;
            line(xOf(hz), top, xOf(hz), height - bottom);
            setColour(ink);
            text(frequencyText(hz), xOf(hz), height - bottom + 18.0, 0.5);
        }
    }

    void drawCurve(std::size_t i) {
        setColour(curveColours[i % std::size(curveColours)]);
        cairo_new_path(context.get());
        cairo_set_line_width(context.get(), 2.0);
        for (double x = left; x <= width - right; x += 1.0)
            cairo_line_to(context.get(), x, yOf(levelAt(i, x)));
        cairo_stroke(context.get());
        const double y = top + 22.0 + 20.0 * static_cast<double>(i);
        cairo_move_to(context.get(), width - right - 150.0, y - 4.0);
        cairo_line_to(context.get(), width - right - 120.0, y - 4.0);
        cairo_stroke(context.get());
        setColour(ink);
        setFont(13.0);
        text(curves[i].label, width - right - 112.0, y, 0.0);
    }

    void line(double x0, double y0, double x1, double y1) {
        setColour(grid);
        cairo_move_to(context.get(), std::round(x0) + 0.5, std::round(y0) + 0.5);
        cairo_line_to(context.get(), std::round(x1) + 0.5, std::round(y1) + 0.5);
        cairo_stroke(context.get());
    }

    /// @param anchor  0: `x` is the text's left end, 1: its right one
    void text(const std::string& words, double x, double y, double anchor) {
        cairo_text_extents_t extents;
        cairo_text_extents(context.get(), words.c_str(), &extents);
        cairo_move_to(context.get(), x - extents.x_advance * anchor, y);
        cairo_show_text(context.get(), words.c_str());
    }

    void setFont(double size) {
        cairo_select_font_face(context.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                               CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(context.get(), size);
    }
    void setColour(const Colour& colour) {
        cairo_set_source_rgb(context.get(), colour.red, colour.green, colour.blue);
    }

    std::unique_ptr<cairo_surface_t, CairoDeleter> surface;
    std::unique_ptr<cairo_t, CairoDeleter> context;
    int rate;
    double highestHz;
    double topDb = 0.0;
    const std::vector<SpectrumCurve>& curves;
    std::vector<std::vector<double>> totals; ///< by curve: its power, added up
};

} // namespace

bool drawSpectra(const std::string& path, const std::string& title, int rate,
                 const std::vector<SpectrumCurve>& curves) {
    return Plot{rate, curves}.draw(path, title);
}

} // namespace velorine
