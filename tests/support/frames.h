// Test frames whose bytes derive from their number and length, so that any
// reader can verify a frame without knowing what the writer sent: the
// number (4 bytes), the length (4 bytes), then the derived bytes.
#pragma once

#include "tarvo/ringbuf.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace tarvo::test
{

// Fills frame `number` of `length` bytes (8 or more) at `at`.
inline void fillFrame(uint8_t *at, uint32_t number, uint32_t length)
{
    std::memcpy(at, &number, 4);
    std::memcpy(at + 4, &length, 4);
    for (uint32_t i = 8; i < length; i++)
        at[i] = uint8_t((number * 2654435761u + i * 40503u) >> 13);
}

// A length from 16 to 3015 bytes that varies with the frame's number.
inline uint32_t frameLength(uint32_t number)
{
    return 16 + (number * 977) % 3000;
}

// True when `length` bytes at `at` are exactly frame `number`.
inline bool frameIsIntact(const void *at, uint32_t number, uint32_t length)
{
    std::vector<uint8_t> expected(length < 8 ? 8 : length);
    fillFrame(expected.data(), number, uint32_t(expected.size()));
    return length >= 8 && std::memcmp(at, expected.data(), length) == 0;
}

// True when the frame `ring` holds at `payload` is the one its cell numbers.
inline bool heldFrameIsIntact(RingBuffer *ring, const void *payload)
{
    return frameIsIntact(payload, rbGetCellSeq(ring), rbGetCellLength(ring));
}

// Writes frame `number` copied (rbSafeWrite) or in place (rbLockWrite):
// 1 written, 0 no cell, -1 released.
inline int writeFrame(RingBuffer *ring, uint32_t number, uint32_t length, bool inPlace = false)
{
    if (!inPlace) {
        std::vector<uint8_t> frame(length);
        fillFrame(frame.data(), number, length);
        return rbSafeWrite(ring, frame.data(), length);
    }
    void *payload = rbLockWrite(ring, length);
    if (payload == nullptr || payload == RB_RELEASED)
        return payload ? -1 : 0;
    fillFrame(static_cast<uint8_t *>(payload), number, length);
    rbUnlockWrite(ring);
    return 1;
}

} // namespace tarvo::test
