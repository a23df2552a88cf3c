// What it measures: frames per second of JpegMDecode (the block map of a
// frame) against libjpeg-turbo decoding the same frame at scale 1/8 to
// grayscale, its fastest path that needs only the DC values, with one
// decompressor kept across frames.  Each frame set is timed in alternating
// rounds and the best round of each decoder counts; rounds are timed in the
// thread's CPU time, so that on a shared machine the time other processes
// take from it is not counted against either decoder.
//
// On what data: photographs (python3-skimage's sample pictures, scaled and
// cropped by make_photos.py) encoded by libjpeg-turbo as the camera encodes,
// baseline 4:2:2, at quality 75 and 90, at 640x480 and 1920x1080; the same
// with a restart marker after every MCU row; and random noise at quality 90
// as the worst case (the most coefficients per block).
//
// Target: at least three times libjpeg-turbo's frames per second on every
// set.
//
//     jmd_bench [PHOTO_DIR]
#include "jmd_side.h"
#include "libjpeg_peer.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <time.h>
#include <vector>

namespace fs = std::filesystem;
using namespace tarvo::bench::jmd;
using namespace tarvo::test::jpeg;

namespace
{

constexpr double kTargetRatio = 3.0;

struct Picture {
    int width = 0;
    int height = 0;
    Bytes rgb;
};

struct FrameSet {
    std::string name;
    std::vector<Bytes> frames;
};

Picture readPpm(const fs::path &path)
{
    std::ifstream in(path, std::ios::binary);
    std::string magic;
    int maximum = 0;
    Picture picture;
    in >> magic >> picture.width >> picture.height >> maximum;
    in.get();
    picture.rgb.resize(size_t(picture.width) * size_t(picture.height) * 3);
    in.read(reinterpret_cast<char *>(picture.rgb.data()), std::streamsize(picture.rgb.size()));
    return picture;
}

std::vector<Picture> photos(const fs::path &folder, const std::string &size)
{
    std::vector<fs::path> paths;
    for (const auto &entry : fs::directory_iterator(folder))
        if (entry.path().filename().string().find("_" + size + ".ppm") != std::string::npos)
            paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    std::vector<Picture> pictures;
    for (const fs::path &path : paths)
        pictures.push_back(readPpm(path));
    return pictures;
}

Picture noise(int width, int height, uint32_t seed)
{
    Picture picture = {width, height, Bytes(size_t(width) * size_t(height) * 3)};
    for (uint8_t &byte : picture.rgb) {
        seed ^= seed << 13;
        seed ^= seed >> 17;
        seed ^= seed << 5;
        byte = uint8_t(seed);
    }
    return picture;
}

FrameSet encodeSet(const std::string &name, const std::vector<Picture> &pictures, int quality,
                   bool restartRows)
{
    FrameSet set = {name, {}};
    for (const Picture &picture : pictures)
        set.frames.push_back(
            encode422(picture.rgb, picture.width, picture.height,
                      {quality, restartRows ? (picture.width + 15) / 16 : 0, false}));
    return set;
}

// The map must be libjpeg's picture, or one less where libjpeg rounded up.
bool mapsAgree(MotionDecoder &motion, ScaledDecoder &scaled, const FrameSet &set)
{
    for (const Bytes &frame : set.frames) {
        Bytes gray;
        scaled.decode(frame, gray);
        Bytes map(gray.size());
        motion.decode(frame, map);
        for (size_t i = 0; i < map.size(); i++)
            if (!(map[i] == gray[i] || map[i] + 1 == gray[i]))
                return false;
    }
    return true;
}

double threadSeconds()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

template <typename Decode> double secondsFor(const FrameSet &set, int repeats, Decode decode)
{
    double start = threadSeconds();
    for (int r = 0; r < repeats; r++)
        for (const Bytes &frame : set.frames)
            decode(frame);
    return threadSeconds() - start;
}

} // namespace

int main(int argc, char **argv)
{
    const fs::path photoDir = argc > 1 ? argv[1] : JMD_BENCH_PHOTOS;
    std::string ours = libraryOfMotionDecoder(), peer = libraryOfLibjpegEntryPoints();
    if (ours.find("libTarvo") == std::string::npos || peer.find("libjpeg") == std::string::npos) {
        std::printf("calls reach the wrong library: JpegMDecode in %s, jpeg_* in %s\n",
                    ours.c_str(), peer.c_str());
        return 1;
    }

    std::vector<FrameSet> sets;
    for (const char *size : {"640x480", "1920x1080"}) {
        std::vector<Picture> pictures = photos(photoDir, size);
        if (pictures.empty()) {
            std::printf("no %s photographs in %s (make_photos.py writes them)\n", size,
                        photoDir.c_str());
            return 1;
        }
        for (int quality : {75, 90})
            sets.push_back(encodeSet("photos " + std::string(size) + " q" + std::to_string(quality),
                                     pictures, quality, false));
        sets.push_back(
            encodeSet("photos " + std::string(size) + " q75 restart/row", pictures, 75, true));
    }
    sets.push_back(
        encodeSet("noise 640x480 q90", {noise(640, 480, 1), noise(640, 480, 2)}, 90, false));
    sets.push_back(encodeSet("noise 1920x1080 q90", {noise(1920, 1080, 3)}, 90, false));

    MotionDecoder motion;
    ScaledDecoder scaled;
    Bytes map(1920 / 8 * 1080 / 8), gray;
    std::printf("%-32s %6s %9s %14s %14s %7s\n", "frame set", "frames", "avg bytes",
                "JpegMDecode/s", "libjpeg 1/8/s", "ratio");
    int met = 0;
    for (const FrameSet &set : sets) {
        if (!mapsAgree(motion, scaled, set)) {
            std::printf("%-32s maps disagree with libjpeg\n", set.name.c_str());
            return 1;
        }
        size_t bytes = 0;
        for (const Bytes &frame : set.frames)
            bytes += frame.size();
        // About 0.1 s per timing on the slower decoder.
        double once = secondsFor(set, 1, [&](const Bytes &frame) { scaled.decode(frame, gray); });
        int repeats = std::max(1, int(0.1 / std::max(once, 1e-6)));
        double best[2] = {1e30, 1e30};
        for (int round = 0; round < 7; round++) {
            best[0] = std::min(best[0], secondsFor(set, repeats, [&](const Bytes &frame) {
                                   motion.decode(frame, map);
                               }));
            best[1] = std::min(best[1], secondsFor(set, repeats, [&](const Bytes &frame) {
                                   scaled.decode(frame, gray);
                               }));
        }
        double frames = double(repeats) * double(set.frames.size());
        double ratio = best[1] / best[0];
        met += ratio >= kTargetRatio;
        std::printf("%-32s %6zu %9zu %14.0f %14.0f %6.2fx\n", set.name.c_str(), set.frames.size(),
                    bytes / set.frames.size(), frames / best[0], frames / best[1], ratio);
    }
    std::printf("target (at least %.0fx libjpeg-turbo's frames per second) met on %d of %zu sets\n",
                kTargetRatio, met, sets.size());
    return 0;
}
