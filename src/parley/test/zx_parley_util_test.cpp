// SPDX-License-Identifier: Apache-2.0
#include "zx_parley_util.h"

#include "support.h"

namespace {

auto make_vector(int32_t capacity, uint32_t first, uint32_t count) {
    zx_parley_vector_t *vector = nullptr;
    EXPECT_EQ(zx_parley_vector_init(capacity, &vector), ZX_STATUS_SUCCESS);
    for (uint32_t i = 0; i < count; i++)
        EXPECT_EQ(zx_parley_vector_insert(vector, first + i), ZX_STATUS_SUCCESS);
    return owned<zx_parley_vector_delete>(vector);
}

zx_parley_cluster_node_t *make_node(std::vector<float> centroid, float weight, int32_t id) {
    zx_parley_cluster_node_t *node = nullptr;
    EXPECT_EQ(zx_parley_cluster_node_init(centroid.data(), static_cast<int32_t>(centroid.size()), weight, id,
                                          make_vector(100, 0, 0).release(), &node),
              ZX_STATUS_SUCCESS);
    return node;
}

float *make_record(float key) {
    float *record = zx_heap_zeroed<float>();
    *record = key;
    return record;
}

auto make_heap(uint32_t capacity, const std::vector<float> &keys) {
    zx_parley_heap_t *heap = nullptr;
    EXPECT_EQ(zx_parley_heap_init(capacity, &heap), ZX_STATUS_SUCCESS);
    for (float key : keys) EXPECT_EQ(zx_parley_heap_insert(heap, make_record(key)), ZX_STATUS_SUCCESS);
    return owned<zx_parley_heap_delete>(heap);
}

std::vector<float> slots(const zx_parley_heap_t *heap) {
    std::vector<float> keys;
    for (uint32_t i = 1; i <= heap->size; i++) keys.push_back(*static_cast<float *>(heap->nodes[i]));
    return keys;
}

float pop_key(zx_parley_heap_t *heap) {
    const zx_heap_ptr<float> record(static_cast<float *>(zx_parley_heap_pop(heap)));
    return *record;
}

std::vector<int32_t> ids(const zx_parley_list_t *list) {
    std::vector<int32_t> forwards, backwards;
    for (const auto *node = list->head; node; node = node->next) forwards.push_back(node->id);
    for (const auto *node = list->tail; node; node = node->prev)
        backwards.insert(backwards.begin(), node->id);
    EXPECT_EQ(forwards, backwards);
    EXPECT_EQ(forwards.size(), list->size);
    return forwards;
}

}  // namespace

TEST(zx_parley_vector, merging_keeps_the_order) {
    const auto target = make_vector(100, 1000, 101);
    const auto source = make_vector(100, 0, 150);
    ASSERT_EQ(zx_parley_vector_merge(target.get(), source.get()), ZX_STATUS_SUCCESS);
    ASSERT_EQ(target->size, 251);
    EXPECT_EQ(target->data[100], 1100u);
    EXPECT_EQ(target->data[101], 0u);
    EXPECT_EQ(target->data[250], 149u);
    EXPECT_EQ(source->size, 150);
}

TEST(zx_parley_list, links_hold_under_insertion_and_removal_anywhere) {
    zx_parley_list_t *list = nullptr;
    ASSERT_EQ(zx_parley_list_init(&list), ZX_STATUS_SUCCESS);
    const auto owner = owned<zx_parley_list_delete>(list);
    std::vector<zx_parley_cluster_node_t *> nodes;
    for (int32_t id = 0; id < 5; id++) {
        nodes.push_back(make_node({1.0f}, 1.0f, id));
        zx_parley_list_insert(list, nodes.back());
    }
    using testing::ElementsAre;
    EXPECT_THAT(ids(list), ElementsAre(4, 3, 2, 1, 0));
    zx_parley_list_remove(list, nodes[2]);
    EXPECT_THAT(ids(list), ElementsAre(4, 3, 1, 0));
    zx_parley_list_remove(list, nodes[4]);
    zx_parley_list_remove(list, nodes[0]);
    EXPECT_THAT(ids(list), ElementsAre(3, 1));
    zx_parley_list_remove(list, nodes[1]);
    zx_parley_list_remove(list, nodes[3]);
    EXPECT_THAT(ids(list), testing::IsEmpty());
    zx_parley_list_insert(list, make_node({1.0f}, 1.0f, 7));
    zx_parley_list_reset(list);
    EXPECT_EQ(list->head, nullptr);
    EXPECT_EQ(list->tail, nullptr);
}

TEST(zx_parley_heap, pop_order_does_not_compare_the_last_slot) {
    using testing::ElementsAre;
    const auto ordered = make_heap(6, {3, 1, 2});
    EXPECT_THAT(slots(ordered.get()), ElementsAre(1, 3, 2));
    EXPECT_EQ(pop_key(ordered.get()), 1);
    EXPECT_EQ(pop_key(ordered.get()), 2);
    EXPECT_EQ(pop_key(ordered.get()), 3);
    EXPECT_EQ(zx_parley_heap_pop(ordered.get()), nullptr);

    const auto surprising = make_heap(6, {1, 2, 3});
    EXPECT_EQ(pop_key(surprising.get()), 1);
    EXPECT_THAT(slots(surprising.get()), ElementsAre(3, 2));
    EXPECT_EQ(pop_key(surprising.get()), 3);
    EXPECT_EQ(pop_key(surprising.get()), 2);
}

TEST(zx_parley_heap, equal_keys_keep_their_order_of_arrival) {
    const auto heap = make_heap(8, {5, 5, 5});
    void *first = heap->nodes[1];
    ASSERT_EQ(zx_parley_heap_insert(heap.get(), make_record(5)), ZX_STATUS_SUCCESS);
    EXPECT_EQ(heap->nodes[1], first);
}

TEST(zx_parley_cluster_node, averages_by_weight_and_consumes_the_frames) {
    const auto node = owned<zx_parley_cluster_node_delete>(make_node({1.0f, 0.0f}, 1.0f, 0));
    const float e2[] = {0.0f, 1.0f};
    ASSERT_EQ(zx_parley_cluster_node_update(node.get(), e2, 2, 1.0f, make_vector(100, 42, 1).release()),
              ZX_STATUS_SUCCESS);
    EXPECT_EQ(node->weight, 2.0f);
    EXPECT_NEAR(node->centroid[0], 0.7071f, 1e-3f);
    EXPECT_EQ(node->centroid[0], node->centroid[1]);
    EXPECT_EQ(node->frames->size, 1);
    EXPECT_EQ(node->frames->data[0], 42u);
}
