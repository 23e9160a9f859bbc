// SPDX-License-Identifier: Apache-2.0
#include "session.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "assignment.h"
#include "errors.h"
#include "zx_error.h"
#include "zx_memory.h"
#include "zx_parley_classifier.h"

session::session(diarizer *owner, const std::string &name, const parley_options &options,
                 int32_t num_channels, int32_t rate)
    : owner_(owner),
      name_(name),
      prefix_(options.speaker_prefix ? options.speaker_prefix : ""),
      names_(options.names ? options.names : ""),
      options_(options),
      num_channels_(num_channels),
      converter_(rate, RATE) {
    owner->check(options);
    if (options.channels != 0)
        throw diarization_error(PARLEY_INVALID, "channels are mixed while the recording goes on");
    options_.speaker_prefix = prefix_.c_str();
    options_.names = options.names ? names_.c_str() : nullptr;
    zx_memory_t *memory = nullptr;
    check_engine(zx_memory_init(&memory), "listening");
    zx_filterbank_t *filterbank = nullptr;
    check_engine(zx_filterbank_init(memory, ZX_PARLEY_HOP_LENGTH, &filterbank), "listening");
    filterbank_.reset(filterbank);
    size_ = owner->own_engine()->get()->param->classifier->embedding->output_dimension;
}

// ---- Samples to rows

// Converts in the blocks in which a whole recording is converted, so that every sample is the same.
void session::feed(const int16_t *interleaved, int64_t num_frames) {
    for (int64_t i = 0; i < num_frames; i++, interleaved += num_channels_) {
        int32_t sum = 0;
        for (int32_t c = 0; c < num_channels_; c++) sum += interleaved[c];
        pending_.push_back(static_cast<int16_t>(sum / num_channels_));
        if (pending_.size() < sample_converter::BLOCK) continue;
        hear(converter_.convert(pending_));
        pending_.clear();
    }
}

void session::hear(std::span<const int16_t> samples) {
    if (num_samples_ + static_cast<int64_t>(samples.size()) > INT32_MAX)
        throw diarization_error(PARLEY_INVALID, "more than 2^31 - 1 samples");
    num_samples_ += static_cast<int64_t>(samples.size());
    waveform_.add(samples.data(), samples.size());
    for (const int16_t sample : samples) {
        hop_.push_back(sample);
        if (hop_.size() < ZX_PARLEY_HOP_LENGTH) continue;
        rows_.resize(rows_.size() + ZX_FILTERBANK_NUM_BANDS);
        int16_t *row = &rows_[rows_.size() - ZX_FILTERBANK_NUM_BANDS];
        check_engine(zx_filterbank_compute(filterbank_.get(), hop_.data(), row), name_);
        hop_.clear();
    }
    const auto num_frames = static_cast<int32_t>(rows_.size() / ZX_PARLEY_FRAME_SIZE);
    meter_.add(rows_.data() + static_cast<size_t>(num_frames_) * ZX_PARLEY_FRAME_SIZE,
               2 * int64_t{num_frames - num_frames_});
    num_frames_ = num_frames;
}

// ---- Rows to embeddings

frames session::embeddings() const {
    return {embeddings_.data(), static_cast<int32_t>(embeddings_.size() / static_cast<size_t>(size_)), size_};
}

zx_parley_chunk_layout_t session::layout() const {
    const zx_parley_classifier_param_t *param = owner_->own_engine()->get()->param->classifier;
    return {num_frames_, param->chunk_length_frames, param->warmup_length_frames};
}

void session::embed_chunk(const zx_parley_chunk_t &chunk) {
    const auto size = static_cast<size_t>(size_);
    std::vector<float> vectors(static_cast<size_t>(chunk.length) * size);
    const auto begin = rows_.begin() + static_cast<std::ptrdiff_t>(chunk.start) * ZX_PARLEY_FRAME_SIZE;
    std::vector<int16_t> rows(begin,
                              begin + static_cast<std::ptrdiff_t>(chunk.length) * ZX_PARLEY_FRAME_SIZE);
    amplify(rows.data(), 2 * int64_t{chunk.length}, gain_);
    zx_parley_t *own = owner_->own_engine()->get();
    zx_error_prepare();
    zx_parley_internal_preprocess(own, rows.data(), 2 * chunk.length);
    check_engine(zx_parley_classifier_internal_process_chunk(own->classifier, rows.data(), chunk.length,
                                                             vectors.data()),
                 name_);
    embeddings_.resize(static_cast<size_t>(chunk.end_kept) * size);
    const auto from = vectors.begin() + static_cast<std::ptrdiff_t>(chunk.first_kept - chunk.start) * size_;
    std::copy(from, from + static_cast<std::ptrdiff_t>(chunk.end_kept - chunk.first_kept) * size_,
              embeddings_.begin() + static_cast<std::ptrdiff_t>(chunk.first_kept) * size_);
}

