// SPDX-License-Identifier: Apache-2.0
#include "zx_parley_cluster.h"

#include <cfloat>
#include <cmath>
#include <limits>
#include <set>

#include "support.h"
#include "zx_math.h"
#include "zx_parley_pair_heap.h"

namespace {

using testing::Each;
using testing::ElementsAre;

// Embeddings in a plane, by their angle in degrees; the background lies at 180.
constexpr float DEGREE = 3.14159265f / 180.0f;

struct clustering {
    float reference[2] = {-1.0f, 0.0f};
    zx_parley_cluster_param_t param = {reference, 2, 0.02f, 0.05f, 0.01f, 0.01f};
    std::vector<float> input;
    zx_parley_cluster_t *object = nullptr;

    clustering() { EXPECT_EQ(zx_parley_cluster_init(&param, &object), ZX_STATUS_SUCCESS); }
    ~clustering() { zx_parley_cluster_delete(object); }
    clustering(const clustering &) = delete;
    clustering &operator=(const clustering &) = delete;

    void say(float degrees, int num_frames) {
        for (int i = 0; i < num_frames; i++) {
            input.push_back(std::cos(degrees * DEGREE));
            input.push_back(std::sin(degrees * DEGREE));
        }
    }
    int32_t num_frames() const { return static_cast<int32_t>(input.size() / 2); }

    // Tags as runs: {tag, length} pairs, flattened.
    std::vector<uint32_t> tag_runs(uint32_t *num_clusters = nullptr) {
        std::vector<uint32_t> tags(input.size() / 2, 999);
        uint32_t count = 0;
        EXPECT_EQ(zx_parley_cluster_process(object, input.data(), 2, num_frames(), &count, tags.data()),
                  ZX_STATUS_SUCCESS);
        EXPECT_EQ(object->clusters->size, 0u);
        if (num_clusters) *num_clusters = count;
        std::vector<uint32_t> runs;
        for (uint32_t tag : tags) {
            if (runs.empty() || runs[runs.size() - 2] != tag) {
                runs.insert(runs.end(), {tag, 0});
            }
            runs.back()++;
        }
        return runs;
    }
};

// Angle between unit vectors at a given distance: d = (1 - cos a) / 2.
float angle_at(float distance) {
    return std::acos(1.0f - 2.0f * distance) / DEGREE;
}

}  // namespace

TEST(zx_parley_cluster_adaptive_size, grows_between_80_and_2000_frames) {
    const std::pair<int32_t, int32_t> sizes[] = {{1, 20},    {79, 20},       {80, 20},   {127, 20},
                                                 {128, 21},  {1000, 39},     {1040, 40}, {2000, 60},
                                                 {2001, 60}, {INT32_MAX, 60}};
    for (const auto &[frames, size] : sizes) {
        EXPECT_EQ(zx_parley_cluster_adaptive_min_cluster_size(frames), size) << frames;
    }
}

TEST(zx_parley_cluster, a_returning_speaker_keeps_its_tag_and_background_gets_0) {
    clustering c;
    c.say(180, 10);
    c.say(0, 60);
    c.say(90, 60);
    c.say(180, 5);
    c.say(0, 60);
    uint32_t num_clusters;
    EXPECT_THAT(c.tag_runs(&num_clusters), ElementsAre(0, 10, 1, 60, 2, 60, 0, 5, 1, 60));
    EXPECT_EQ(num_clusters, 3u);
    EXPECT_THAT(c.tag_runs(), ElementsAre(0, 10, 1, 60, 2, 60, 0, 5, 1, 60)) << "a second run starts afresh";
}

TEST(zx_parley_cluster, runs_below_15_frames_go_to_the_background) {
    clustering alternating;
    for (int i = 0; i < 10; i++) {
        alternating.say(0, 1);
        alternating.say(90, 1);
    }
    EXPECT_THAT(alternating.tag_runs(), ElementsAre(0, 20));

    clustering boundary;  // 14 frames go, 15 stay; both are then joined by later frames of the same voice
    boundary.say(0, 15);
    boundary.say(90, 14);
    boundary.say(0, 100);
    boundary.say(90, 100);
    EXPECT_THAT(boundary.tag_runs(), ElementsAre(1, 15, 0, 14, 1, 100, 2, 100));
}

TEST(zx_parley_cluster, merges_up_to_the_offline_threshold) {
    for (const auto &[distance, num_speakers] : {std::pair{0.019f, 1u}, std::pair{0.021f, 2u}}) {
        clustering c;
        c.say(0, 100);
        c.say(angle_at(distance), 100);
        uint32_t num_clusters;
        c.tag_runs(&num_clusters);
        EXPECT_EQ(num_clusters - 1, num_speakers) << distance;
    }
}

