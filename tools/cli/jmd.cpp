// tarvo-jmd: the block maps the motion detector sees, for tuning its
// thresholds: each JPEG frame's map printed as a grid of numbers or written as
// a PGM picture, or the blocks where two frames' maps differ by more than a
// threshold.
#include "cli.h"

#include "tarvo/jmd.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

using namespace tarvo::cli;

namespace
{

const char kUsage[] =
    "Usage: tarvo-jmd [--pgm OUT.pgm [--scale N]] FRAME.jpg...\n"
    "       tarvo-jmd --diff T [--pgm OUT.pgm [--scale N]] BEFORE.jpg AFTER.jpg\n"
    "\n"
    "Decodes camera frames (baseline JPEG, luminance sampled 2x1) into their block\n"
    "maps: one number per 8x8 block, its mean brightness 0..255.  Frames are\n"
    "decoded in order with one decoder, so tables carry over from frame to frame\n"
    "as in the camera.\n"
    "\n"
    "  (default)     print each map as a grid, one text line per row of blocks\n"
    "  --diff T      print where the two maps differ by more than T (0..255): the\n"
    "                difference there, '.' elsewhere, and how many blocks that is\n"
    "  --pgm OUT     write the one map (or the difference) as a greyscale PGM\n"
    "                picture instead, one pixel per block\n"
    "  --scale N     N x N pixels per block in the picture (1..64, default 1)\n"
    "\n"
    "Exit status: 0 done; 1 a file could not be read or written, or a frame is not\n"
    "one the decoder takes (the decoder's own line says where it failed); 2 usage\n"
    "error.\n";

// The decoder writes at most ceil(width / 8) x ceil(height / 8) bytes for the
// dimensions it read itself; 16-bit dimensions bound that.  The whole span is
// reserved once, so that no frame can make it write past the map, and only
// the pages a map touches take memory.
constexpr size_t kBlocksPerSide = (65535 + 7) / 8;
constexpr size_t kMapLimit = kBlocksPerSide * kBlocksPerSide;
constexpr long kFrameLimit = 64L << 20;

struct BlockMap {
    uint32_t columns = 0, rows = 0;
    std::vector<uint8_t> blocks;
};

uint32_t wordAt(const std::vector<uint8_t> &data, size_t at)
{
    return uint32_t{data[at]} << 8 | data[at + 1];
}

// The block columns and rows of a frame from its last frame header (SOF0 to
// SOF2) before the scan; false, with `problem` set, for a frame the map
// would not be a picture of.
bool readGeometry(const std::vector<uint8_t> &frame, BlockMap &map, const char *&problem)
{
    problem = "it is not a JPEG frame with a frame header before its scan";
    if (frame.size() < 4 || frame[0] != 0xFF || frame[1] != 0xD8)
        return false;
    bool found = false;
    for (size_t at = 2; at + 4 <= frame.size();) {
        uint8_t marker = frame[at + 1];
        if (frame[at] != 0xFF || marker == 0xD9)
            return false;
        if (marker == 0xFF || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {
            at += marker == 0xFF ? 1 : 2; // a fill byte, or a marker without a segment
            continue;
        }
        size_t length = wordAt(frame, at + 2);
        if (length < 2 || at + 2 + length > frame.size())
            return false;
        if (marker == 0xDA)
            return found;
        if (marker >= 0xC0 && marker <= 0xC2) {
            if (length < 11)
                return false;
            uint32_t height = wordAt(frame, at + 5), width = wordAt(frame, at + 7);
            uint8_t lumaSampling = frame[at + 11];
            if (lumaSampling != 0x21) {
                problem = "its luminance is not sampled 2x1, so its map is not a picture";
                return false;
            }
            map.columns = (width + 7) / 8;
            map.rows = (height + 7) / 8;
            found = true;
        }
        at += 2 + length;
    }
    return false;
}

bool readFile(const char *path, std::vector<uint8_t> &data)
{
    FILE *file = std::fopen(path, "rb");
    if (file == nullptr)
        return false;
    bool whole = std::fseek(file, 0, SEEK_END) == 0;
    long length = whole ? std::ftell(file) : -1;
    whole = length >= 0 && length <= kFrameLimit && std::fseek(file, 0, SEEK_SET) == 0;
    if (whole) {
        data.resize(size_t(length));
        whole = std::fread(data.data(), 1, data.size(), file) == data.size();
    }
    std::fclose(file);
    if (length > kFrameLimit)
        errno = EFBIG;
    return whole;
}

class Decoder
{
  public:
    explicit Decoder(const CommandLine &line) : line_(line)
    {
        void *span = mmap(nullptr, kMapLimit, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        span_ = span == MAP_FAILED ? nullptr : static_cast<uint8_t *>(span);
        JpegMDInitial(&context_);
    }
    ~Decoder()
    {
        if (span_)
            munmap(span_, kMapLimit);
    }
    Decoder(const Decoder &) = delete;
    Decoder &operator=(const Decoder &) = delete;

    // The map of the frame in `path`; false after saying why there is none.
    bool decode(const char *path, BlockMap &map)
    {
        std::vector<uint8_t> frame;
        const char *problem = nullptr;
        if (span_ == nullptr)
            line_.failure("no memory for a block map");
        else if (!readFile(path, frame))
            line_.failure("cannot read %s: %s", path, std::strerror(errno));
        else if (!readGeometry(frame, map, problem))
            line_.failure("%s: %s", path, problem);
        else
            return decodeRows(path, frame, map);
        return false;
    }

  private:
    bool decodeRows(const char *path, const std::vector<uint8_t> &frame, BlockMap &map)
    {
        jpeg_reset(&context_, frame.data(), uint32_t(frame.size()), span_);
        if (jpeg_read_header(&context_) != 0) {
            line_.failure("%s: the decoder cannot read its header", path);
            return false;
        }
        jpeg_start_decompress(&context_);
        for (uint32_t row = 0; row < map.rows; row++) {
            if (jpeg_scanlines(&context_) != 0) {
                line_.failure("%s: its data ends inside block row %u", path, row);
                return false;
            }
        }
        map.blocks.assign(span_, span_ + size_t(map.columns) * map.rows);
        return true;
    }

    const CommandLine &line_;
    JmdContext context_;
    uint8_t *span_;
};

// Blocks where `after` differs from `before` by more than threshold hold the
// difference, the others 0; the number of such blocks.
uint32_t difference(const BlockMap &before, const BlockMap &after, long threshold, BlockMap &out)
{
    out = before;
    uint32_t changed = 0;
    for (size_t i = 0; i < out.blocks.size(); i++) {
        int delta = after.blocks[i] - before.blocks[i];
        delta = delta < 0 ? -delta : delta;
        out.blocks[i] = uint8_t(delta > threshold ? delta : 0);
        changed += delta > threshold;
    }
    return changed;
}

void printGrid(const BlockMap &map, bool dotsForZero)
{
    for (uint32_t row = 0; row < map.rows; row++) {
        for (uint32_t column = 0; column < map.columns; column++) {
            uint8_t value = map.blocks[size_t(row) * map.columns + column];
            std::printf(dotsForZero && value == 0 ? "%s  ." : "%s%3u", column ? " " : "", value);
        }
        std::printf("\n");
    }
}

bool writePgm(const char *path, const BlockMap &map, uint32_t scale)
{
    FILE *file = std::fopen(path, "wb");
    if (file == nullptr)
        return false;
    bool written =
        std::fprintf(file, "P5\n%u %u\n255\n", map.columns * scale, map.rows * scale) > 0;
    std::vector<uint8_t> line(size_t(map.columns) * scale);
    for (uint32_t row = 0; written && row < map.rows * scale; row++) {
        for (size_t x = 0; x < line.size(); x++)
            line[x] = map.blocks[size_t(row / scale) * map.columns + x / scale];
        written = std::fwrite(line.data(), 1, line.size(), file) == line.size();
    }
    return std::fclose(file) == 0 && written;
}

} // namespace

int main(int argc, char **argv)
{
    CommandLine line("tarvo-jmd", kUsage, argc, argv);
    if (line.helpWanted())
        return kExitOk;
    long threshold = -1, scale = 1;
    const char *pgm = nullptr;
    std::vector<const char *> frames;
    while (!line.done()) {
        bool understood = true;
        if (line.option("--diff"))
            understood = line.number(0, 255, threshold);
        else if (line.option("--pgm"))
            understood = line.text(pgm);
        else if (line.option("--scale"))
            understood = line.number(1, 64, scale);
        else if (const char *frame = line.plain())
            frames.push_back(frame);
        else
            understood = false;
        if (!understood)
            return kExitUsage;
    }
    bool diff = threshold >= 0;
    if (frames.empty() || (diff && frames.size() != 2))
        return line.usageError(diff ? "--diff compares two frames" : "name at least one frame");
    if (pgm && !diff && frames.size() != 1)
        return line.usageError("--pgm writes one map: give one frame, or --diff and two");

    Decoder decoder(line);
    std::vector<BlockMap> maps(frames.size());
    for (size_t i = 0; i < frames.size(); i++) {
        if (!decoder.decode(frames[i], maps[i]))
            return kExitFailure;
        if (!diff && !pgm) {
            std::printf("# %s: %u x %u blocks\n", frames[i], maps[i].columns, maps[i].rows);
            printGrid(maps[i], false);
        }
    }
    BlockMap shown = maps[0];
    if (diff) {
        if (maps[0].columns != maps[1].columns || maps[0].rows != maps[1].rows)
            return line.failure("%s is %u x %u blocks but %s is %u x %u: compare frames of one "
                                "stream",
                                frames[0], maps[0].columns, maps[0].rows, frames[1],
                                maps[1].columns, maps[1].rows);
        uint32_t changed = difference(maps[0], maps[1], threshold, shown);
        std::printf("# %s -> %s: %u of %zu blocks differ by more than %ld\n", frames[0], frames[1],
                    changed, shown.blocks.size(), threshold);
        if (!pgm)
            printGrid(shown, true);
    }
    if (pgm && !writePgm(pgm, shown, uint32_t(scale)))
        return line.failure("cannot write %s: %s", pgm, std::strerror(errno));
    return kExitOk;
}
