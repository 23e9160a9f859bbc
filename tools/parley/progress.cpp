#include "progress.h"

#include <cmath>
#include <cstdio>
#include <numeric>
#include <string>

namespace parley {

namespace {

constexpr double SILENT = 1.0;    // seconds before there is anything to see
constexpr double INTERVAL = 0.1;  // seconds between two drawings
constexpr int CELLS = 20;

// "12 min", "45 s", "1 h 20 min"
std::string duration(double seconds) {
    const long rounded = std::lround(seconds);
    if (rounded < 60) return std::to_string(rounded) + " s";
    if (rounded < 3600) return std::to_string((rounded + 30) / 60) + " min";
    return std::to_string(rounded / 3600) + " h " + std::to_string(rounded % 3600 / 60) + " min";
}

}  // namespace

progress_line::progress_line(size_t total, size_t workers, bool shown)
    : total_(total),
      shares_(workers),
      shown_(shown),
      start_(std::chrono::steady_clock::now()),
      last_(start_) {}

double progress_line::seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void progress_line::update(size_t worker, double done) {
    const std::lock_guard lock(mutex_);
    shares_[worker] = done;
    const auto now = std::chrono::steady_clock::now();
    if (!shown_ || seconds() < SILENT || std::chrono::duration<double>(now - last_).count() < INTERVAL)
        return;
    last_ = now;
    draw();
}

void progress_line::finish(size_t worker) {
    const std::lock_guard lock(mutex_);
    shares_[worker] = 0;
    done_++;
}

void progress_line::draw() {
    const double share = (static_cast<double>(done_) + std::accumulate(shares_.begin(), shares_.end(), 0.0)) /
                         static_cast<double>(total_);
    const double spent = seconds();
    const int filled = static_cast<int>(CELLS * share);
    std::string bar(static_cast<size_t>(filled), '#');
    bar.resize(CELLS, '.');
    std::string text = "[" + bar + "] " + std::to_string(static_cast<int>(100 * share)) + " %";
    if (total_ > 1) text += ", " + std::to_string(done_) + " of " + std::to_string(total_) + " recordings";
    text += ", " + duration(spent);
    if (share > 0.02) text += ", " + duration(spent / share - spent) + " left";
    std::fprintf(stderr, "\r\033[K%s", text.c_str());
    drawn_ = true;
}

void progress_line::clear() {
    const std::lock_guard lock(mutex_);
    if (drawn_) std::fputs("\r\033[K", stderr);
    drawn_ = false;
}

}  // namespace parley
