#include "diarizer.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <map>
#include <set>

#include "channels.h"
#include "zx_audio_file.h"
#include "zx_error.h"
#include "zx_heap.h"
#include "zx_parley_internal.h"

namespace {

constexpr double FRAME_SECONDS = static_cast<double>(ZX_PARLEY_FRAME_LENGTH) / 16000;

struct engine_deleter {
    void operator()(zx_parley_t *engine) const { zx_parley_delete(engine); }
};

// The messages that the engine left, with a status.
[[noreturn]] void fail(zx_status_t status) {
    char **stack = nullptr;
    int32_t depth = 0;
    (void) zx_get_error_stack(&stack, &depth);  // whatever it says, `stack` and `depth` are right
    const std::vector<std::string> messages(stack, stack + depth);
    zx_free_error_stack(stack);
    throw engine_error(status, messages);
}

void check(zx_status_t status) {
    if (status != ZX_STATUS_SUCCESS) fail(status);
}

std::vector<int16_t> read_samples(const std::string &path) {
    zx_error_prepare();
    zx_audio_file_t *opened = nullptr;
    zx_status_t status = zx_audio_file_init(path.c_str(), &opened);
    if (status != ZX_STATUS_SUCCESS) {
        zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_module_init_internal, "zx_audio_file",
                           zx_status_to_string(status));
        fail(status);
    }
    const std::unique_ptr<zx_audio_file_t, zx_deleter<zx_audio_file_delete>> file(opened);
    const int32_t count = zx_audio_file_num_samples(file.get());
    std::vector<int16_t> samples(static_cast<size_t>(count) + 1);  // reading may write one more
    check(zx_audio_file_read(file.get(), count, samples.data()));
    samples.resize(static_cast<size_t>(count));
    return samples;
}

std::vector<float> draw_waveform(const std::vector<int16_t> &samples) {
    const size_t step = 16000 / WAVEFORM_RATE;
    std::vector<float> peaks;
    for (size_t at = 0; at < samples.size(); at += step) {
        int loudest = 0;
        for (size_t i = at; i < std::min(at + step, samples.size()); i++)
            loudest = std::max(loudest, std::abs(int{samples[i]}));
        peaks.push_back(std::min(1.0f, static_cast<float>(loudest) / 32767));
    }
    return peaks;
}

// The embeddings of all frames, one after the other.
struct frames {
    std::vector<float> values;
    int32_t count;
    int32_t size;

    const float *at(int32_t frame) const { return values.data() + int64_t{frame} * size; }
};

std::vector<float> mean_of(const frames &all, const std::vector<int32_t> &which) {
    std::vector<float> mean(static_cast<size_t>(all.size));
    for (int32_t f : which)
        for (int32_t i = 0; i < all.size; i++) mean[static_cast<size_t>(i)] += all.at(f)[i];
    double squares = 0;
    for (float v : mean) squares += double{v} * double{v};
    const double length = std::sqrt(squares);
    if (length > 0)
        for (float &v : mean) v = static_cast<float>(double{v} / length);
    return mean;
}

double distance(const std::vector<float> &a, const std::vector<float> &b) {
    double product = 0;
    for (size_t i = 0; i < a.size(); i++) product += double{a[i]} * double{b[i]};
    return (1 - product) / 2;
}

int count_speakers(const std::vector<uint32_t> &tags) {
    std::set<uint32_t> different(tags.begin(), tags.end());
    different.erase(0);
    return static_cast<int>(different.size());
}

std::map<uint32_t, std::vector<float>> centroids_of(const frames &all, const std::vector<uint32_t> &tags) {
    std::map<uint32_t, std::vector<int32_t>> members;
    for (int32_t f = 0; f < all.count; f++)
        if (const uint32_t tag = tags[static_cast<size_t>(f)]) members[tag].push_back(f);
    std::map<uint32_t, std::vector<float>> result;
    for (const auto &[tag, list] : members) result[tag] = mean_of(all, list);
    return result;
}

