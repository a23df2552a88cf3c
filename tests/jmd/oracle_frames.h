// Frames with their oracle maps, as the libjpeg tool wrote them: the ones
// committed with the tests, and on hosts with libjpeg the extended set
// written at build time.
#ifndef TARVO_TESTS_JMD_ORACLE_FRAMES_H
#define TARVO_TESTS_JMD_ORACLE_FRAMES_H

#include <cstdint>
#include <string>
#include <vector>

namespace tarvo::test::jmd
{

struct OracleFrame {
    std::string name;
    int width; // from the frame header
    int height;
    std::vector<uint8_t> jpeg;
    std::vector<uint8_t> map;  // exact block map from the quantised DC values
    std::vector<uint8_t> gray; // libjpeg's 1/8-scale grayscale decode
};

// Every frame of the committed fixtures, then of the extended set if this
// build wrote one; sorted by name within each.
std::vector<OracleFrame> oracleFrames();

// One committed fixture by name.
OracleFrame fixture(const std::string &name);

} // namespace tarvo::test::jmd

#endif
