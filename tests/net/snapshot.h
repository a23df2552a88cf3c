// Snapshot-like test data: every byte value, line breaks and NULs included,
// in an order that shows any byte lost, added or moved.
#ifndef TARVO_TESTS_NET_SNAPSHOT_H
#define TARVO_TESTS_NET_SNAPSHOT_H

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>

namespace tarvo::test
{

inline std::string snapshotBytes(size_t length, uint32_t seed = 1)
{
    std::string bytes(length, '\0');
    uint32_t state = seed;
    for (char &byte : bytes) {
        state = state * 1103515245u + 12345u;
        byte = char(state >> 23);
    }
    return bytes;
}

// A whole file's bytes; "" when it cannot be read.
inline std::string fileBytes(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace tarvo::test

#endif