TEST(zx_parley_cluster, a_speaker_near_the_background_is_swallowed_by_it) {
    clustering c;  // outside the background threshold, within the offline threshold
    c.say(0, 100);
    c.say(180 - angle_at(0.015f), 100);
    EXPECT_THAT(c.tag_runs(), ElementsAre(1, 100, 0, 100));
}

TEST(zx_parley_cluster, small_clusters_join_their_nearest_or_the_background) {
    clustering near;  // 38 frames of 1000 are below the size of 39; the nearest voice lies within the prune
                      // threshold
    near.say(0, 962);
    near.say(angle_at(0.04f), 38);
    EXPECT_THAT(near.tag_runs(), ElementsAre(1, 1000));
    clustering far;
    far.say(0, 962);
    far.say(90, 38);
    EXPECT_THAT(far.tag_runs(), ElementsAre(1, 962, 0, 38));
    clustering kept;
    kept.say(0, 961);
    kept.say(90, 39);
    EXPECT_THAT(kept.tag_runs(), ElementsAre(1, 961, 2, 39));
    clustering alone;  // no candidate but the background
    alone.say(90, 19);
    EXPECT_THAT(alone.tag_runs(), ElementsAre(0, 19));
}

TEST(zx_parley_cluster, the_background_moves_only_before_the_first_speaker) {
    clustering c;
    c.param.segment_threshold = 0.03f;  // between the thresholds: counted into the background, which moves
    c.say(180 - angle_at(0.02f), 1);
    ASSERT_EQ(zx_parley_cluster_segmentation(c.object, c.input.data(), 2, 1), ZX_STATUS_SUCCESS);
    EXPECT_EQ(c.object->clusters->size, 1u);
    EXPECT_EQ(c.object->clusters->tail->weight, 2.0f);
    EXPECT_GT(c.object->clusters->tail->centroid[1], 0.1f);
    zx_parley_list_reset(c.object->clusters);

    c.input.clear();
    c.say(180 - angle_at(0.005f), 1);  // within the background threshold
    ASSERT_EQ(zx_parley_cluster_segmentation(c.object, c.input.data(), 2, 1), ZX_STATUS_SUCCESS);
    EXPECT_EQ(c.object->clusters->tail->centroid[1], 0.0f);
}

// Every frame belongs to one cluster, tags are dense and in order of appearance, whatever the input and
// thresholds.
TEST(zx_parley_cluster, tags_are_dense_on_random_input) {
    random_numbers random(21);
    for (int round = 0; round < 60; round++) {
        clustering c;
        c.param.offline_threshold = static_cast<float>(random.between(0, 300)) / 1000.0f;
        c.param.prune_threshold = static_cast<float>(random.between(0, 400)) / 1000.0f;
        c.param.segment_threshold = static_cast<float>(random.between(0, 200)) / 1000.0f;
        c.param.background_threshold = static_cast<float>(random.between(0, 200)) / 1000.0f;
        const int num_runs = random.between(1, 60);
        for (int i = 0; i < num_runs; i++)
            c.say(static_cast<float>(random.between(0, 359)), random.between(1, 60));
        uint32_t num_clusters;
        const std::vector<uint32_t> runs = c.tag_runs(&num_clusters);
        std::vector<bool> is_used(num_clusters, false);
        for (size_t i = 0; i < runs.size(); i += 2) {
            ASSERT_LT(runs[i], num_clusters);
            is_used[runs[i]] = true;
        }
        for (uint32_t tag = 1; tag < num_clusters; tag++) EXPECT_TRUE(is_used[tag]) << tag;
    }
}

