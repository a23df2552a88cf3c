// The decoder under test, behind functions that need neither its header nor
// libjpeg's: both declare jpeg_read_header and jpeg_start_decompress.
#ifndef TARVO_BENCH_JMD_SIDE_H
#define TARVO_BENCH_JMD_SIDE_H

#include <cstdint>
#include <string>
#include <vector>

namespace tarvo::bench::jmd
{

class MotionDecoder
{
  public:
    MotionDecoder();
    ~MotionDecoder();
    void decode(const std::vector<uint8_t> &frame, std::vector<uint8_t> &map);

  private:
    void *context;
};

// The shared objects the bench's calls reach, for the bench to check.
std::string libraryOfMotionDecoder();
std::string libraryOfLibjpegEntryPoints();

} // namespace tarvo::bench::jmd

#endif
