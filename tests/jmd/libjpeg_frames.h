// Frames from chosen coefficients by libjpeg-turbo (the maps they must give
// come from libjpeg_peer.h).  jpeglib.h declares jpeg_* names as tarvo/jmd.h
// does: only the .cpp files include it.
#pragma once

#include <cstdint>
#include <vector>

namespace tarvo::test::jmd
{

struct FrameShape {
    const char *name;
    int width, height, quality;
    unsigned restartMcus; // restart markers every so many MCUs, 0 for none
    int acPerBlock;       // AC coefficients set in each block, at random places
};

// A frame from chosen coefficients, luminance sampled 2x1, its DC values on the
// map's clamp and wrap ends and a ramp; without tables, no DQT or DHT segment.
std::vector<uint8_t> writeFrame(const FrameShape &shape, bool withTables = true);

} // namespace tarvo::test::jmd