// The two speakers nearest to each other become one until there are no more than `most`.
void join_nearest(const frames &all, std::vector<uint32_t> *tags, int most) {
    for (auto centroids = centroids_of(all, *tags); static_cast<int>(centroids.size()) > most;
         centroids = centroids_of(all, *tags)) {
        double nearest = std::numeric_limits<double>::max();
        uint32_t keep = 0, drop = 0;
        for (auto a = centroids.begin(); a != centroids.end(); ++a) {
            for (auto b = std::next(a); b != centroids.end(); ++b) {
                if (const double d = distance(a->second, b->second); d < nearest) {
                    nearest = d;
                    keep = a->first;
                    drop = b->first;
                }
            }
        }
        std::replace(tags->begin(), tags->end(), drop, keep);
    }
}

}  // namespace

engine_error::engine_error(zx_status_t status_, std::vector<std::string> messages_)
    : std::runtime_error(zx_status_to_string(status_)), status(status_), messages(std::move(messages_)) {}

struct diarizer::state {
    std::unique_ptr<zx_parley_t, engine_deleter> engine;
    std::vector<float> thresholds;  // of the model

    zx_parley_cluster_param_t *cluster_param() { return engine->param->cluster; }

    void set_thresholds(const std::vector<float> &values) {
        cluster_param()->offline_threshold = values[0];
        cluster_param()->prune_threshold = values[1];
        cluster_param()->segment_threshold = values[2];
        cluster_param()->background_threshold = values[3];
    }

    frames embed(const std::vector<int16_t> &samples) {
        zx_parley_t *e = engine.get();
        frames all;
        all.count = static_cast<int32_t>(samples.size() / ZX_PARLEY_FRAME_LENGTH);
        all.size = e->param->classifier->embedding->output_dimension;
        std::vector<int16_t> feature(static_cast<size_t>(all.count) * ZX_PARLEY_FRAME_SIZE);
        all.values.resize(static_cast<size_t>(all.count) * static_cast<size_t>(all.size));
        check(zx_parley_internal_features(e, samples.data(), all.count, feature.data()));
        zx_parley_internal_preprocess(e, feature.data(), 2 * all.count);
        check(zx_parley_classifier_process(e->classifier, feature.data(), all.count, all.values.data()));
        return all;
    }

    std::vector<uint32_t> cluster(const frames &all, std::vector<float> values, float offline) {
        values[0] = offline;
        set_thresholds(values);
        std::vector<uint32_t> tags(static_cast<size_t>(all.count));
        uint32_t num_tags = 0;
        check(zx_parley_cluster_process(engine->cluster, all.values.data(), all.size, all.count, &num_tags,
                                        tags.data()));
        return tags;
    }

    // As the model would have it, unless the number of speakers is not the one asked for: then with the
    // offline threshold nearest to the model's at which it is, found by bisection; more speakers merge at a
    // higher one.
    std::vector<uint32_t> cluster_as_asked(const frames &all, const controls &wishes, std::string *note) {
        const std::vector<float> values = wishes.thresholds.value_or(thresholds);
        std::vector<uint32_t> tags = cluster(all, values, values[0]);
        const int most = wishes.max_speakers > 0 ? wishes.max_speakers : std::numeric_limits<int>::max();
        const int fewest = std::min(wishes.min_speakers, most);
        const auto fits = [&](int n) { return n >= fewest && n <= most; };
        const int found = count_speakers(tags);
        if (!fits(found)) {
            float near = values[0], far = found > most ? 1.0f : 0.0f;
            tags = cluster(all, values, far);
            for (int i = 0; i < 12; i++) {
                const float middle = (near + far) / 2;
                std::vector<uint32_t> there = cluster(all, values, middle);
                const int n = count_speakers(there);
                if (found > most ? n <= most : n >= fewest) {
                    far = middle;
                    tags = std::move(there);
                } else {
                    near = middle;
                }
            }
            // The step over the number asked for can be more than one speaker high. On the way down the
            // surplus joins its nearest; on the way up there is nobody to be had from nowhere.
            if (found > most && count_speakers(tags) < fewest) tags = cluster(all, values, near);
            join_nearest(all, &tags, most);
            if (count_speakers(tags) < fewest) {
                *note = "only " + std::to_string(count_speakers(tags)) + " speakers can be told apart";
            }
        }
        set_thresholds(thresholds);
        return tags;
    }

    // With tags in place of speakers.
    std::vector<segment> segments(const frames &all, const std::vector<uint32_t> &tags,
                                  const std::map<uint32_t, std::vector<float>> &centroids);
};

