// Finding a frame's end: marker segments are stepped over by their lengths
// up to the scan, whose coded data holds no 0xFF 0xD9 (a 0xFF there is
// followed by 0x00 or a restart marker).
#include "jpeg_frame.h"
#include "roles.h"

#include <algorithm>
#include <cstring>

namespace demo
{
namespace
{

constexpr uint8_t kMarker = 0xFF, kStartOfImage = 0xD8, kEndOfImage = 0xD9, kStartOfScan = 0xDA;

// Position just after the SOS segment, or 0 when there is none.
uint32_t scanStart(const uint8_t *bytes, uint32_t length)
{
    uint32_t at = 2;
    while (at + 4 <= length && bytes[at] == kMarker) {
        uint32_t segment = uint32_t(bytes[at + 2]) << 8 | bytes[at + 3];
        if (bytes[at + 1] == kStartOfScan)
            return at + 2 + segment;
        at += 2 + segment;
    }
    return 0;
}

// Bytes of the JPEG frame at the start of payload, EOI included; 0 when the
// payload does not hold a whole frame.
uint32_t jpegFrameLength(const void *payload, uint32_t length)
{
    const uint8_t *bytes = static_cast<const uint8_t *>(payload);
    if (length < 4 || bytes[0] != kMarker || bytes[1] != kStartOfImage)
        return 0;
    if (bytes[length - 2] == kMarker && bytes[length - 1] == kEndOfImage)
        return length; // the usual case: the cell holds the frame alone
    uint32_t at = scanStart(bytes, length);
    while (at != 0 && at + 1 < length) {
        const void *found = memchr(bytes + at, kMarker, length - 1 - at);
        if (found == nullptr)
            break;
        at = uint32_t(static_cast<const uint8_t *>(found) - bytes);
        if (bytes[at + 1] == kEndOfImage)
            return at + 2;
        at++;
    }
    return 0;
}

} // namespace

uint32_t readJpegFrame(ProfileStream *stream)
{
    while (!stopRequested()) {
        int cellLength = pfRead(stream);
        if (stream->payload == RB_RELEASED)
            return 0;
        if (stream->payload == nullptr)
            continue;
        uint32_t length = std::min(uint32_t(cellLength), rbGetCellSize(stream->ring));
        if (uint32_t frameLength = jpegFrameLength(stream->payload, length))
            return frameLength;
    }
    return 0;
}

} // namespace demo
