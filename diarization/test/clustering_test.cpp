// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <random>
#include <set>

#include "errors.h"
#include "find_speakers.h"
#include "linkage.h"
#include "parameters.h"
#include "pieces.h"
#include "segments.h"
#include "spectrum.h"

namespace {

distance_matrix distances_of_points(const std::vector<double> &points, bool are_squared = false) {
    distance_matrix result(points.size());
    for (size_t i = 0; i < points.size(); i++)
        for (size_t j = 0; j < i; j++) {
            const auto d = static_cast<float>(std::abs(points[i] - points[j]));
            result.set(i, j, are_squared ? d * d : d);
        }
    return result;
}

// Merges the nearest two of all clusters until `number` are left, by the definition of the linkage.
std::vector<size_t> by_definition(const distance_matrix &distances, linkage how, size_t number) {
    std::vector<std::vector<size_t>> clusters;
    for (size_t i = 0; i < distances.n; i++) clusters.push_back({i});
    const auto apart = [&](const std::vector<size_t> &a, const std::vector<size_t> &b) {
        double sum = 0, largest = 0;
        for (const size_t i : a) {
            for (const size_t j : b) {
                sum += double{distances.at(i, j)};
                largest = std::max(largest, double{distances.at(i, j)});
            }
        }
        return how == linkage::complete ? largest : sum / static_cast<double>(a.size() * b.size());
    };
    while (clusters.size() > number) {
        size_t first = 0, second = 1;
        for (size_t i = 0; i < clusters.size(); i++)
            for (size_t j = 0; j < i; j++)
                if (apart(clusters[i], clusters[j]) < apart(clusters[first], clusters[second])) {
                    first = j;
                    second = i;
                }
        clusters[first].insert(clusters[first].end(), clusters[second].begin(), clusters[second].end());
        clusters.erase(clusters.begin() + static_cast<std::ptrdiff_t>(second));
    }
    std::vector<size_t> result(distances.n);
    std::sort(clusters.begin(), clusters.end(), [](const auto &a, const auto &b) {
        return *std::min_element(a.begin(), a.end()) < *std::min_element(b.begin(), b.end());
    });
    for (size_t k = 0; k < clusters.size(); k++)
        for (const size_t i : clusters[k]) result[i] = k;
    return result;
}

TEST(linkage, is_as_defined_however_it_is_cut) {
    std::mt19937 random(1);
    std::uniform_real_distribution<double> anywhere(0, 1);
    for (int round = 0; round < 20; round++) {
        std::vector<double> points(12);
        for (double &p : points) p = anywhere(random);
        const distance_matrix distances = distances_of_points(points);
        for (const linkage how : {linkage::complete, linkage::average}) {
            const std::vector<merge> tree = linkage_tree(distances, how);
            ASSERT_EQ(tree.size(), points.size() - 1);
            for (size_t number = 1; number <= points.size(); number++)
                EXPECT_EQ(cut_tree(tree, points.size(), number), by_definition(distances, how, number));
        }
    }
}

// Ward's linkage looks at how many points a cluster has: a far point joins another one, not the group.
TEST(linkage, ward_looks_at_sizes) {
    const distance_matrix squared = distances_of_points({0, 0.1, 0.2, 0.3, 1.2, 2.2}, true);
    EXPECT_EQ(cut_tree(linkage_tree(squared, linkage::ward), 6, 2), (std::vector<size_t>{0, 0, 0, 0, 1, 1}));
    EXPECT_EQ(cut_tree(linkage_tree(squared, linkage::ward), 6, 3), (std::vector<size_t>{0, 0, 0, 0, 1, 2}));
}

// A path of n points: its Laplacian has the eigenvalues 2 - 2 cos(pi k / n).
TEST(spectrum, of_a_path_is_known) {
    for (const size_t n : {2, 3, 7, 40}) {
        std::vector<double> laplacian(n * n);
        for (size_t i = 0; i + 1 < n; i++) {
            laplacian[i * n + i + 1] = laplacian[(i + 1) * n + i] = -1;
            laplacian[i * n + i]++;
            laplacian[(i + 1) * n + i + 1]++;
        }
        const auto expected = [n](size_t k) {
            return 2 - 2 * std::cos(std::numbers::pi * static_cast<double>(k) / static_cast<double>(n));
        };
        double largest;
        const std::vector<double> values = smallest_eigenvalues(laplacian, n, 5, &largest);
        ASSERT_EQ(values.size(), std::min<size_t>(n, 5));
        for (size_t k = 0; k < values.size(); k++) EXPECT_NEAR(values[k], expected(k), 1e-9) << n << " " << k;
        EXPECT_NEAR(largest, expected(n - 1), 1e-9);
    }
}

TEST(spectrum, counts_groups) {
    std::mt19937 random(1);
    std::uniform_real_distribution<float> about_one(0.9F, 1.1F);
    for (const size_t groups : {2, 3, 5}) {
        distance_matrix distances(60);
        for (size_t i = 0; i < 60; i++)
            for (size_t j = 0; j < i; j++)
                distances.set(j, i, about_one(random) * (i % groups == j % groups ? 1.0F : 3.0F));
        EXPECT_EQ(count_by_eigengap(distances), static_cast<int>(groups));
    }
    EXPECT_EQ(count_by_eigengap(distances_of_points({1, 2, 3})), 1);
}

// Six people, two in each of four minutes; what the minutes' divisions call them says nothing.
TEST(pieces, the_same_people_are_found_in_several) {
    constexpr int32_t MINUTE = 1875, SIZE = 8;
    const std::vector<std::pair<int, int>> present = {{0, 1}, {1, 2}, {3, 4}, {0, 5}};
    std::mt19937 random(1);
    std::normal_distribution<float> noise(0, 0.1F);
    std::vector<float> values;
    tags expected;
    for (const auto &[first, second] : present) {
        for (int32_t f = 0; f < MINUTE; f++) {
            const int who = f % 100 < 10 ? -1 : f / 100 % 2 == 0 ? first : second;
            for (int32_t d = 0; d < SIZE; d++) values.push_back(noise(random) + (d == who ? 1.0F : 0.0F));
            expected.push_back(static_cast<uint32_t>(who + 1));
        }
    }
    const frames all = {values.data(), static_cast<int32_t>(expected.size()), SIZE};
    int32_t num_heard = 0;
    const divided_pieces pieces = divide_pieces(all, 1, [&](int32_t first, int32_t end) {
        tags labels(static_cast<size_t>(end - first));
        for (size_t f = 0; f < labels.size(); f++) {
            const uint32_t who = expected[static_cast<size_t>(num_heard) + f];
            labels[f] = who == 0 ? 0 : 100 - who;
        }
        EXPECT_EQ(first, num_heard);
        num_heard = end;
        return labels;
    });
    EXPECT_EQ(num_heard, all.count);
    EXPECT_EQ(pieces.num_speakers, 8U);
    const tags joined = join_pieces(pieces, 6);
    std::set<std::pair<uint32_t, uint32_t>> pairs;
    for (size_t f = 0; f < joined.size(); f++) pairs.insert({expected[f], joined[f]});
    EXPECT_EQ(pairs.size(), 7U);  // one for each, and nobody
    EXPECT_EQ(count_speakers(join_pieces(pieces, 1)), 1);
    EXPECT_EQ(divide_pieces({values.data(), MINUTE, SIZE}, 1, nullptr).num_speakers, 0U);
}

// A second of a voice is farther from the rest of it than two voices that are alike are from each other, and
// yet the same one.
TEST(pieces, few_words_do_not_make_one_more) {
    constexpr int32_t MINUTE = 1875, SIZE = 5, A_FEW = 30;
    const float voices[][SIZE] = {
        {1, 0, 0, 0, 0}, {0, 1, 0, 0, 0}, {0, 0, 1, 0, 0}, {0, 0, 0.8F, 0.6F, 0}, {0, 0.7F, 0, 0, 0.714F}};
    std::vector<float> values;
    tags labels;
    for (int32_t f = 0; f < 2 * MINUTE; f++) {
        const int32_t who = f < MINUTE ? f * 4 / MINUTE : f < 2 * MINUTE - A_FEW ? 0 : 4;
        values.insert(values.end(), std::begin(voices[who]), std::end(voices[who]));
        labels.push_back(static_cast<uint32_t>(who + 1));
    }
    const divided_pieces pieces = divide_pieces(
        {values.data(), 2 * MINUTE, SIZE}, 1,
        [&](int32_t first, int32_t end) { return tags(labels.begin() + first, labels.begin() + end); });
    EXPECT_EQ(pieces.num_speakers, 6U);
    const tags joined = join_pieces(pieces, 4);
    EXPECT_EQ(joined[0], joined[MINUTE]);
    EXPECT_EQ(joined[MINUTE / 3], joined.back());
    EXPECT_NE(joined[MINUTE * 5 / 8], joined[MINUTE * 7 / 8]);
}

TEST(segments, merges_then_drops_then_pads) {
    std::vector<segment> segments = {
        {1, 2, 0, 1}, {2.2, 3.2, 0, 0.5}, {3.4, 3.5, 1, 1}, {4, 5, 0, 1}, {9.5, 9.9, 1, 1}};
    tidy_segments(&segments, 10, {.merge_gap = 0.25, .min_duration = 0.3, .pad = 0.5});
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_DOUBLE_EQ(segments[0].start, 0.5);
    EXPECT_DOUBLE_EQ(segments[0].end, 3.6);  // half way to the next
    EXPECT_DOUBLE_EQ(segments[0].confidence, 0.75);
    EXPECT_DOUBLE_EQ(segments[1].start, 3.6);
    EXPECT_DOUBLE_EQ(segments[1].end, 5.5);
    EXPECT_DOUBLE_EQ(segments[2].end, 10);  // the recording's end
}

// ---- Parameters behind the network

template <class T>
void append(std::string *to, T value) {
    to->append(reinterpret_cast<const char *>(&value), sizeof(value));
}

struct trees_file {
    std::string network = "network";
    uint64_t hash = hash_of("network");
    uint32_t version = 2;
    int32_t dimension = 2;
    std::vector<int32_t> contexts = {1, 5};
    int32_t num_units = 1;
    int32_t num_features = NUM_CANDIDATE_FEATURES;
    std::vector<int32_t> roots = {0, 3};
    // By feature 2: 1 up to 0.5, else 2; and 10 in any case.
    std::vector<tree_node> nodes = {{2, 2, 0.5F}, {-1, 0, 1}, {-1, 0, 2}, {-1, 0, 10}};
    std::optional<int16_t> level;
    int32_t cut = 0;  // bytes missing