diarizer::diarizer(const std::string &model_path) : state_(std::make_unique<state>()) {
    zx_parley_t *engine = nullptr;
    check(zx_parley_init(model_path.c_str(), &engine));
    state_->engine.reset(engine);
    const zx_parley_cluster_param_t *param = state_->cluster_param();
    state_->thresholds = {param->offline_threshold, param->prune_threshold, param->segment_threshold,
                          param->background_threshold};
}

diarizer::~diarizer() = default;

namespace {

// Fills speakers and their talk time; segments carry tags until then. Tags are numbered in the order in which
// they are heard, unless they stand for channels.
void number_speakers(const controls &wishes, const std::map<uint32_t, std::vector<float>> &centroids,
                     diarization *result) {
    std::map<int, int> numbers;
    if (wishes.split_channels) {
        for (const auto &[tag, centroid] : centroids)
            numbers.try_emplace(static_cast<int>(tag), static_cast<int>(tag) - 1);
    }
    for (segment &s : result->segments)
        s.speaker = numbers.try_emplace(s.speaker, static_cast<int>(numbers.size())).first->second;
    result->speakers.resize(numbers.size());
    for (const auto &[tag, number] : numbers) {
        const auto at = static_cast<size_t>(number);
        result->speakers[at].embedding = centroids.at(static_cast<uint32_t>(tag));
        result->speakers[at].name =
            at < wishes.names.size() ? wishes.names[at] : wishes.speaker_prefix + std::to_string(number + 1);
    }
    for (const segment &s : result->segments)
        result->speakers[static_cast<size_t>(s.speaker)].seconds += s.end - s.start;
}

void refuse_short(size_t num_samples) {
    zx_error_prepare();
    if (num_samples >= ZX_PARLEY_FRAME_LENGTH) return;
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_invalid_argument_min, "num_samples",
                       static_cast<int32_t>(num_samples), ZX_PARLEY_FRAME_LENGTH);
    fail(ZX_STATUS_INVALID_ARGUMENT);
}

// Energy around every frame, over about a second, so that a word's own dips do not count.
std::vector<double> loudness(const std::vector<int16_t> &samples) {
    constexpr size_t REACH = 15;  // frames to either side
    const size_t count = samples.size() / ZX_PARLEY_FRAME_LENGTH;
    std::vector<double> sums(count + 1);
    for (size_t i = 0; i < count * ZX_PARLEY_FRAME_LENGTH; i++)
        sums[i / ZX_PARLEY_FRAME_LENGTH + 1] += static_cast<double>(samples[i]) * samples[i];
    for (size_t f = 0; f < count; f++) sums[f + 1] += sums[f];
    std::vector<double> result(count);
    for (size_t f = 0; f < count; f++)
        result[f] = sums[std::min(count, f + REACH + 1)] - sums[f > REACH ? f - REACH : 0];
    return result;
}

}  // namespace

std::vector<segment> diarizer::state::segments(const frames &all, const std::vector<uint32_t> &tags,
                                               const std::map<uint32_t, std::vector<float>> &centroids) {
    int32_t count = 0;
    zx_parley_segment_t *found = nullptr;
    check(zx_parley_internal_segment(engine.get(), tags.data(), all.count, &count, &found));
    const zx_heap_ptr<zx_parley_segment_t> owned(found);
    const float *reference = cluster_param()->reference_centroid;
    const std::vector<float> background(reference, reference + all.size);
    std::vector<segment> result;
    for (int32_t i = 0; i < count; i++) {
        const int32_t tag = found[i].speaker_tag;
        if (tag == 0) continue;
        const double start = static_cast<double>(found[i].start_sec);
        const double end = static_cast<double>(found[i].end_sec) + FRAME_SECONDS;
        std::vector<int32_t> inside;
        for (auto f = static_cast<int32_t>(std::lround(start / FRAME_SECONDS));
             f < std::min(all.count, static_cast<int32_t>(std::lround(end / FRAME_SECONDS))); f++) {
            inside.push_back(f);
        }
        const std::vector<float> mean = mean_of(all, inside);
        const auto key = static_cast<uint32_t>(tag);
        const double own = std::max(0.0, distance(mean, centroids.at(key)));
        double other = std::max(0.0, distance(mean, background));
        for (const auto &[rival, centroid] : centroids)
            if (rival != key) other = std::min(other, std::max(0.0, distance(mean, centroid)));
        const double confidence = own + other > 0 ? std::max(0.0, (other - own) / (other + own)) : 0.0;
        result.push_back({start, end, tag, confidence});
    }
    return result;
}

