// Frames from coefficients, and maps from DC values, by libjpeg-turbo.
#include "libjpeg_frames.h"
#include "libjpeg_peer.h"

#include <algorithm>
#include <cstdio> // jpeglib.h needs FILE
#include <jpeglib.h>
#include <random>

namespace tarvo::test::jmd
{

// Every other block a DC whose map byte is at an end of the clamp (v = 127, 128,
// -128, -129 at quantiser 8), of the wrap (511, 512, -512, -513) or the range.
static int lumaDc(int block)
{
    static const int kEnds[] = {0, 127, 128, -128, -129, 511, 512, -512, -513, 1023, -1024, -1};
    return block % 2 ? kEnds[block / 2 % 12] : block * 37 % 2047 - 1023;
}

std::vector<uint8_t> writeFrame(const FrameShape &shape, bool withTables)
{
    jvirt_barray_ptr blocks[3]; // libjpeg reads them until the compression finishes
    auto write = [&](jpeg_compress_struct &cinfo) {
        auto common = reinterpret_cast<j_common_ptr>(&cinfo);
        JDIMENSION across = JDIMENSION(shape.width + 15) / 16,
                   down = JDIMENSION(shape.height + 7) / 8;
        for (int c = 0; c < 3; c++)
            blocks[c] = cinfo.mem->request_virt_barray(common, JPOOL_IMAGE, TRUE,
                                                       across * (c ? 1 : 2), down, 1);
        cinfo.mem->realize_virt_arrays(common);
        std::minstd_rand random(unsigned(shape.width * 7919 + shape.height));
        for (int c = 0, luma = 0; c < 3; c++)
            for (JDIMENSION row = 0; row < down; row++)
                for (JDIMENSION column = 0; column < across * (c ? 1 : 2); column++) {
                    JCOEF *block =
                        cinfo.mem->access_virt_barray(common, blocks[c], row, 1, TRUE)[0][column];
                    std::fill_n(block, DCTSIZE2, 0);
                    block[0] = JCOEF(c ? int(random() % 201) - 100 : lumaDc(luma++));
                    for (int n = 0; n < shape.acPerBlock; n++) {
                        int value =
                            random() % 8 ? int(random() % 7) - 3 : int(random() % 2047) - 1023;
                        block[1 + random() % 63] = JCOEF(value ? value : 1);
                    }
                }
        jpeg_write_coefficients(&cinfo, blocks);
        if (!withTables) // after the call above marked them all for writing
            jpeg_suppress_tables(&cinfo, TRUE);
    };
    return jpeg::compress(shape.width, shape.height, JCS_YCbCr, shape.quality, shape.restartMcus,
                          write);
}

} // namespace tarvo::test::jmd
