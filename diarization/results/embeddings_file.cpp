// SPDX-License-Identifier: Apache-2.0
#include "embeddings_file.h"

#include <cmath>

#include "byte_reader.h"
#include "parameters.h"
#include "zx_heap.h"

namespace {

constexpr std::string_view FORMAT = "parley embeddings 1\n";
constexpr float LARGEST_VALUE = 1.001F;  // of a vector of unit length, rounded

template <class T>
void put(T value, std::string *bytes) {
    for (size_t i = 0; i < sizeof(T); i++) *bytes += static_cast<char>(uint64_t{value} >> (8 * i) & 255);
}

void put_floats(const float *values, size_t count, std::string *bytes) {
    for (size_t i = 0; i < count; i++) put(zx_bits_as<uint32_t>(values[i]), bytes);
}

}  // namespace

std::string write_embeddings(const std::string &model, int64_t num_samples,
                             const std::vector<float> &waveform, const frames &rows) {
    const auto size = static_cast<size_t>(rows.size);
    std::string bytes(FORMAT);
    bytes.reserve(64 + model.size() +
                  sizeof(float) * (waveform.size() + size * static_cast<size_t>(rows.count)));
    put(uint64_t{0}, &bytes);  // the hash of what follows
    const size_t begin = bytes.size();
    put(static_cast<uint64_t>(num_samples), &bytes);
    for (const size_t count : {model.size(), waveform.size(), static_cast<size_t>(rows.count), size})
        put(static_cast<uint32_t>(count), &bytes);
    bytes += model;
    put_floats(waveform.data(), waveform.size(), &bytes);
    for (int32_t f = 0; f < rows.count; f++) put_floats(rows.at(f), size, &bytes);
    std::string hash;
    put(hash_of(std::string_view(bytes).substr(begin)), &hash);
    return bytes.replace(FORMAT.size(), hash.size(), hash);
}

recording_embeddings read_embeddings(std::string_view bytes, const std::string &name) {
    if (!bytes.starts_with(FORMAT))
        throw diarization_error(PARLEY_INVALID, name + ": is no file of embeddings");
    byte_reader from(bytes.substr(FORMAT.size()), name + ": the embeddings are damaged");
    if (const auto hash = from.take<uint64_t>(); hash != hash_of(bytes.substr(FORMAT.size() + sizeof(hash))))
        from.refuse();
    recording_embeddings result;
    result.num_samples = from.take<int64_t>();
    const size_t model_size = from.take_count(1), num_peaks = from.take_count(sizeof(float));
    const size_t count = from.take_count(sizeof(float)), size = from.take_count(sizeof(float));
    result.model = from.take_bytes(model_size);
    from.take_floats(num_peaks, &result.waveform);
    if (size == 0 || count == 0 || from.bytes_left() / sizeof(float) / size != count ||
        from.bytes_left() != count * size * sizeof(float))
        from.refuse();
    result.rows.count = static_cast<int32_t>(count);
    result.rows.size = static_cast<int32_t>(size);
    result.rows.values.reset(zx_heap_zeroed<float>(count * size));
    if (!result.rows.values) throw std::bad_alloc();
    for (size_t i = 0; i < count * size; i++) {
        const float value = from.take_float();
        if (!(std::abs(value) <= LARGEST_VALUE)) from.refuse();
        result.rows.values.get()[i] = value;
    }
    return result;
}