diarization diarizer::run(const std::string &path, const controls &wishes) {
    diarization result;
    result.path = path;
    result.recording = std::filesystem::path(path).stem().string();
    if (wishes.split_channels) {
        run_channels(path, wishes, &result);
        return result;
    }
    const std::vector<int16_t> samples = read_samples(path);
    refuse_short(samples.size());
    result.duration = static_cast<double>(samples.size()) / 16000;
    result.waveform = draw_waveform(samples);
    const frames all = state_->embed(samples);
    const std::vector<uint32_t> tags = state_->cluster_as_asked(all, wishes, &result.note);
    const auto centroids = centroids_of(all, tags);
    result.segments = state_->segments(all, tags, centroids);
    for (segment &s : result.segments) s.end = std::min(s.end, result.duration);
    tidy_segments(&result.segments, result.duration, wishes);
    number_speakers(wishes, centroids, &result);
    return result;
}

// Everything that is speech on a channel is its speaker's, but not what a louder channel leaks into it.
void diarizer::run_channels(const std::string &path, const controls &wishes, diarization *result) {
    constexpr double LEAK = 16;  // 12 dB
    const std::vector<std::vector<int16_t>> channels = read_channels(path);
    refuse_short(channels.front().size());
    result->duration = static_cast<double>(channels.front().size()) / 16000;
    std::vector<std::vector<double>> loud;
    loud.reserve(channels.size());
    for (const auto &samples : channels) loud.push_back(loudness(samples));
    std::map<uint32_t, std::vector<float>> centroids;
    for (size_t c = 0; c < channels.size(); c++) {
        const std::vector<float> wave = draw_waveform(channels[c]);
        result->waveform.resize(wave.size());
        for (size_t i = 0; i < wave.size(); i++) result->waveform[i] = std::max(result->waveform[i], wave[i]);
        const frames all = state_->embed(channels[c]);
        const std::vector<float> values = wishes.thresholds.value_or(state_->thresholds);
        std::vector<uint32_t> tags = state_->cluster(all, values, values[0]);
        state_->set_thresholds(state_->thresholds);
        for (size_t f = 0; f < tags.size(); f++) {
            double loudest = 0;
            for (const auto &other : loud) loudest = std::max(loudest, other[f]);
            if (tags[f] != 0) tags[f] = loud[c][f] * LEAK < loudest ? 0 : static_cast<uint32_t>(c + 1);
        }
        const auto own = centroids_of(all, tags);
        if (own.empty()) {
            centroids[static_cast<uint32_t>(c + 1)].resize(static_cast<size_t>(all.size));
            continue;
        }
        std::vector<segment> found = state_->segments(all, tags, own);
        for (segment &s : found) s.end = std::min(s.end, result->duration);
        tidy_segments(&found, result->duration, wishes);
        result->segments.insert(result->segments.end(), found.begin(), found.end());
        centroids.merge(std::map(own));
    }
    std::ranges::stable_sort(result->segments, {}, &segment::start);
    number_speakers(wishes, centroids, result);
}

void tidy_segments(std::vector<segment> *segments, double duration, const controls &wishes) {
    std::vector<segment> kept;
    for (const segment &s : *segments) {
        if (!kept.empty() && kept.back().speaker == s.speaker && wishes.merge_gap > 0 &&
            s.start - kept.back().end <= wishes.merge_gap) {
            segment &before = kept.back();
            const double a = before.end - before.start, b = s.end - s.start;
            if (a + b > 0) before.confidence = (a * before.confidence + b * s.confidence) / (a + b);
            before.end = s.end;
        } else {
            kept.push_back(s);
        }
    }
    std::erase_if(kept, [&wishes](const segment &s) { return s.end - s.start < wishes.min_duration; });
    std::vector<segment> padded = kept;
    for (size_t i = 0; i < kept.size(); i++) {
        const double before = i == 0 ? 0 : (kept[i - 1].end + kept[i].start) / 2;
        const double after = i + 1 == kept.size() ? duration : (kept[i].end + kept[i + 1].start) / 2;
        padded[i].start = std::max(kept[i].start - wishes.pad, std::min(before, kept[i].start));
        padded[i].end = std::min(kept[i].end + wishes.pad, std::max(after, kept[i].end));
    }
    *segments = std::move(padded);
}
