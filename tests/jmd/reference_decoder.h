// A plain implementation of the decoder, written step by step from its
// description with a byte-at-a-time bit buffer, for differential tests of
// the library's fast decoder.  It shares no code with the library and
// prints nothing: its messages are collected in `messages`.
#ifndef TARVO_TESTS_JMD_REFERENCE_DECODER_H
#define TARVO_TESTS_JMD_REFERENCE_DECODER_H

#include <cstdint>
#include <string>

namespace tarvo::test::jmd
{

class ReferenceDecoder
{
  public:
    ReferenceDecoder();
    // The whole decode of one frame, as JpegMDecode.
    void decode(const uint8_t *frame, uint32_t length, uint8_t *map);
    // The map bytes a frame of the last size read may fill.
    uint32_t mapBytes() const;

    std::string messages;

  private:
    struct Component {
        int component_id, component_index, h_samp_factor, v_samp_factor, quant_tbl_no;
        int dc_tbl_no, ac_tbl_no, mcu_width, mcu_height, mcu_blocks;
        int last_col_width, last_row_height, dc_multiplier, width_in_blocks, height_in_blocks;
        uint16_t dc_quant;
    };
    struct HuffTable {
        uint8_t counts[17];
        uint8_t symbols[256];
    };
    struct DerivedTable {
        const HuffTable *source;
        int32_t maxcode[18];
        int32_t valoffset[17];
        int look_nbits[256];
        uint8_t look_sym[256];
    };
    struct BitState {
        uint32_t buffer;
        int bits_left;
        const uint8_t *next;
        uint32_t bytes_left;
    };

    // Marker reader.
    bool haveBytes(uint32_t count) const { return bytes_left >= count; }
    int takeByte();
    int takeWord();
    void skipInput(int32_t count);
    int readFirstMarker();
    int scanMarker();
    int readFrame();
    int readScan();
    int readHuffman();
    int readQuant();
    int readRestartInterval();
    int skipSegment();
    int readMarkers();
    int readRestartMarker();
    int resyncToRestart(int desired);

    // Entropy decoding.
    void buildDerived(const HuffTable &source, DerivedTable &derived);
    const DerivedTable &tableFor(bool dc, int number);
    void startHuffman();
    bool fillBits(BitState &state, int nbits);
    int decodeSymbol(BitState &state, const DerivedTable &table, int minBits);
    int decodeSymbolLookAhead(BitState &state, const DerivedTable &table);
    int restart();
    int decodeMcu(int16_t *dc);

    // Output stage and entry points.
    void setupMcu();
    int decodeMcuRow();
    void putBlock(const Component &comp, int16_t dc);
    int readHeader();
    void startDecompress();
    int scanlines();

    int comps_in_scan = 0, num_components = 0, unread_marker = 0, blocks_in_MCU = 0;
    uint32_t out_count = 0;
    int image_width = 0, image_height = 0;
    uint32_t mcu_row = 0, total_mcu_rows = 0, mcus_per_row = 0;
    int restart_interval = 0;
    int mcu_membership[4] = {};
    uint16_t dc_quant[16] = {};
    uint8_t clamp[1408] = {};
    HuffTable dc_huff[4] = {}, ac_huff[4] = {};
    Component comp[5] = {};
    int cur_comp[4] = {};
    uint32_t bytes_left = 0;
    const uint8_t *next_byte = nullptr;
    uint32_t mcu_ctr = 0;
    int saw_SOI = 0, next_restart_num = 0, restarts_to_go = 0, insufficient_data = 0;
    uint32_t bit_buffer = 0;
    int bits_left = 0;
    uint32_t last_dc_val = 0;
    DerivedTable dc_derived[4] = {}, ac_derived[4] = {}, empty = {};
    const DerivedTable *dc_cur[4] = {}, *ac_cur[4] = {};
    uint8_t *out_map = nullptr;
    bool layout_fits = false;
};

} // namespace tarvo::test::jmd

#endif
