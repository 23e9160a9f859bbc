// SPDX-License-Identifier: Apache-2.0
#include "progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <string>

#include "system.h"

namespace parley {

namespace {

constexpr double SILENT = 1.0;    // seconds before there is anything to see
constexpr double INTERVAL = 0.1;  // seconds between two drawings
constexpr size_t CELLS = 20, FEWEST_CELLS = 6;
constexpr int SHORTEST_LINE = 20;  // columns

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
    // What a narrow terminal has no room for is left out, the first to go last.
    std::string text = std::to_string(static_cast<int>(100 * share)) + " %";
    const auto columns = static_cast<size_t>(std::max(columns_of_terminal(stderr), SHORTEST_LINE));
    const auto add = [&text, columns](const std::string &part) {
        if (text.size() + part.size() < columns) text += part;
    };
    if (share > 0.02) add(", " + duration(spent / share - spent) + " left");
    if (total_ > 1) add(", " + std::to_string(done_) + " of " + std::to_string(total_) + " recordings");
    add(", " + duration(spent));
    if (const size_t room = columns - text.size(); room > FEWEST_CELLS + 3) {
        const size_t cells = std::min(CELLS, room - 4);
        std::string bar(static_cast<size_t>(static_cast<double>(cells) * share), '#');
        bar.resize(cells, '.');
        text.insert(0, "[" + bar + "] ");
    }
    std::fprintf(stderr, "\r\033[K%s", text.c_str());
    drawn_ = true;
}

void progress_line::clear() {
    const std::lock_guard lock(mutex_);
    if (drawn_) std::fputs("\r\033[K", stderr);
    drawn_ = false;
}

}  // namespace parley
