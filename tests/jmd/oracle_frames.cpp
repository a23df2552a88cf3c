// Reading the oracle frames from their folders.
#include "oracle_frames.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace tarvo::test::jmd
{
namespace
{

std::vector<uint8_t> readFile(const fs::path &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                                std::istreambuf_iterator<char>());
}

OracleFrame load(const fs::path &path)
{
    fs::path base = path;
    OracleFrame frame = {path.stem().string(),
                         0,
                         0,
                         readFile(path),
                         readFile(base.replace_extension(".map")),
                         readFile(base.replace_extension(".gray"))};
    const std::vector<uint8_t> &jpeg = frame.jpeg;
    for (size_t at = 0; at + 9 <= jpeg.size(); at++) {
        if (jpeg[at] == 0xFF && jpeg[at + 1] == 0xC0) {
            frame.height = jpeg[at + 5] << 8 | jpeg[at + 6];
            frame.width = jpeg[at + 7] << 8 | jpeg[at + 8];
            break;
        }
    }
    return frame;
}

void appendFolder(std::vector<OracleFrame> &frames, const fs::path &folder)
{
    std::vector<fs::path> jpegs;
    for (const auto &entry : fs::directory_iterator(folder))
        if (entry.path().extension() == ".jpg")
            jpegs.push_back(entry.path());
    std::sort(jpegs.begin(), jpegs.end());
    for (const fs::path &jpeg : jpegs)
        frames.push_back(load(jpeg));
}

} // namespace

std::vector<OracleFrame> oracleFrames()
{
    std::vector<OracleFrame> frames;
    appendFolder(frames, JMD_FIXTURES_DIR);
#ifdef JMD_EXTENDED_DIR
    appendFolder(frames, JMD_EXTENDED_DIR);
#endif
    return frames;
}

OracleFrame fixture(const std::string &name)
{
    return load(fs::path(JMD_FIXTURES_DIR) / (name + ".jpg"));
}

} // namespace tarvo::test::jmd
