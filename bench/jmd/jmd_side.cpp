// JpegMDecode for the bench.
#include "jmd_side.h"

#include "tarvo/jmd.h"

#include <dlfcn.h>

namespace tarvo::bench::jmd
{

MotionDecoder::MotionDecoder() : context(new JmdContext)
{
    JpegMDInitial(static_cast<JmdContext *>(context));
}

MotionDecoder::~MotionDecoder()
{
    delete static_cast<JmdContext *>(context);
}

void MotionDecoder::decode(const std::vector<uint8_t> &frame, std::vector<uint8_t> &map)
{
    JpegMDecode(static_cast<JmdContext *>(context), frame.data(), uint32_t(frame.size()),
                map.data());
}

std::string libraryOfMotionDecoder()
{
    Dl_info info;
    return dladdr(reinterpret_cast<void *>(&JpegMDecode), &info) ? info.dli_fname : "?";
}

} // namespace tarvo::bench::jmd
