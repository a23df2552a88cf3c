// Test frames whose bytes derive from their number, so that any reader can
// verify a frame it received without knowing what the writer sent.  Layout:
// the number (4 bytes), the length (4 bytes), then derived bytes.
#ifndef TARVO_TESTS_FRAMES_H
#define TARVO_TESTS_FRAMES_H

#include <cstdint>
#include <cstring>
#include <vector>

namespace tarvo::test
{

inline uint8_t frameByte(uint32_t number, uint32_t index)
{
    return uint8_t((number * 2654435761u + index * 40503u) >> 13);
}

inline void fillFrame(uint8_t *at, uint32_t number, uint32_t length)
{
    std::memcpy(at, &number, 4);
    std::memcpy(at + 4, &length, 4);
    for (uint32_t i = 8; i < length; i++)
        at[i] = frameByte(number, i);
}

inline std::vector<uint8_t> makeFrame(uint32_t number, uint32_t length)
{
    std::vector<uint8_t> frame(length < 8 ? 8 : length);
    fillFrame(frame.data(), number, uint32_t(frame.size()));
    return frame;
}

inline uint32_t frameNumber(const void *at)
{
    uint32_t number;
    std::memcpy(&number, at, 4);
    return number;
}

// True when `length` bytes at `at` are exactly the frame they claim to be.
inline bool frameIsIntact(const void *at, uint32_t length)
{
    if (length < 8)
        return false;
    std::vector<uint8_t> expected = makeFrame(frameNumber(at), length);
    return std::memcmp(at, expected.data(), length) == 0;
}

} // namespace tarvo::test

#endif