    std::string bytes() const {
        std::string parameters;
        append(&parameters, dimension);
        append(&parameters, num_units);
        append(&parameters, static_cast<int32_t>(contexts.size()));
        for (const int32_t context : contexts) append(&parameters, context);
        for (const float value : {1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F, 7.0F})
            append(&parameters, value);  // 4 weights and so on
        append(&parameters, num_features);
        append(&parameters, static_cast<int32_t>(roots.size()));
        append(&parameters, static_cast<int32_t>(nodes.size()));
        for (const int32_t root : roots) append(&parameters, root);
        for (const tree_node &node : nodes) append(&parameters, node);
        for (const int32_t value : {NUM_SEGMENT_FEATURES, 0, 0}) append(&parameters, value);
        if (level) append(&parameters, 0);  // layers that hear two at once
        if (level) append(&parameters, *level);
        parameters.resize(parameters.size() - static_cast<size_t>(cut));
        std::string file = network + parameters;
        append(&file, hash);
        append(&file, static_cast<uint32_t>(parameters.size()));
        append(&file, version);
        return file + "parleycl";
    }
};

TEST(parameters, networks_and_trees_are_read) {
    const std::string file = trees_file().bytes();
    const model_sections sections = read_model_sections(file, "model");
    EXPECT_EQ(sections.network, "network");
    std::vector<double> features(size_t{NUM_CANDIDATE_FEATURES});
    EXPECT_EQ(sections.parameters.candidate_costs.evaluate(features), 11);
    features[2] = 0.5;
    EXPECT_EQ(sections.parameters.candidate_costs.evaluate(features), 11);
    features[2] = 0.5001;
    EXPECT_EQ(sections.parameters.candidate_costs.evaluate(features), 12);
    const speech_network &speech = sections.parameters.speech;
    EXPECT_THAT(speech.weights, testing::ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(speech.biases, testing::ElementsAre(5));
    EXPECT_THAT(speech.output_weights, testing::ElementsAre(6));
    EXPECT_EQ(speech.output_bias, 7);
    EXPECT_EQ(sections.parameters.level, std::nullopt);  // of a former model
    trees_file later;
    later.level = -4000;
    EXPECT_EQ(read_model_sections(later.bytes(), "model").parameters.level, -4000);
    EXPECT_TRUE(read_model_sections("network alone", "model").parameters.candidate_costs.is_empty());
}

TEST(parameters, damaged_foreign_and_newer_ones_are_refused) {
    const auto refused = [](auto change) {
        trees_file file;
        change(&file);
        try {
            read_model_sections(file.bytes(), "model");
        } catch (const diarization_error &error) {
            return std::string(error.what());
        }
        return std::string("taken");
    };
    EXPECT_EQ(refused([](trees_file *) {}), "taken");
    EXPECT_THAT(refused([](trees_file *f) { f->network = "another"; }),
                testing::HasSubstr("another network"));
    EXPECT_THAT(refused([](trees_file *f) { f->version = 3; }), testing::HasSubstr("version 3"));
    const std::string damaged = "model: its clustering parameters are damaged";
    EXPECT_EQ(refused([](trees_file *f) { f->dimension = -1; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->dimension = 4000; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->dimension = 0; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->contexts[1] = 4; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->contexts[0] = -1; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->num_units = 1 << 30; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->num_features = 3; }), "taken");  // a former model's
    EXPECT_EQ(refused([](trees_file *f) { f->num_features = 2; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->num_features++; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->cut = 3; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->roots[1] = 4; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->roots[1] = -1; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->nodes[0].distance = 4; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->nodes[0].distance = 0; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->nodes[0].feature = NUM_CANDIDATE_FEATURES; }), damaged);
    EXPECT_EQ(refused([](trees_file *f) { f->nodes[3].feature = 0; }), damaged);
}

}  // namespace
