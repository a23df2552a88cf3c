// Any input, decoded twice in a row through one context (the second time
// with the tables and size the first left), must end without a fault, write
// no byte outside its map, and give the plain reference decoder's map.
#include "tarvo/jmd.h"

#include "jmd/reference_decoder.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

using tarvo::test::jmd::ReferenceDecoder;

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // The decoder's messages would flood the run's log.
    return std::freopen("/dev/null", "w", stdout) ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const uint32_t length = uint32_t(size);
    // A first pass of the reference tells how large the maps must be.
    auto sizing = std::make_unique<ReferenceDecoder>();
    sizing->decode(data, length, nullptr);
    uint32_t firstBytes = sizing->mapBytes();
    sizing->decode(data, length, nullptr);
    uint32_t mapBytes = std::max(firstBytes, sizing->mapBytes());

    auto ctx = std::make_unique<JmdContext>();
    JpegMDInitial(ctx.get());
    auto reference = std::make_unique<ReferenceDecoder>();
    std::vector<uint8_t> map(mapBytes, 0xA5), expected(mapBytes, 0xA5);
    for (int pass = 0; pass < 2; pass++) {
        JpegMDecode(ctx.get(), data, length, map.data());
        reference->decode(data, length, expected.data());
        if (map != expected)
            __builtin_trap();
    }
    return 0;
}
