// Host-only tool (links libjpeg-turbo, never libTarvo): writes test frames
// with their oracle maps, and checks committed frames against libjpeg.
//
//   jmd_oracle write fixtures|extended DIR   NAME.jpg, NAME.map, NAME.gray per frame
//   jmd_oracle check DIR                     every DIR/NAME.jpg against its files
//
// NAME.map is the exact block map (libjpeg's quantised DC values) and
// NAME.gray libjpeg's 1/8-scale grayscale decode of the frame.
#include "libjpeg_peer.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace fs = std::filesystem;
using namespace tarvo::test::jpeg;

namespace
{

struct FrameSpec {
    const char *name;
    int width;
    int height;
    EncodeOptions options;
    int noise; // amplitude of per-pixel noise over the scene
};

// Committed to the repository (small): what every target, the camera's
// included, decodes and compares.
const FrameSpec kFixtures[] = {
    {"scene_16x8_q75", 16, 8, {75, 0, false}, 4},
    {"scene_24x8_q75", 24, 8, {75, 0, false}, 4},
    {"scene_200x120_q50_rst_row", 200, 120, {50, 13, true}, 8},
    {"scene_648x484_q75_rst5", 648, 484, {75, 5, false}, 6},
    {"scene_648x484_q90", 648, 484, {90, 0, false}, 6},
};

// Written at build time on hosts with libjpeg: more sizes, qualities and
// restart intervals.
const FrameSpec kExtended[] = {
    {"scene_8x8_q75", 8, 8, {75, 0, false}, 4},
    {"scene_33x17_q85_rst1", 33, 17, {85, 1, false}, 4},
    {"scene_640x480_q75", 640, 480, {75, 0, false}, 6},
    {"scene_640x480_q90_rst40", 640, 480, {90, 40, false}, 6},
    {"scene_640x480_q100_rst7", 640, 480, {100, 7, false}, 6},
    {"scene_1288x728_q85_opt", 1288, 728, {85, 0, true}, 6},
    {"noise_320x240_q95", 320, 240, {95, 3, false}, 120},
    {"noise_312x232_q100_opt", 312, 232, {100, 0, true}, 255},
};

uint32_t nextRandom(uint32_t &state)
{
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state;
}

// A scene with the look of a photograph: lit gradients, soft-edged discs,
// fine texture and sensor-like noise.
Bytes scene(int width, int height, int noise)
{
    Bytes rgb(size_t(width) * size_t(height) * 3);
    uint32_t random = 0x9E3779B9u ^ uint32_t(width * 7919 + height);
    for (int y = 0; y < height; y++) {
        for (int x = 0; x < width; x++) {
            double u = double(x) / width, v = double(y) / height;
            double light = 90 + 100 * u * (1 - v) + 40 * std::sin(7 * u + 3 * v);
            double disc = std::hypot(u - 0.6, v - 0.4) < 0.22 ? 60 : 0;
            double texture = 18 * std::sin(x * 0.9) * std::cos(y * 0.7);
            for (int c = 0; c < 3; c++) {
                int jitter = noise ? int(nextRandom(random) % uint32_t(2 * noise + 1)) - noise : 0;
                double value =
                    light * (0.8 + 0.15 * c) + disc * (c == 2 ? -1 : 1) + texture + jitter;
                rgb[(size_t(y) * width + x) * 3 + c] =
                    uint8_t(std::lround(std::fmin(255, std::fmax(0, value))));
            }
        }
    }
    return rgb;
}

Bytes readFile(const fs::path &path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const fs::path &path, const Bytes &bytes)
{
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
}

template <size_t N> int write(const FrameSpec (&frameSpecs)[N], const fs::path &dir)
{
    fs::create_directories(dir);
    for (const FrameSpec &frameSpec : frameSpecs) {
        Bytes frame = encode422(scene(frameSpec.width, frameSpec.height, frameSpec.noise), frameSpec.width, frameSpec.height,
                                frameSpec.options);
        writeFile(dir / (std::string(frameSpec.name) + ".jpg"), frame);
        writeFile(dir / (std::string(frameSpec.name) + ".map"), blockMap(frame));
        writeFile(dir / (std::string(frameSpec.name) + ".gray"), scaledGray(frame));
    }
    return 0;
}

int check(const fs::path &dir)
{
    int frames = 0, failures = 0;
    for (const auto &entry : fs::directory_iterator(dir)) {
        if (entry.path().extension() != ".jpg")
            continue;
        Bytes frame = readFile(entry.path());
        fs::path base = entry.path();
        bool mapAgrees = blockMap(frame) == readFile(base.replace_extension(".map"));
        bool grayAgrees = scaledGray(frame) == readFile(base.replace_extension(".gray"));
        if (!mapAgrees || !grayAgrees) {
            std::printf("%s: the committed %s no longer agrees with libjpeg\n",
                        entry.path().c_str(), mapAgrees ? "1/8-scale picture" : "map");
            failures++;
        }
        frames++;
    }
    std::printf("%d frames checked, %d disagree\n", frames, failures);
    return frames == 0 || failures ? 1 : 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 4 && std::strcmp(argv[1], "write") == 0 && std::strcmp(argv[2], "fixtures") == 0)
        return write(kFixtures, argv[3]);
    if (argc == 4 && std::strcmp(argv[1], "write") == 0 && std::strcmp(argv[2], "extended") == 0)
        return write(kExtended, argv[3]);
    if (argc == 3 && std::strcmp(argv[1], "check") == 0)
        return check(argv[2]);
    std::fprintf(stderr, "usage: jmd_oracle write fixtures|extended DIR | check DIR\n");
    return 2;
}
