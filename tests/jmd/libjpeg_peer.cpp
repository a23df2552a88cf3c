// libjpeg-turbo calls for the tests' frames and oracle maps.
#include "libjpeg_peer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <jpeglib.h>

namespace tarvo::test::jpeg
{
namespace
{

// The map byte the decoder must give a block with quantised DC `dc`.
uint8_t mapByte(int dc, int quantiser)
{
    int value = int(std::floor(dc * quantiser / 8.0));
    int wrapped = ((value % 1024) + 1024 + 512) % 1024 - 512;
    return uint8_t(std::clamp(wrapped + 128, 0, 255));
}

void readFrom(jpeg_decompress_struct &cinfo, const Bytes &frame)
{
    jpeg_mem_src(&cinfo, frame.data(), static_cast<unsigned long>(frame.size()));
    jpeg_read_header(&cinfo, TRUE);
}

} // namespace

Bytes compress(int width, int height, int colorSpace, int quality, unsigned restartMcus,
               const std::function<void(jpeg_compress_struct &)> &write)
{
    jpeg_compress_struct cinfo;
    jpeg_error_mgr errors;
    cinfo.err = jpeg_std_error(&errors);
    jpeg_create_compress(&cinfo);
    unsigned char *out = nullptr;
    unsigned long outSize = 0;
    jpeg_mem_dest(&cinfo, &out, &outSize);
    cinfo.image_width = JDIMENSION(width);
    cinfo.image_height = JDIMENSION(height);
    cinfo.input_components = 3;
    cinfo.in_color_space = J_COLOR_SPACE(colorSpace);
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    cinfo.comp_info[0].v_samp_factor = 1; // 2x1, where the default is 2x2
    cinfo.restart_interval = restartMcus;
    write(cinfo);
    jpeg_finish_compress(&cinfo);
    Bytes frame(out, out + outSize);
    jpeg_destroy_compress(&cinfo);
    std::free(out);
    return frame;
}

Bytes encode422(const Bytes &rgb, int width, int height, const EncodeOptions &options)
{
    auto write = [&](jpeg_compress_struct &cinfo) {
        cinfo.optimize_coding = options.optimizeCodes ? TRUE : FALSE;
        jpeg_start_compress(&cinfo, TRUE);
        while (cinfo.next_scanline < cinfo.image_height) {
            auto row = const_cast<JSAMPROW>(&rgb[size_t(cinfo.next_scanline) * size_t(width) * 3]);
            jpeg_write_scanlines(&cinfo, &row, 1);
        }
    };
    return compress(width, height, JCS_RGB, options.quality, unsigned(options.restartMcus), write);
}

Bytes blockMap(const Bytes &frame)
{
    jpeg_decompress_struct cinfo;
    jpeg_error_mgr errors;
    cinfo.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&cinfo);
    readFrom(cinfo, frame);
    jvirt_barray_ptr *coefficients = jpeg_read_coefficients(&cinfo);
    jpeg_component_info &luma = cinfo.comp_info[0];
    int quantiser = luma.quant_table->quantval[0];
    Bytes map;
    for (JDIMENSION row = 0; row < luma.height_in_blocks; row++) {
        JBLOCKARRAY blocks = (*cinfo.mem->access_virt_barray)(
            reinterpret_cast<j_common_ptr>(&cinfo), coefficients[0], row, 1, FALSE);
        for (JDIMENSION column = 0; column < luma.width_in_blocks; column++)
            map.push_back(mapByte(blocks[0][column][0], quantiser));
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return map;
}

Bytes scaledGray(const Bytes &frame)
{
    ScaledDecoder decoder;
    Bytes gray;
    decoder.decode(frame, gray);
    return gray;
}

ScaledDecoder::ScaledDecoder() : cinfo(new jpeg_decompress_struct), errors(new jpeg_error_mgr)
{
    cinfo->err = jpeg_std_error(errors);
    jpeg_create_decompress(cinfo);
}

ScaledDecoder::~ScaledDecoder()
{
    jpeg_destroy_decompress(cinfo);
    delete cinfo;
    delete errors;
}

size_t ScaledDecoder::decode(const Bytes &frame, Bytes &gray)
{
    readFrom(*cinfo, frame);
    cinfo->scale_num = 1;
    cinfo->scale_denom = 8;
    cinfo->out_color_space = JCS_GRAYSCALE;
    cinfo->dct_method = JDCT_ISLOW;
    jpeg_start_decompress(cinfo);
    size_t stride = cinfo->output_width;
    gray.resize(stride * cinfo->output_height);
    while (cinfo->output_scanline < cinfo->output_height) {
        JSAMPROW row = &gray[cinfo->output_scanline * stride];
        jpeg_read_scanlines(cinfo, &row, 1);
    }
    jpeg_finish_decompress(cinfo);
    return gray.size();
}

} // namespace tarvo::test::jpeg
