// Motion between two block maps: the blocks whose mean brightness moved by
// more than a threshold, and their picture for an event.
#ifndef TARVO_DEMO_BLOCK_CHANGES_H
#define TARVO_DEMO_BLOCK_CHANGES_H

#include "board.h"

#include <cstdint>

namespace demo
{

struct BlockChanges {
    uint8_t changed[kMapBlocks]; // 1 changed, 0 not
    int count;
    int left, top, right, bottom; // bounding box in blocks, inclusive
};

void compareMaps(const uint8_t *before, const uint8_t *after, int threshold, BlockChanges &changes);

// Writes the map as a binary PGM, each block 8x8 pixels of its brightness,
// changed blocks outlined in white: true when written.
bool writeChangesPicture(const char *path, const uint8_t *map, const BlockChanges &changes);

} // namespace demo

#endif
