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
    const voices here = read_voices(a.files[0]), there = read_voices(a.files[1]);
    const bool is_other_model = !here.model.empty() && !there.model.empty() && here.model != there.model;
    if (!here.names.empty() && !there.names.empty() && (is_other_model || here.dimension != there.dimension))
        throw std::runtime_error("embeddings of different models cannot be compared");
    std::vector<int32_t> others(here.names.size());
    std::vector<double> cosines(here.names.size());
    if (!here.names.empty()) {
        check(parley_match(here.vectors.data(), static_cast<int32_t>(here.names.size()), there.vectors.data(),
                           static_cast<int32_t>(there.names.size()), here.dimension, a.threshold,
                           others.data(), cosines.data()));
    }
    for (size_t i = 0; i < here.names.size(); i++) {
        if (others[i] < 0) {
            std::printf("%s\t-\n", here.names[i].c_str());
        } else {
            std::printf("%s\t%s\t%.3f\n", here.names[i].c_str(),
                        there.names[static_cast<size_t>(others[i])].c_str(), cosines[i]);
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
