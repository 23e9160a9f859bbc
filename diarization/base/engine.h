// SPDX-License-Identifier: Apache-2.0
// The engine as an object: loading, decoding, embeddings, tags; failures are diarization_error.
#ifndef PARLEY_ENGINE_H
#define PARLEY_ENGINE_H

#include <array>
#include <functional>
#include <string>

#include "frames.h"
#include "level.h"
#include "parameters.h"
#include "waveform.h"
#include "zx_parley_internal.h"

using thresholds = std::array<double, 4>;  // offline, prune, segment, background

// Owned rows of embeddings.
struct embedding_table {
    zx_heap_ptr<float> values;
    int32_t count = 0;
    int32_t size = 0;

    frames view() const { return {values.get(), count, size}; }
};

// Told the share of a recording's work that is done; false stops it.
using progress_function = std::function<bool(double done)>;

// What a recording comes from, by which the time that it takes is foreseen.
enum class source_kind { samples, file_of_samples, compressed };

// Threads that `jobs` asks for; 0: one a core.
int32_t num_threads(int32_t jobs);

class engine {
public:
    explicit engine(const std::string &model_path);

    // Threads for embeddings; 0: one a core.
    void set_jobs(int32_t jobs);

    // A file's features, computed and its waveform drawn as the samples come; of more than
    // `max_samples` their number alone.
    zx_parley_samples_t read(const std::string &path, int64_t max_samples, const progress_function &progress,
                             waveform_drawer *waveform);

    // The samples themselves.
    zx_parley_samples_t read_samples(const std::string &path, const progress_function &progress);

    // The samples in front of the place at which reading fails; maybe none.
    zx_parley_samples_t read_what_is_there(const std::string &path, const progress_function &progress);

    // How loud they are (level.h). Leaves features in the place of the samples. `subject` is for messages.
    int32_t level_of(zx_parley_samples_t *samples, const std::string &subject,
                     const progress_function &progress);

    // Of samples that are so loud, or a part of what is. Releases them on the way.
    embedding_table embed(zx_parley_samples_t *samples, int32_t level, const std::string &subject,
                          const progress_function &progress);

    // What is added to the features of a recording that is so loud.
    int32_t gain_for(int32_t level) const {
        return parameters_.level ? gain_to(*parameters_.level, level) : 0;
    }

    tags cluster(const frames &embeddings, const thresholds &values, const progress_function &progress);

    // Of the model.
    thresholds own_thresholds() const;

    int32_t embedding_size() const;  // values
    const float *background() const { return object_->param->cluster->reference_centroid; }

    const model_parameters &parameters() const { return parameters_; }

    // Names the model: a hash of its network, 16 digits.
    const std::string &id() const { return id_; }

    // The engine itself, for what is not here.
    zx_parley_t *get() const { return object_.get(); }

private:
    source_kind kind_ = source_kind::samples;
    std::string id_;
    model_parameters parameters_;
    zx_owned<zx_parley_t, zx_parley_delete> object_;
};

#endif
