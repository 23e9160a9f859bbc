// The engine with its stages opened up, for what users ask of the tool beyond who spoke when: a number of
// speakers, thresholds of their own, confidences, an embedding of every speaker.
#ifndef PARLEY_TOOLS_DIARIZER_H
#define PARLEY_TOOLS_DIARIZER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "diarization.h"
#include "zx_base.h"

struct controls {
    std::optional<std::vector<float>>
        thresholds;  // offline, prune, segment, background; the model's if absent
    int min_speakers = 0;
    int max_speakers = 0;  // 0: as many as are found
    // Each channel is a speaker of its own: what is speech on it, unless another channel is 12 dB louder
    // there. The numbers of speakers above do not apply.
    bool split_channels = false;
    double merge_gap = 0;     // seconds: a speaker's segments that far apart become one
    double min_duration = 0;  // seconds: shorter segments are dropped
    double pad = 0;           // seconds added to either end, as far as neighbours leave room
    std::string speaker_prefix = "speaker ";
    std::vector<std::string> names;  // for the first speakers heard, instead of prefix and number
};

// The engine refused the model or a file: its status and its messages, the outermost first.
struct engine_error : std::runtime_error {
    engine_error(zx_status_t status, std::vector<std::string> messages);
    zx_status_t status;
    std::vector<std::string> messages;
};

class diarizer {
public:
    // Throws engine_error.
    explicit diarizer(const std::string &model_path);
    ~diarizer();
    diarizer(const diarizer &) = delete;
    diarizer &operator=(const diarizer &) = delete;

    // Reads and diarizes a file. Throws engine_error.
    diarization run(const std::string &path, const controls &wishes);

private:
    struct state;
    void run_channels(const std::string &path, const controls &wishes, diarization *result);

    std::unique_ptr<state> state_;
};

// Applies merge_gap, min_duration and pad, in that order, to segments ordered by start.
void tidy_segments(std::vector<segment> *segments, double duration, const controls &wishes);

#endif
