// SPDX-License-Identifier: Apache-2.0
// Which speakers of two recordings are the same.

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "commands.h"
#include "documents.h"
#include "library.h"

namespace parley {

namespace matching {
namespace {

struct arguments {
    std::vector<std::string> files;
    double threshold = 0.5;
};

struct voices {
    std::vector<std::string> names;
    std::vector<float> vectors;  // one after the other
    int32_t dimension = 0;
    std::string model;  // whose they are; "" in what earlier versions wrote
};

voices read_voices(const std::string &path) {
    const result_ptr read = read_result_file(path);
    voices result;
    result.model = parley_result_model(read.get());
    for (int32_t i = 0; i < parley_result_num_speakers(read.get()); i++) {
        const parley_speaker speaker = parley_result_speaker(read.get(), i);
        if (speaker.embedding_size == 0)
            throw std::runtime_error(path + ": is not what --format json --embeddings writes");
        if (i > 0 && speaker.embedding_size != result.dimension)
            throw std::runtime_error(path + ": its embeddings differ in length");
        result.names.emplace_back(speaker.name);
        result.dimension = speaker.embedding_size;
        result.vectors.insert(result.vectors.end(), speaker.embedding,
                              speaker.embedding + speaker.embedding_size);
    }
    return result;
}

int run(const arguments &a) {
    const voices first = read_voices(a.files[0]), second = read_voices(a.files[1]);
    const bool is_other_model = !first.model.empty() && !second.model.empty() && first.model != second.model;
    if (!first.names.empty() && !second.names.empty() &&
        (is_other_model || first.dimension != second.dimension))
        throw std::runtime_error("embeddings of different models cannot be compared");
    std::vector<int32_t> matches(first.names.size());
    std::vector<double> cosines(first.names.size());
    if (!first.names.empty()) {
        check(parley_match(first.vectors.data(), static_cast<int32_t>(first.names.size()),
                           second.vectors.data(), static_cast<int32_t>(second.names.size()), first.dimension,
                           a.threshold, matches.data(), cosines.data()));
    }
    for (size_t i = 0; i < first.names.size(); i++) {
        if (matches[i] < 0) {
            std::printf("%s\t-\n", first.names[i].c_str());
        } else {
            std::printf("%s\t%s\t%.3f\n", first.names[i].c_str(),
                        second.names[static_cast<size_t>(matches[i])].c_str(), cosines[i]);
        }
    }
    return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace matching

command match_command(CLI::App *app) {
    using namespace matching;
    const auto a = std::make_shared<arguments>();
    app->description("Prints which speakers of two recordings are one.");
    app->add_option("FILE", a->files, "two files written with --format json --embeddings")
        ->required()
        ->expected(2)
        ->type_name("");
    app->add_option("--threshold", a->threshold, "minimum cosine similarity of the same speaker (0.5)")
        ->check(CLI::Range(-1.0, 1.0).description(""))
        ->type_name("COSINE");
    app->footer(
        "Prints a line for every speaker of the first file: name, the same speaker's name\n"
        "in the second file or \"-\", and their cosine. Each speaker is used once, so that\n"
        "the sum of the cosines above the threshold is largest.");
    return [a] { return run(*a); };
}

}  // namespace parley