namespace {

// The agglomeration as it is defined: records of their own in the general heap, recognised as stale by id
// and weight.
struct plain_pair {
    float distance;
    int32_t id_a, id_b;
    float weight_a, weight_b;
    zx_parley_cluster_node_t *a, *b;
};

void insert_plain_pair(zx_parley_heap_t *heap, zx_parley_cluster_node_t *a, zx_parley_cluster_node_t *b,
                       int32_t dimension, float largest) {
    const float distance = zx_parley_cluster_cosine_distance(dimension, a->centroid, b->centroid);
    if (distance > largest) return;
    auto *pair = zx_heap_zeroed<plain_pair>();
    *pair = {distance, a->id, b->id, a->weight, b->weight, a, b};
    ASSERT_EQ(zx_parley_heap_insert(heap, pair), ZX_STATUS_SUCCESS);
}

// Pairs farther apart than `largest` are left out of the heap.
void plain_offline(zx_parley_cluster_t *object, int32_t dimension, float largest = FLT_MAX) {
    zx_parley_list_t *clusters = object->clusters;
    zx_parley_heap_t *pairs = nullptr;
    ASSERT_EQ(zx_parley_heap_init(0, &pairs), ZX_STATUS_SUCCESS);
    const auto heap = owned<zx_parley_heap_delete>(pairs);
    for (zx_parley_cluster_node_t *a = clusters->head; a; a = a->next) {
        for (zx_parley_cluster_node_t *b = a->next; b; b = b->next)
            insert_plain_pair(pairs, a, b, dimension, largest);
    }
    std::vector<bool> is_removed(static_cast<size_t>(clusters->head->id) + 1);
    while (clusters->size >= 2) {
        const zx_heap_ptr<plain_pair> pair(static_cast<plain_pair *>(zx_parley_heap_pop(pairs)));
        if (!pair) break;
        if (is_removed[static_cast<size_t>(pair->id_a)] || is_removed[static_cast<size_t>(pair->id_b)])
            continue;
        if (pair->weight_a != pair->a->weight || pair->weight_b != pair->b->weight) continue;
        if (pair->distance > object->param->offline_threshold) break;
        zx_parley_cluster_node_t *survivor = pair->id_a < pair->id_b ? pair->a : pair->b;
        zx_parley_cluster_node_t *absorbed = survivor == pair->a ? pair->b : pair->a;
        ASSERT_EQ(zx_parley_cluster_merge(dimension, survivor, absorbed), ZX_STATUS_SUCCESS);
        is_removed[static_cast<size_t>(absorbed->id)] = true;
        zx_parley_list_remove(clusters, absorbed);
        for (zx_parley_cluster_node_t *x = clusters->head; x; x = x->next) {
            if (x != survivor) insert_plain_pair(pairs, survivor, x, dimension, largest);
        }
    }
}

// The tags after segmentation, first prune and an implementation of the agglomeration.
template <class Offline>
std::vector<uint32_t> tags_after(const clustering &c, const std::vector<float> &input, int32_t dimension,
                                 Offline offline) {
    const auto num_frames = static_cast<int32_t>(input.size() / static_cast<size_t>(dimension));
    EXPECT_EQ(zx_parley_cluster_segmentation(c.object, input.data(), dimension, num_frames),
              ZX_STATUS_SUCCESS);
    EXPECT_EQ(zx_parley_cluster_segmentation_prune(c.object, dimension), ZX_STATUS_SUCCESS);
    offline(c.object, dimension);
    std::vector<uint32_t> tags(static_cast<size_t>(num_frames), 999);
    uint32_t count;
    EXPECT_EQ(zx_cluster_generate_output(c.object, tags.data(), &count), ZX_STATUS_SUCCESS);
    zx_parley_list_reset(c.object->clusters);
    return tags;
}

}  // namespace

// Many voices at few directions, so that equal distances abound and the order among them matters.
TEST(zx_parley_cluster, agglomeration_merges_as_its_plain_form_does) {
    random_numbers random(22);
    int num_merged = 0;
    for (int round = 0; round < 120; round++) {
        const int32_t dimension = random.between(2, 40);
        clustering c;
        std::vector<float> reference(static_cast<size_t>(dimension), 0.0f);
        reference[0] = -1.0f;
        c.param = {reference.data(), dimension, static_cast<float>(random.between(0, 500)) / 1000.0f, 0.1f,
                   0.001f,           0.0f};
        const int num_directions = random.between(1, 40);
        std::vector<std::vector<float>> directions(static_cast<size_t>(num_directions));
        for (std::vector<float> &direction : directions) {
            for (int32_t d = 0; d < dimension; d++)
                direction.push_back(static_cast<float>(random.between(-2, 9)));
            direction[1] += 0.5f;
            zx_normalize_float(dimension, direction.data(), direction.data());
        }
        std::vector<float> input;
        for (int run = random.between(2, 150); run > 0; run--) {
            const auto &direction = directions[random.next() % directions.size()];
            for (int i = random.between(15, 20); i > 0; i--)
                input.insert(input.end(), direction.begin(), direction.end());
        }
        const auto expected = tags_after(
            c, input, dimension, [](zx_parley_cluster_t *object, int32_t d) { plain_offline(object, d); });
        const auto actual = tags_after(c, input, dimension, [](zx_parley_cluster_t *object, int32_t d) {
            ASSERT_EQ(zx_parley_cluster_offline(object, d), ZX_STATUS_SUCCESS);
        });
        ASSERT_EQ(actual, expected) << "round " << round;
        num_merged += std::set<uint32_t>(actual.begin(), actual.end()).size() > 2;
    }
    EXPECT_GT(num_merged, 40);  // many rounds leave several clusters: the order had something to decide
}

