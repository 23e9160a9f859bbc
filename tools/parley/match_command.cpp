#include "match_command.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <fstream>

#include "console.h"
#include "markup.h"
#include "score.h"

namespace {

struct voice {
    std::string name;
    std::vector<double> embedding;
};

std::vector<voice> read_voices(const std::string &path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error(path + ": cannot be opened");
    std::vector<voice> voices;
    try {
        const nlohmann::json all = nlohmann::json::parse(file);
        for (const nlohmann::json &entry : all.at("speakers"))
            voices.push_back({entry.at("name"), entry.at("embedding")});
    } catch (const nlohmann::json::exception &) {
        throw std::runtime_error(path + ": is not what --format json --embeddings writes");
    }
    return voices;
}

double cosine(const voice &a, const voice &b) {
    double product = 0, squares_a = 0, squares_b = 0;
    if (a.embedding.size() != b.embedding.size())
        throw std::runtime_error("embeddings of different models cannot be compared");
    for (size_t i = 0; i < a.embedding.size(); i++) {
        product += a.embedding[i] * b.embedding[i];
        squares_a += a.embedding[i] * a.embedding[i];
        squares_b += b.embedding[i] * b.embedding[i];
    }
    return squares_a > 0 && squares_b > 0 ? product / std::sqrt(squares_a * squares_b) : 0;
}

}  // namespace

int match_command(int argc, char **argv) {
    CLI::App app("Tells which speakers of two recordings are the same.", "parley match");
    std::vector<std::string> files;
    double threshold = 0.5;
    app.add_option("FILE", files, "two files written with --format json --embeddings")
        ->required()
        ->expected(2)
        ->type_name("");
    app.add_option("--threshold", threshold, "the least cosine of two speakers that are the same (0.5)")
        ->check(CLI::Range(-1.0, 1.0).description(""))
        ->type_name("COSINE");
    app.footer(
        "Prints a line for every speaker of the first file: name, the same speaker's name in the\n"
        "second file or \"-\", and their cosine. Each speaker is used once, so that the sum of the\n"
        "cosines above the threshold is largest.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &message) {
        return app.exit(message);
    } catch (const CLI::ParseError &error) {
        std::fprintf(stderr, "parley match: %s\nparley match --help tells more.\n", error.what());
        return EXIT_USAGE;
    }
    try {
        const std::vector<voice> here = read_voices(files[0]), there = read_voices(files[1]);
        std::vector<std::vector<double>> values(here.size(), std::vector<double>(there.size()));
        for (size_t i = 0; i < here.size(); i++)
            for (size_t j = 0; j < there.size(); j++)
                values[i][j] = std::max(0.0, cosine(here[i], there[j]) - threshold);
        const std::vector<int> mapping = best_assignment(values);
        for (size_t i = 0; i < here.size(); i++) {
            const auto j = static_cast<size_t>(mapping[i] < 0 ? 0 : mapping[i]);
            if (mapping[i] < 0 || values[i][j] <= 0) {
                std::printf("%s\t-\n", here[i].name.c_str());
            } else {
                std::printf("%s\t%s\t%.3f\n", here[i].name.c_str(), there[j].name.c_str(),
                            values[i][j] + threshold);
            }
        }
        return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "parley match: %s\n", error.what());
    }
    return EXIT_FAILURE;
}