// A chunk that is complete, and not the last, is final, until the recording's level turns out to be another
// by more than `tolerance`.
void session::embed(int32_t tolerance) {
    const int32_t gain = owner_->own_engine()->gain_for(meter_.level());
    if (num_final_ == 0 || std::abs(gain - gain_) > tolerance) {
        gain_ = gain;
        num_final_ = 0;
    }
    const zx_parley_chunk_layout_t chunks = layout();
    for (; num_final_ + 1 < chunks.num_chunks(); num_final_++) embed_chunk(chunks.at(num_final_));
    embed_chunk(chunks.at(num_final_));
}

// ---- Embeddings to speakers

// Speakers of a new clustering take the numbers of those whose frames they have; others get numbers of their
// own.
void session::keep_numbers(const tags &found) {
    uint32_t highest = 0;
    for (const uint32_t tag : found) highest = std::max(highest, tag);
    std::vector<std::vector<double>> shared(highest, std::vector<double>(next_number_ - 1));
    for (size_t f = 0; f < std::min(found.size(), labels_.size()); f++)
        if (found[f] != 0 && labels_[f] != 0) shared[found[f] - 1][labels_[f] - 1]++;
    const std::vector<int> matched = shared.empty() ? std::vector<int>() : best_assignment(shared);
    std::vector<uint32_t> numbers(highest + 1);
    for (uint32_t tag = 1; tag <= highest; tag++) {
        const int known = matched[tag - 1];
        const bool is_known = known >= 0 && shared[tag - 1][static_cast<size_t>(known)] > 0;
        numbers[tag] = is_known ? static_cast<uint32_t>(known) + 1 : 0;
    }
    labels_.resize(found.size());
    for (size_t f = 0; f < found.size(); f++) {  // new ones in the order in which they are heard
        if (found[f] != 0 && numbers[found[f]] == 0) numbers[found[f]] = next_number_++;
        labels_[f] = numbers[found[f]];
    }
}

// What came since goes to the nearest of the speakers found, or to nobody, by the mean over half a second.
void session::extend() {
    constexpr int32_t REACH = 8;  // frames to either side
    const frames view = embeddings();
    const centroids means = centroids_of({view.values, static_cast<int32_t>(labels_.size()), size_}, labels_);
    const std::vector<float> nobody(owner_->own_engine()->background(),
                                    owner_->own_engine()->background() + size_);
    for (auto f = static_cast<int32_t>(labels_.size()); f < view.count; f++) {
        const std::vector<float> heard =
            mean_of(view, std::max(0, f - REACH), std::min(view.count, f + REACH + 1));
        double nearest = distance(heard, nobody);
        uint32_t number = 0;
        for (const auto &[tag, mean] : means) {
            if (const double away = distance(heard, mean); away < nearest) {
                nearest = away;
                number = tag;
            }
        }
        labels_.push_back(number);
    }
}

diarization session::empty_result() const {
    diarization result;
    result.path = result.recording = name_;
    result.model = owner_->own_engine()->id();
    result.duration = static_cast<double>(num_samples_) / RATE;
    result.waveform = waveform_.peaks();
    result.with_confidence = options_.confidence != 0;
    result.with_embeddings = options_.embeddings != 0;
    return result;
}

bool session::update(double share, diarization *state) {
    constexpr int32_t TOLERANCE = 307;  // 3 dB
    if (num_frames_ == 0 || static_cast<size_t>(num_frames_) == labels_.size()) return false;
    embed(TOLERANCE);
    const clock::time_point now = clock::now();
    const bool may_cluster =
        labels_.empty() || share * std::chrono::duration<double>(now - last_clustering_).count() >=
                               std::chrono::duration<double>(clustering_took_).count();
    if (may_cluster) {
        const clustering_result found = owner_->find(embeddings(), options_, nullptr);
        keep_numbers(found.labels);
        evidence_ = found.evidence;
        last_clustering_ = clock::now();
        clustering_took_ = last_clustering_ - now;
    } else {
        extend();
    }
    *state = empty_result();
    parley_options options = options_;
    options.overlap = 0;  // only once the recording is whole
    owner_->fill(embeddings(), labels_, evidence_, options, true, state);
    return true;
}

diarization session::end() {
    hear(converter_.convert(pending_));
    pending_.clear();
    if (num_frames_ == 0) throw diarization_error(PARLEY_INVALID, name_ + ": is shorter than 32 ms");
    embed(0);
    diarization result = empty_result();
    const clustering_result found = owner_->find(embeddings(), options_, nullptr);
    result.note = found.note;
    owner_->fill(embeddings(), found.labels, found.evidence, options_, false, &result);
    return result;
}