// Why the priority queue holds every pair. One above the threshold is never merged, but it takes part in the
// order: where the heap's pop does not look at the last slot it can stay in front of a smaller one, and
// when it is taken, merging ends.
TEST(zx_parley_cluster, pairs_that_cannot_merge_decide_which_do) {
    random_numbers random(24);
    int num_different = 0;
    for (int round = 0; round < 100; round++) {
        constexpr int32_t DIMENSION = 3;
        clustering c;
        const float reference[DIMENSION] = {0, 0, -1};
        c.param = {const_cast<float *>(reference), DIMENSION, 0.05f, 0.1f, 1e-6f, 0.0f};
        std::vector<float> input;
        for (int run = 0; run < 12; run++) {
            float direction[DIMENSION] = {};
            for (float &value : direction) value = static_cast<float>(random.between(1, 10000));
            zx_normalize_float(DIMENSION, direction, direction);
            for (int i = 0; i < 15; i++) input.insert(input.end(), direction, direction + DIMENSION);
        }
        const auto with = [&](float largest) {
            return tags_after(c, input, DIMENSION, [largest](zx_parley_cluster_t *object, int32_t d) {
                plain_offline(object, d, largest);
            });
        };
        num_different += with(FLT_MAX) != with(c.param.offline_threshold);
    }
    EXPECT_GT(num_different, 0);
}

// Keys with many ties, inserted and taken in turn.
TEST(zx_parley_pair_heap, takes_pairs_in_the_order_of_the_general_heap) {
    struct record {
        float key;
        uint32_t number;
    };
    random_numbers random(23);
    for (int round = 0; round < 50; round++) {
        const int num_keys = random.between(1, 300);
        zx_parley_heap_t *general_object = nullptr;
        zx_parley_pair_heap_t *object = nullptr;
        ASSERT_EQ(zx_parley_heap_init(1, &general_object), ZX_STATUS_SUCCESS);
        ASSERT_EQ(zx_parley_pair_heap_init(2000, &object), ZX_STATUS_SUCCESS);
        const auto general = owned<zx_parley_heap_delete>(general_object);
        const auto heap = owned<zx_parley_pair_heap_delete>(object);
        for (int step = 0; step < 2000; step++) {
            if (random.between(0, 2) > 0 && step < 1500) {
                auto *r = zx_heap_zeroed<record>();
                *r = {static_cast<float>(random.between(0, num_keys)), static_cast<uint32_t>(step)};
                zx_parley_pair_heap_insert(object, {r->key, r->number});
                ASSERT_EQ(zx_parley_heap_insert(general_object, r), ZX_STATUS_SUCCESS);
                continue;
            }
            const zx_heap_ptr<record> expected(static_cast<record *>(zx_parley_heap_pop(general_object)));
            zx_parley_pair_t pair;
            ASSERT_EQ(zx_parley_pair_heap_pop(object, &pair), expected != nullptr);
            if (expected) {
                ASSERT_EQ(pair.number, expected->number) << "round " << round << ", step " << step;
            }
        }
    }
}

TEST(zx_parley_cluster_param, unusable_values_are_named) {
    const float nan = std::numeric_limits<float>::quiet_NaN(),
                infinity = std::numeric_limits<float>::infinity();
    float reference[2] = {1.0f, 0.0f};
    const zx_parley_cluster_param_t good = {reference, 2, 0.1f, 0.1f, 0.1f, 0.1f};
    EXPECT_EQ(zx_parley_cluster_param_inconsistency(&good, 2), nullptr);
    EXPECT_EQ(zx_parley_cluster_param_inconsistency(&good, 1), nullptr);
    EXPECT_STREQ(zx_parley_cluster_param_inconsistency(&good, 3), "length of the reference centroid");
    zx_parley_cluster_param_t bad = good;
    bad.segment_threshold = nan;
    EXPECT_STREQ(zx_parley_cluster_param_inconsistency(&bad, 2), "segment threshold");
    for (float value : {nan, infinity, 1e25f}) {
        reference[1] = value;
        EXPECT_STREQ(zx_parley_cluster_param_inconsistency(&good, 2), "reference centroid");
    }
}
