// SPDX-License-Identifier: Apache-2.0
// Divisions of a long recording from those of its pieces: within a minute few people speak, who are told
// apart more surely than all those of the whole, and who say enough there to be recognised in other pieces.
#ifndef PARLEY_PIECES_H
#define PARLEY_PIECES_H

#include <functional>

#include "frames.h"
#include "linkage.h"

// A recording divided piece by piece.
struct divided_pieces {
    tags labels;  // of blocks, from 1 on; no speaker is in two pieces
    size_t num_speakers = 0;
    std::vector<merge> tree;  // of the speakers: tag t is point t - 1
};

// What `divide` makes of every minute, the blocks [first, end), which have so many frames each. Recordings
// too short for two pieces have no speakers here.
divided_pieces divide_pieces(const frames &blocks, int32_t block_size,
                             const std::function<tags(int32_t first, int32_t end)> &divide);

// Labels of blocks: the pieces' speakers, the nearest of them joined until `number` are left.
tags join_pieces(const divided_pieces &pieces, size_t number);

#endif
