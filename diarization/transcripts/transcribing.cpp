// SPDX-License-Identifier: Apache-2.0
#include "transcribing.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <exception>
#include <fstream>
#include <mutex>
#include <system_error>
#include <thread>

#include "channels.h"
#include "errors.h"
#include "formats.h"
#include "recording_pieces.h"
#include "system.h"

namespace {

// The samples of a stretch as a WAV file.
void write_wav(const std::string &path, const int16_t *samples, uint32_t count) {
    const uint32_t size = count * 2, rate = RATE, bytes_a_second = rate * 2;
    const auto number = [](uint32_t value, int bytes) {
        std::string text;
        for (int i = 0; i < bytes; i++) text += static_cast<char>(value >> 8 * i & 255);
        return text;
    };
    std::string content = "RIFF" + number(size + 36, 4) + "WAVEfmt " + number(16, 4) + number(1, 2) +
                          number(1, 2) + number(rate, 4) + number(bytes_a_second, 4) + number(2, 2) +
                          number(16, 2) + "data" + number(size, 4);
    content.reserve(content.size() + size);
    for (uint32_t i = 0; i < count; i++) {
        content += static_cast<char>(samples[i] & 255);
        content += static_cast<char>(samples[i] >> 8 & 255);
    }
    std::ofstream file(file_at(path), std::ios::binary);
    if (!file.write(content.data(), static_cast<std::streamsize>(content.size())).flush())
        throw diarization_error(PARLEY_FAILED, path + ": cannot be written");
}

// The last line of what a program complained of, where most tell what is wrong.
std::string last_line(const std::string &text) {
    const size_t end = text.find_last_not_of(" \t\r\n");
    if (end == std::string::npos) return "it says nothing about it";
    const size_t begin = text.find_last_of("\r\n", end) + 1;
    return text.substr(begin, end + 1 - begin);
}

[[noreturn]] void refuse_to_go_on() {
    throw diarization_error(PARLEY_CANCELLED, "transcribing was cancelled");
}

// One piece after the other, or several at once.
class transcriber {
public:
    transcriber(const zx_parley_samples_t &samples, const diarization &result, const transcription &how,
                const progress_function &progress)
        : samples_(samples),
          how_(how),
          progress_(progress),
          pieces_(pieces_of(result, how.used.longest, how.by_turn)) {
        for (const span &p : pieces_) seconds_ += p.end - p.start;
    }

    // The calling thread watches the others: progress is told there alone.
    std::vector<spoken_word> run() {
        const int jobs = how_.used.takes_a_core ? std::min(how_.jobs, static_cast<int>(pieces_.size())) : 1;
        std::vector<std::thread> workers;
        for (int i = 0; i < jobs && !pieces_.empty(); i++) {
            try {
                num_working_++;
                workers.emplace_back([this] { work(); });
            } catch (const std::system_error &) {  // no more of them
                num_working_--;
                if (workers.empty()) throw;
                break;
            }
        }
        bool is_cancelled = false;
        while (num_working_ > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            if (progress_ && !progress_(done_ / std::max(seconds_, 1.0))) has_to_stop_ = is_cancelled = true;
        }
        for (std::thread &worker : workers) worker.join();
        if (failure_) std::rethrow_exception(failure_);
        if (is_cancelled) refuse_to_go_on();
        std::stable_sort(words_.begin(), words_.end(),
                         [](const spoken_word &a, const spoken_word &b) { return a.start < b.start; });
        return std::move(words_);
    }

private:
    void work() {
        try {
            for (size_t i; !has_to_stop_ && (i = next_++) < pieces_.size();) {
                const scratch_folder folder;
                const std::vector<spoken_word> found = words_in(pieces_[i], folder.path());
                const std::lock_guard lock(mutex_);
                words_.insert(words_.end(), found.begin(), found.end());
                done_ = done_ + pieces_[i].end - pieces_[i].start;
            }
        } catch (...) {
            const std::lock_guard lock(mutex_);
            if (!failure_) failure_ = std::current_exception();
            has_to_stop_ = true;
        }
        num_working_--;
    }

    std::vector<spoken_word> words_in(const span &piece, const std::string &folder) {
        const auto first = static_cast<uint32_t>(std::llround(piece.start * RATE));
        const auto last = std::min(static_cast<uint32_t>(std::llround(piece.end * RATE)),
                                   static_cast<uint32_t>(samples_.count));
        if (last <= first) return {};
        write_wav(folder + "/audio.wav", samples_.pcm + first, last - first);
        const program_outcome outcome = run_program(filled_command(how_.used, how_.arguments, folder),
                                                    how_.time_limit, [this] { return !has_to_stop_; });
        const auto fail = [&](const std::string &why) {
            throw diarization_error(PARLEY_FAILED, how_.used.name + " on " + clock_time(piece.start) +
                                                       " to " + clock_time(piece.end) + ": " + why);
        };
        const std::string complaint = outcome.errors + "\n" + content_of_file(folder + "/words.log");
        switch (outcome.end) {
            case program_end::not_started:
                throw diarization_error(PARLEY_MISSING,
                                        how_.used.command[0] + " is not installed; " + how_.used.remedy);
            case program_end::stopped:
                refuse_to_go_on();
            case program_end::too_slow:
                fail("it took longer than " + std::to_string(std::lround(how_.time_limit)) + " s");
                break;
            case program_end::itself:
                if (outcome.status != 0)
                    fail("exit status " + std::to_string(outcome.status) + ": " + last_line(complaint));
        }
        const bool writes_file = !how_.used.output.empty();
        const std::string output = writes_file ? written_output(how_.used, folder) : "";
        if (writes_file && output.empty()) fail("it wrote no words: " + last_line(complaint));
        const std::string text = writes_file ? content_of_file(output) : outcome.output;
        if (text.find_first_not_of(" \t\r\n") == std::string::npos) return {};
        std::vector<spoken_word> found;
        try {
            found = find_words(text, speakers_over_time({}, 0));
        } catch (const std::runtime_error &error) {
            fail(std::string("what it gives cannot be read: ") + error.what());
        }
        for (spoken_word &word : found) {
            word.start = std::min(piece.start + word.start, piece.end);
            word.end = std::min(piece.start + word.end, piece.end);
        }
        return found;
    }

    const zx_parley_samples_t &samples_;
    const transcription &how_;
    const progress_function &progress_;
    std::vector<span> pieces_;
    double seconds_ = 0;
    std::atomic<size_t> next_ = 0;
    std::atomic<int> num_working_ = 0;
    std::atomic<bool> has_to_stop_ = false;
    std::atomic<double> done_ = 0;
    std::mutex mutex_;  // guards what follows
    std::vector<spoken_word> words_;
    std::exception_ptr failure_;
};

}  // namespace

std::vector<spoken_word> transcribe(const zx_parley_samples_t &samples, const diarization &result,
                                    const transcription &how, const speakers_over_time &speakers,
                                    const progress_function &progress) {
    std::vector<spoken_word> words = transcriber(samples, result, how, progress).run();
    for (spoken_word &word : words) word.speaker = speakers.at(word.start, word.end);
    return words;
}
