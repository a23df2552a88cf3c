// Comparing block maps, and drawing them.
#include "block_changes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace demo
{

void compareMaps(const uint8_t *before, const uint8_t *after, int threshold, BlockChanges &changes)
{
    changes.count = 0;
    changes.left = kMapColumns;
    changes.top = kMapRows;
    changes.right = changes.bottom = -1;
    for (int block = 0; block < kMapBlocks; block++) {
        bool changed = abs(int(after[block]) - int(before[block])) > threshold;
        changes.changed[block] = changed;
        if (!changed)
            continue;
        int column = block % kMapColumns, row = block / kMapColumns;
        changes.count++;
        changes.left = std::min(changes.left, column);
        changes.right = std::max(changes.right, column);
        changes.top = std::min(changes.top, row);
        changes.bottom = std::max(changes.bottom, row);
    }
}

bool writeChangesPicture(const char *path, const uint8_t *map, const BlockChanges &changes)
{
    constexpr int kScale = 8, width = kMapColumns * kScale, height = kMapRows * kScale;
    std::vector<uint8_t> pixels(size_t(width) * height);
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
            int block = y / kScale * kMapColumns + x / kScale;
            bool edge = x % kScale == 0 || y % kScale == 0 || x % kScale == kScale - 1 ||
                        y % kScale == kScale - 1;
            pixels[size_t(y) * width + x] = changes.changed[block] && edge ? 255 : map[block];
        }
    FILE *file = fopen(path, "wb");
    if (file == nullptr)
        return false;
    fprintf(file, "P5\n%d %d\n255\n", width, height);
    bool written = fwrite(pixels.data(), 1, pixels.size(), file) == pixels.size();
    return fclose(file) == 0 && written;
}

} // namespace demo
