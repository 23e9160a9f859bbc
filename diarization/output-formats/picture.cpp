// SPDX-License-Identifier: Apache-2.0
// The timeline as a picture for slides.

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "formats.h"
#include "timeline.h"

namespace {

constexpr double SCALE = 2;  // pixels a point

struct deleter {
    void operator()(cairo_t *c) const { cairo_destroy(c); }
    void operator()(cairo_surface_t *s) const { cairo_surface_destroy(s); }
};
using surface_ptr = std::unique_ptr<cairo_surface_t, deleter>;

void set_color(cairo_t *c, long rgb) {
    cairo_set_source_rgb(c, static_cast<double>(rgb >> 16) / 255, static_cast<double>(rgb >> 8 & 255) / 255,
                         static_cast<double>(rgb & 255) / 255);
}

void text_at(cairo_t *c, double x, double y, const std::string &text) {
    cairo_move_to(c, x, y);
    cairo_show_text(c, text.c_str());
}

double text_width(cairo_t *c, const std::string &text) {
    cairo_text_extents_t extents;
    cairo_text_extents(c, text.c_str(), &extents);
    return extents.x_advance;
}

void draw(cairo_t *c, const diarization &result) {
    const double height = height_of(result);
    set_color(c, 0xffffff);
    cairo_paint(c);
    cairo_select_font_face(c, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(c, 15);
    set_color(c, 0x222222);
    text_at(c, MARGIN, 24, result.recording + "  " + clock_time(result.duration));

    cairo_set_font_size(c, 13);
    double left = 60;
    for (const speaker &s : result.speakers) left = std::max(left, text_width(c, s.name));
    left = std::min(left, WIDTH / 3) + 2 * MARGIN;
    const double right = WIDTH - MARGIN;
    const auto x_of = [&](double seconds) {
        return left + (right - left) * seconds / std::max(result.duration, 1e-3);
    };
    const double bottom = height - AXIS;

    const double tick = tick_of(result.duration);
    cairo_set_line_width(c, 1);
    for (int i = 0; i * tick <= result.duration; i++) {
        const double t = i * tick;
        const double x = std::round(x_of(t)) + 0.5;
        set_color(c, 0xdddddd);
        cairo_move_to(c, x, TITLE);
        cairo_line_to(c, x, bottom + 4);
        cairo_stroke(c);
        set_color(c, 0x555555);
        const std::string label = clock_time(t).substr(0, clock_time(t).size() - (tick < 1 ? 2 : 4));
        text_at(c, std::min(x - text_width(c, label) / 2, right - text_width(c, label)), bottom + 20, label);
    }
    for (size_t k = 0; k < result.speakers.size(); k++) {
        const double top = TITLE + LANE * static_cast<double>(k);
        set_color(c, 0x222222);
        text_at(c, MARGIN, top + LANE / 2 + 5, result.speakers[k].name);
        set_color(c, std::strtol(speaker_color(static_cast<int>(k)) + 1, nullptr, 16));
        for (const segment &s : result.segments) {
            if (static_cast<size_t>(s.speaker) != k) continue;
            cairo_rectangle(c, x_of(s.start), top + 5, std::max(0.5, x_of(s.end) - x_of(s.start)), LANE - 10);
            cairo_fill(c);
        }
    }
}

cairo_status_t append(void *text, const unsigned char *data, unsigned int length) {
    static_cast<std::string *>(text)->append(reinterpret_cast<const char *>(data), length);
    return CAIRO_STATUS_SUCCESS;
}

void draw_on(const surface_ptr &surface, double scale, const diarization &result) {
    const std::unique_ptr<cairo_t, deleter> c(cairo_create(surface.get()));
    cairo_scale(c.get(), scale, scale);
    draw(c.get(), result);
    if (const cairo_status_t status = cairo_status(c.get()); status != CAIRO_STATUS_SUCCESS)
        throw std::runtime_error(std::string("picture: ") + cairo_status_to_string(status));
}

}  // namespace

std::string write_png(const diarization &result, const parley_terminal &) {
    const auto pixels = [](double points) { return static_cast<int>(std::ceil(points * SCALE)); };
    const surface_ptr surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, pixels(WIDTH), pixels(height_of(result))));
    draw_on(surface, SCALE, result);
    std::string data;
    if (cairo_surface_write_to_png_stream(surface.get(), append, &data) != CAIRO_STATUS_SUCCESS)
        throw std::runtime_error("picture: cannot be encoded");
    return data;
}
