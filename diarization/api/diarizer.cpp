// SPDX-License-Identifier: Apache-2.0
#include "diarizer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "channels.h"
#include "embeddings_file.h"
#include "errors.h"
#include "options.h"
#include "overlap_detection.h"
#include "readers.h"
#include "segments.h"
#include "system.h"

namespace {

enum channel_use : int32_t { MIXED, APART, LOUDEST };  // as `channels` counts them

constexpr int32_t LARGEST_NUMBER = 1000;
constexpr double LONGEST = 3600;  // seconds
constexpr const char *NOTHING_KEPT = "the result has not kept its embeddings (keep_embeddings)";

std::vector<float> waveform_of(const int16_t *samples, size_t count) {
    waveform_drawer waveform;
    waveform.add(samples, count);
    return waveform.peaks();
}

// Length and waveform, which was drawn already where samples became features as they were read.
void take_sound(const zx_parley_samples_t &samples, const waveform_drawer &drawn, diarization *result) {
    result->duration = static_cast<double>(samples.count) / RATE;
    result->waveform =
        samples.pcm ? waveform_of(samples.pcm, static_cast<size_t>(samples.count)) : drawn.peaks();
}

std::vector<std::string> split_names(const char *names) {
    std::vector<std::string> result;
    if (!names) return result;
    std::istringstream text(names);
    for (std::string name; std::getline(text, name, ',');) result.push_back(name);
    return result;
}

// Fills speakers and their talk time; segments carry tags until then. Tags are numbered in the order in which
// they are heard; `by_tag` they are named by it: as channels are, and speakers who keep their name.
void number_speakers(const parley_options &options, const centroids &means, bool by_tag,
                     diarization *result) {
    std::map<int, int> numbers;
    if (by_tag) {
        for (const auto &[tag, mean] : means)
            numbers.try_emplace(static_cast<int>(tag), static_cast<int>(numbers.size()));
    }
    for (segment &s : result->segments)
        s.speaker = numbers.try_emplace(s.speaker, static_cast<int>(numbers.size())).first->second;
    result->speakers.resize(numbers.size());
    const std::vector<std::string> names = split_names(options.names);
    for (const auto &[tag, number] : numbers) {
        speaker &named = result->speakers[static_cast<size_t>(number)];
        const auto place = static_cast<size_t>(by_tag ? tag - 1 : number);
        named.embedding = means.at(static_cast<uint32_t>(tag));
        named.name = place < names.size() ? names[place] : options.speaker_prefix + std::to_string(place + 1);
    }
    for (const segment &s : result->segments)
        result->speakers[static_cast<size_t>(s.speaker)].seconds += s.end - s.start;
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

// Cosines differ by 0.3 or so between what is clearly speech and what is clearly not.
double speech_bias_of(const parley_options &options) {
    return 0.6 * (options.sensitivity - 0.5);
}

segment_rules rules_of(const parley_options &options) {
    return {options.merge_gap, options.min_duration, options.pad};
}

// A segment for each stretch of a second speaker that is long enough. Its confidence is the probability that
// two speak.
void add_overlaps(const tags &labels, const std::vector<float> &log_odds, double min_duration,
                  std::vector<segment> *segments) {
    for (const run &r : runs_of(second_speakers(labels, log_odds))) {
        segment s = {r.start * FRAME_SECONDS, r.end * FRAME_SECONDS, static_cast<int>(r.tag),
                     overlap_probability(log_odds, r)};
        s.is_overlap = true;
        if (s.end - s.start >= min_duration) segments->push_back(s);
    }
    std::stable_sort(segments->begin(), segments->end(),
                     [](const segment &a, const segment &b) { return a.start < b.start; });
}

[[noreturn]] void refuse(const std::string &message) {
    throw diarization_error(PARLEY_INVALID, message);
}

// The mean of the channels, rounded towards zero.
std::vector<int16_t> mix(const given_samples &samples) {
    const auto channels = static_cast<size_t>(samples.num_channels);
    std::vector<int16_t> result(static_cast<size_t>(samples.num_frames));
    for (size_t i = 0; i < result.size(); i++) {
        int32_t sum = 0;
        for (size_t c = 0; c < channels; c++) sum += samples.values[i * channels + c];
        result[i] = static_cast<int16_t>(sum / samples.num_channels);
    }
    return result;
}

std::vector<std::vector<int16_t>> take_apart(const given_samples &samples) {
    const auto channels = static_cast<size_t>(samples.num_channels);
    std::vector<std::vector<int16_t>> result(channels);
    for (size_t c = 0; c < channels; c++) {
        for (int64_t i = 0; i < samples.num_frames; i++)
            result[c].push_back(samples.values[static_cast<size_t>(i) * channels + c]);
        result[c] = convert_rate(std::move(result[c]), samples.rate);
    }
    return result;
}

std::vector<std::vector<int16_t>> channels_of(const std::string &path, const given_samples *given,
                                              const parley_options &options) {
    return given ? take_apart(*given) : read_channels(path, longest_of(options));
}

zx_parley_samples_t borrowed(const std::vector<int16_t> &from) {
    if (from.size() > INT32_MAX) refuse("more than 2^31 - 1 samples");
    zx_parley_samples_t result;
    result.pcm = from.data();
    result.count = static_cast<int32_t>(from.size());
    return result;
}

// Samples at the engine's rate, which `holder` keeps if they had to be made.
zx_parley_samples_t take(const given_samples &samples, std::vector<int16_t> *holder) {
    if (samples.num_channels == 1 && samples.rate == RATE) {
        zx_parley_samples_t result;
        result.pcm = samples.values;
        result.count = static_cast<int32_t>(samples.num_frames);
        return result;
    }
    *holder = convert_rate(mix(samples), samples.rate);
    return borrowed(*holder);
}

}  // namespace

void check_options(const parley_options &o) {
    const auto number = [](const char *name, int32_t value, int32_t largest = LARGEST_NUMBER) {
        if (value < 0 || value > largest) {
            refuse(std::string(name) + " is " + std::to_string(value) + ", not a number from 0 to " +
                   std::to_string(largest));
        }
    };
    const auto seconds = [](const char *name, double value) {
        if (!(value >= 0 && value <= LONGEST)) refuse(std::string(name) + " takes from 0 to 3600 seconds");
    };
    number("min-speakers", o.min_speakers);
    number("max-speakers", o.max_speakers);
    seconds("merge-gap", o.merge_gap);
    seconds("min-duration", o.min_duration);
    seconds("pad", o.pad);
    if (!(o.max_duration >= 0)) refuse("max-duration takes a number of seconds");
    if (!(o.sensitivity >= 0 && o.sensitivity <= 1)) refuse("sensitivity takes from 0 to 1");
    number("channels", o.channels, LOUDEST);
    number("via-ffmpeg", o.via_ffmpeg, 2);
    number("jobs", o.jobs, PARLEY_MAX_JOBS);
    if (o.max_speakers > 0 && o.min_speakers > o.max_speakers) refuse("min-speakers is above max-speakers");
    if (o.channels == APART && o.max_speakers + o.min_speakers > 0)
        refuse("with channels apart the channels are the speakers: their number cannot be asked for");
    if (!o.speaker_prefix) refuse("the speaker prefix is missing");
    for (const double t : o.thresholds)
        if (!(t <= 1)) refuse("thresholds lie between 0 and 1");
    const std::vector<std::string> names = split_names(o.names);
    for (size_t i = 0; i < names.size(); i++) {
        if (names[i].empty()) refuse("a name is empty");
        if (std::count(names.begin(), names.end(), names[i]) > 1)
            refuse("the name " + names[i] + " is given twice");
    }
}

thresholds thresholds_of(const parley_options &options, const thresholds &own) {
    thresholds result;
    for (size_t i = 0; i < result.size(); i++)
        result[i] = options.thresholds[i] < 0 ? own[i] : options.thresholds[i];
    // Half or one and a half times the distance from the background that speech needs.
    for (const size_t i : {size_t{2}, size_t{3}})
        if (options.thresholds[i] < 0) result[i] *= 1.5 - options.sensitivity;
    return result;
}

clustering_policy policy_of(const parley_options &options, const thresholds &own) {
    return {thresholds_of(options, own), speech_bias_of(options), options.refine != 0};
}

clustering_result diarizer::find(const frames &embeddings, const parley_options &options,
                                 const progress_function &progress) {
    speaker_search search(&engine_, embeddings, policy_of(options, engine_.own_thresholds()), progress);
    return search.find(&engine_, options.min_speakers, options.max_speakers);
}

void diarizer::check(const parley_options &options) const {
    check_options(options);
    if (options.overlap != 0 && engine_.parameters().overlap.is_empty())
        refuse("the model cannot hear two speakers at once");
}

// With the search that was kept, where it asks for the same.
void diarizer::find_again(kept_embeddings *kept, const parley_options &options,
                          const progress_function &progress, diarization *result) {
    const clustering_policy policy = policy_of(options, engine_.own_thresholds());
    const std::lock_guard lock(kept->mutex);
    if (!kept->search || kept->search->policy() != policy)
        kept->search = std::make_unique<speaker_search>(&engine_, kept->rows.view(), policy, progress);
    const clustering_result found = kept->search->find(&engine_, options.min_speakers, options.max_speakers);
    if (!found.note.empty()) add_note(&result->note, found.note);
    fill(kept->rows.view(), found.labels, found.evidence, options, false, result);
}

diarization diarizer::recluster(const diarization &before, const parley_options &options) {
    check(options);
    if (!before.kept) throw diarization_error(PARLEY_INVALID, NOTHING_KEPT);
    if (before.model != engine_.id())
        throw diarization_error(PARLEY_INVALID, "the result is another model's");
    engine_.set_jobs(options.jobs);
    diarization result = before;
    result.note.clear();
    result.words.clear();
    result.speakers.clear();
    result.with_confidence = options.confidence != 0;
    result.with_embeddings = options.embeddings != 0;
    find_again(before.kept.get(), options, nullptr, &result);
    return result;
}

diarization diarizer::recluster_file(std::string_view bytes, const std::string &path,
                                     const parley_options &options) {
    recording_embeddings read = read_embeddings(bytes, path);
    diarization result;
    result.path = path;
    result.recording = stem_of(path);
    result.model = read.model;
    result.duration = static_cast<double>(read.num_samples) / RATE;
    result.waveform = std::move(read.waveform);
    const bool fits =
        read.model != engine_.id() || (read.rows.size == engine_.embedding_size() &&
                                       read.rows.count == read.num_samples / ZX_PARLEY_FRAME_LENGTH);
    if (!fits) refuse(path + ": the embeddings are damaged");
    result.kept = std::make_shared<kept_embeddings>(std::move(read.rows));
    return recluster(result, options);
}

std::string embeddings_of(const diarization &result) {
    if (!result.kept) refuse(NOTHING_KEPT);
    return write_embeddings(result.model, std::llround(result.duration * RATE), result.waveform,
                            result.kept->rows.view());
}

voice_sample sample_of(const diarization &result, int number, double start, double end) {
    if (number < 0 || number >= static_cast<int>(result.speakers.size()))
        throw diarization_error(PARLEY_INVALID,
                                "there are " + std::to_string(result.speakers.size()) + " speakers");
    using namespace std::chrono;
    const year_month_day today = floor<days>(system_clock::now());
    char date[32];
    std::snprintf(date, sizeof(date), "%04d-%02u-%02u", int(today.year()), unsigned(today.month()),
                  unsigned(today.day()));
    const speaker &heard = result.speakers[static_cast<size_t>(number)];
    voice_sample sample = {heard.embedding, heard.seconds, result.recording, date};
    if (!(end > start)) return sample;
    if (!result.kept) throw diarization_error(PARLEY_INVALID, NOTHING_KEPT);
    const frames embeddings = result.kept->rows.view();
    tags labels(static_cast<size_t>(embeddings.count));
    sample.seconds = 0;
    for (const segment &s : result.segments) {
        const double from = std::max(s.start, start), to = std::min(s.end, end);
        if (s.speaker != number || s.is_overlap || to <= from) continue;
        sample.seconds += to - from;
        const auto first = static_cast<size_t>(from / FRAME_SECONDS);
        const auto last = std::min(static_cast<size_t>(to / FRAME_SECONDS), labels.size());
        for (size_t f = first; f < last; f++) labels[f] = 1;
    }
    const centroids means = centroids_of(embeddings, labels);
    if (!means.empty()) sample.vector = means.begin()->second;
    return sample;
}

voice_function voice_of(const diarization &result) {
    if (!result.kept) return nullptr;
    return [&result](double start, double end) -> std::string {
        const frames embeddings = result.kept->rows.view();
        const int32_t first = std::clamp(static_cast<int32_t>(start / FRAME_SECONDS), 0, embeddings.count);
        const int32_t last = std::min(static_cast<int32_t>(std::ceil(end / FRAME_SECONDS)), embeddings.count);
        if (last <= first) return "";
        const std::vector<float> heard = mean_of(embeddings, first, last);
        const speaker *nearest = nullptr;
        double highest = -2;
        for (const speaker &s : result.speakers) {
            if (s.embedding.size() != heard.size()) continue;
            const double similarity = cosine(heard.data(), s.embedding.data(), heard.size());
            if (similarity <= highest) continue;
            highest = similarity;
            nearest = &s;
        }
        return nearest ? nearest->name : "";
    };
}

void diarizer::read_audio(const std::string &path, const parley_options &options,
                          const progress_function &progress, diarization *result) {
    check_options(options);
    waveform_drawer waveform;
    std::string note;
    const zx_parley_samples_t samples =
        read_any(&engine_, read_request(path, options, progress, &waveform), &note);
    if (!result->segments.empty() &&
        result->segments.back().start >= static_cast<double>(samples.count) / RATE)
        refuse(path + ": ends after " + seconds_of(samples.count) + ", before the last segment begins");
    result->path = path;
    result->file.clear();
    const double told = result->duration;
    take_sound(samples, waveform, result);
    if (std::abs(result->duration - told) < 0.001)
        result->duration = told;  // as it was written, and is drawn
}

std::vector<spoken_word> diarizer::transcribe(const std::string &path, const diarization &result,
                                              transcription how, const speakers_over_time &speakers,
                                              const parley_options &options,
                                              const progress_function &progress) {
    check_options(options);
    how.jobs = num_threads(options.jobs);
    waveform_drawer unused;
    std::string note;
    const progress_function silent = [&progress](double) { return !progress || progress(0); };
    read_request request(path, options, silent, &unused);
    request.as_samples = true;
    const zx_parley_samples_t samples = read_any(&engine_, request, &note);
    return ::transcribe(samples, result, how, speakers, progress);
}

diarization diarizer::run(const std::string &path, const given_samples *given, const parley_options &options,
                          const progress_function &progress) {
    check(options);
    engine_.set_jobs(options.jobs);
    diarization result;
    result.path = path;
    result.recording = stem_of(path);
    result.model = engine_.id();
    result.with_confidence = options.confidence != 0;
    result.with_embeddings = options.embeddings != 0;
    if (options.channels == APART) {
        run_channels(path, given, options, progress, &result);
        return result;
    }
    std::vector<int16_t> converted;
    zx_parley_samples_t samples;
    waveform_drawer waveform;
    if (options.channels == LOUDEST) {
        converted = loudest_of(channels_of(path, given, options));
        samples = borrowed(converted);
    } else if (given) {
        if (given->num_channels == 2)
            result.note = note_on_mixing({given->values, static_cast<size_t>(2 * given->num_frames)});
        samples = take(*given, &converted);
    } else {
        samples = read_any(&engine_, read_request(path, options, progress, &waveform), &result.note);
    }
    take_sound(samples, waveform, &result);
    const int32_t level = engine_.level_of(&samples, path, progress);
    result.kept = std::make_shared<kept_embeddings>(engine_.embed(&samples, level, path, progress));
    find_again(result.kept.get(), options, progress, &result);
    if (options.keep_embeddings == 0) result.kept.reset();
    return result;
}

void diarizer::fill(const frames &embeddings, const tags &labels, const division_evidence &evidence,
                    const parley_options &options, bool by_tag, diarization *result) {
    const centroids means = centroids_of(embeddings, labels);
    result->segments = segments_of(embeddings, labels, means, engine_.background(), evidence,
                                   engine_.parameters().segment_confidence);
    for (segment &s : result->segments) s.end = std::min(s.end, result->duration);
    tidy_segments(&result->segments, result->duration, rules_of(options));
    if (options.overlap != 0) {
        const std::vector<float> log_odds =
            overlap_log_odds(embeddings, engine_.parameters().overlap, engine_.get()->num_workers);
        add_overlaps(labels, log_odds, options.min_duration, &result->segments);
    }
    number_speakers(options, means, by_tag, result);
}

// Everything that is speech on a channel is its speaker's, but not what a louder channel leaks into it.
void diarizer::run_channels(const std::string &path, const given_samples *given,
                            const parley_options &options, const progress_function &progress,
                            diarization *result) {
    constexpr double LEAK = 16;  // 12 dB
    parley_options one_speaker = options;
    one_speaker.max_speakers = 1;
    const std::vector<std::vector<int16_t>> channels = channels_of(path, given, options);
    result->duration = static_cast<double>(channels.front().size()) / RATE;
    std::vector<std::vector<double>> loud;
    loud.reserve(channels.size());
    std::vector<zx_parley_samples_t> recordings;
    int32_t level = INT16_MIN;  // of the loudest one, so that what it leaks into others stays quiet
    for (const auto &samples : channels) {
        loud.push_back(loudness(samples));
        recordings.push_back(borrowed(samples));
        level = std::max(level, engine_.level_of(&recordings.back(), path, nullptr));
    }
    centroids means;
    const auto num_channels = static_cast<double>(channels.size());
    for (size_t c = 0; c < channels.size(); c++) {
        const progress_function share = [&](double done) {
            return !progress || progress((static_cast<double>(c) + done) / num_channels);
        };
        const std::vector<float> wave = waveform_of(channels[c].data(), channels[c].size());
        result->waveform.resize(wave.size());
        for (size_t i = 0; i < wave.size(); i++) result->waveform[i] = std::max(result->waveform[i], wave[i]);
        const embedding_table rows = engine_.embed(&recordings[c], level, path, share);
        const frames embeddings = rows.view();
        tags labels = find(embeddings, one_speaker, share).labels;
        for (size_t f = 0; f < labels.size(); f++) {
            double loudest = 0;
            for (const auto &other : loud) loudest = std::max(loudest, other[f]);
            if (labels[f] != 0) labels[f] = loud[c][f] * LEAK < loudest ? 0 : static_cast<uint32_t>(c + 1);
        }
        const centroids own = centroids_of(embeddings, labels);
        if (own.empty()) {
            means[static_cast<uint32_t>(c + 1)].resize(static_cast<size_t>(embeddings.size));
            continue;
        }
        std::vector<segment> found = segments_of(embeddings, labels, own, engine_.background(), {}, {});
        for (segment &s : found) s.end = std::min(s.end, result->duration);
        tidy_segments(&found, result->duration, rules_of(options));
        result->segments.insert(result->segments.end(), found.begin(), found.end());
        means.merge(centroids(own));
    }
    std::stable_sort(result->segments.begin(), result->segments.end(),
                     [](const segment &a, const segment &b) { return a.start < b.start; });
    number_speakers(options, means, true, result);
}
