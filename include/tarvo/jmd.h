/*
 * Motion-detection JPEG decoder: turns one camera JPEG frame (baseline
 * Huffman coding, luminance sampled 2x1 against one block each of two chroma
 * components, one interleaved scan) into the block map, one byte per 8x8
 * luminance block holding that block's mean brightness, floor(DC x
 * quantiser / 8) + 128 clamped to 0..255 (a value outside -512..511 wraps
 * modulo 1024 first).  Nothing else is reconstructed.  Map bytes follow MCU
 * by MCU, MCU rows top to bottom; for 2x1 frames that is a row-major picture
 * of ceil(width / 8) x ceil(height / 8) bytes.
 *
 * All state lives in a caller-reserved JmdContext of JMD_CONTEXT_SIZE bytes;
 * the decoder allocates nothing and keeps no global state, so each camera
 * stream can have its own context on any thread.  One context must not be
 * used by two threads at once.  Failures are reported only by two lines on
 * standard output: "JMD: read header fail!" and "JMD: decompress fail at MCU
 * row: N" (N the 0-based MCU row).
 *
 * The context is reused from frame to frame without clearing: Huffman
 * tables, quantisers and the restart interval persist, so a frame without
 * DHT or DQT segments decodes with the tables of the frames before it.  A
 * frame whose header fails still runs the row loop on what the context holds
 * (dimensions included), yielding the row message or a map built from stale
 * tables.  A scan that runs into a marker (normally EOI) before its data is
 * complete decodes the missing bits as zeros and every later MCU up to the
 * next restart marker as DC 0 (map byte 128), without a message.
 *
 * Limits of the layout, and what happens beyond them (every input ends in
 * bounded time, and nothing is written outside the context or the map):
 *  - The map must hold ceil(width / 8) x ceil(height / 8) bytes for the
 *    dimensions of the last frame whose header was read successfully; the
 *    decoder never writes past that many bytes (frames sampled other than
 *    2x1 may have more blocks, which are then dropped).
 *  - A width of 0 gives rows without MCUs; a height of 0 gives no rows.
 *  - An MCU of more than four blocks, more than four scan components, or a
 *    sampling factor of 0 on the scan's first component: the rows decode and
 *    write nothing, each jpeg_scanlines call moving on to the next row.
 *  - SOF components after the fourth are read and ignored.  A scan selector
 *    that names no component the frame has takes the record after the last
 *    one defined (a spare, initially empty record once four are defined).
 *  - Huffman tables numbered above 3 are read and dropped; a scan naming one
 *    decodes every symbol of it as 0 (17 bits consumed).  Symbols past the
 *    256th of a table decode as 0.  A DC category above 15 is a difference
 *    of 0 with no magnitude bits.
 *  - Quantisation tables 4 to 15 are kept; a frame component selecting a
 *    table above 15 gets a quantiser of 0 (map bytes 128).
 *
 * Every function does nothing when given a null context (results 0, or -1
 * for jpeg_read_header and jpeg_scanlines).  A null frame counts as empty
 * and a null map takes no bytes.
 */
#ifndef TARVO_JMD_H
#define TARVO_JMD_H

#include <stdint.h>

#include "api.h"

TARVO_BEGIN_DECLS

/* Bytes a caller reserves for one decoder context. */
#define JMD_CONTEXT_SIZE 15480

/* The decoder's state block: declare one, or reserve JMD_CONTEXT_SIZE bytes
 * aligned for a pointer (malloc memory is).  Its contents are private. */
typedef union JmdContext {
    unsigned char bytes[JMD_CONTEXT_SIZE];
    void *alignment;
} JmdContext;

/* Clear the whole context and build its constant tables; once per context
 * before its first frame. */
TARVO_API void JpegMDInitial(JmdContext *ctx);

/* Decode one frame of `length` bytes into `map`: jpeg_reset,
 * jpeg_read_header (its result ignored), jpeg_start_decompress, then
 * jpeg_scanlines while rows remain.  Always 0. */
TARVO_API int JpegMDecode(JmdContext *ctx, const void *frame, uint32_t length, void *map);

/*
 * The steps of JpegMDecode, for callers that drive them by hand in the same
 * order.  The frame must stay bound and unchanged from jpeg_reset to the
 * frame's last row: the decoder reads ahead of the bits it has used.
 *
 * jpeg_reset binds the frame and the map and touches nothing else.
 * jpeg_read_header parses the markers up to the first SOS: 0, or -1 with
 * "JMD: read header fail!" (input ended inside a segment, EOI came first, or
 * no SOS was found); on success it sets the frame's rows and map size.
 * jpeg_start_decompress prepares the scan (MCU layout, Huffman tables,
 * output position).
 * jpeg_scanlines decodes one MCU row into the map: 0, or -1 with the row
 * message when the input ends before the row is complete, after which no
 * further row is attempted for this frame (earlier map bytes stay written,
 * later ones keep what the previous frame left).
 * skip_input_data steps over min(count, bytes left) input bytes (nothing for
 * a negative count) and returns the bytes left.
 *
 * jpeg_read_header, jpeg_start_decompress and jpeg_resync_to_restart have
 * the names of libjpeg's functions.  All names here carry the symbol version
 * TARVO_1, so calls from shared libraries reach the right one in any load
 * order; a program's own calls bind at link time to the first library on
 * the link line that defines the name, so a program that also calls
 * libjpeg's decoder itself links -ljpeg before -lTarvo and uses JpegMDecode.
 */
TARVO_API void jpeg_reset(JmdContext *ctx, const void *frame, uint32_t length, void *map);
TARVO_API int jpeg_read_header(JmdContext *ctx);
TARVO_API void jpeg_start_decompress(JmdContext *ctx);
TARVO_API int jpeg_scanlines(JmdContext *ctx);
TARVO_API int skip_input_data(JmdContext *ctx, int32_t count);

/*
 * The marker reader.  reset_marker_reader forgets any pending marker and
 * returns to reading the first marker of a frame.  read_markers reads marker
 * segments: 1 when an SOS segment was read, 2 when EOI came before any SOS,
 * 0 when the input ran out.  read_restart_marker deals with the restart
 * marker expected next: 1, or 0 when the input ran out.
 * jpeg_resync_to_restart settles a marker other than the expected restart
 * number `desired` (0..7): markers below 0xC0 and the two restart markers
 * before the expected one are dropped and the next marker read, other markers
 * and the two restart markers after it are left pending, any other restart
 * marker is taken as the expected one; 1, or 0 when the input ran out.
 */
TARVO_API void reset_marker_reader(JmdContext *ctx);
TARVO_API int read_markers(JmdContext *ctx);
TARVO_API int read_restart_marker(JmdContext *ctx);
TARVO_API int jpeg_resync_to_restart(JmdContext *ctx, int desired);

TARVO_END_DECLS

#endif
