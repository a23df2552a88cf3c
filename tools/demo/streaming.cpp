// The streaming process: the live view over HTTP on loopback.  The profile
// is opened per viewer of /stream.mjpg and read only while one is connected;
// /state gives the page the changed blocks and the events.
#include "jpeg_frame.h"
#include "live_page.h"
#include "loopback_server.h"
#include "roles.h"

#include "tarvo/profile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace demo
{
namespace
{

constexpr const char kBoundary[] = "tarvoframe";

struct Streaming {
    const Config &config;
    Board &board;
};

// One viewer of the stream: its place in the profile and the part of the
// current frame's multipart section not yet sent.
struct Viewer {
    Board &board;
    ProfileStream *stream;
    std::string section;
    size_t sent = 0;
};

// The next frame as one multipart section; false at the end of the stream.
bool nextSection(Viewer &viewer)
{
    uint32_t length = readJpegFrame(viewer.stream);
    if (length == 0)
        return false;
    char head[128];
    int headLength = snprintf(head, sizeof head,
                              "--%s\r\nContent-Type: image/jpeg\r\nContent-Length: %u\r\n\r\n",
                              kBoundary, length);
    viewer.section.assign(head, size_t(headLength));
    viewer.section.append(static_cast<const char *>(viewer.stream->payload), length);
    viewer.section.append("\r\n");
    viewer.sent = 0;
    viewer.board.frames[kStreaming]++;
    return true;
}

ssize_t readStream(void *context, uint64_t, char *buffer, size_t room)
{
    Viewer &viewer = *static_cast<Viewer *>(context);
    if (viewer.sent == viewer.section.size() && !nextSection(viewer))
        return MHD_CONTENT_READER_END_OF_STREAM;
    size_t count = std::min(room, viewer.section.size() - viewer.sent);
    memcpy(buffer, viewer.section.data() + viewer.sent, count);
    viewer.sent += count;
    return ssize_t(count);
}

void endStream(void *context)
{
    Viewer *viewer = static_cast<Viewer *>(context);
    pfClose(viewer->stream);
    viewer->board.viewers--;
    delete viewer;
}

MHD_Result answerStream(MHD_Connection *connection, Streaming &streaming)
{
    ProfileStream *stream = pfOpen(streaming.config.profile);
    if (stream == nullptr) {
        static const char kNotReady[] = "the camera is not streaming\n";
        return answerText(connection, MHD_HTTP_SERVICE_UNAVAILABLE, "text/plain", kNotReady,
                          sizeof kNotReady - 1);
    }
    streaming.board.viewers++;
    Viewer *viewer = new Viewer{streaming.board, stream, {}, 0};
    MHD_Response *response = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, 64 * 1024,
                                                               readStream, viewer, endStream);
    std::string type = std::string("multipart/x-mixed-replace; boundary=") + kBoundary;
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type.c_str());
    MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    MHD_Result result = MHD_queue_response(connection, MHD_HTTP_OK, response);
    MHD_destroy_response(response);
    return result;
}

// The page's view of the board, as JSON.
std::string stateJson(const Board &board)
{
    std::string json = "{\"captured\":" + std::to_string(board.frames[kCapture].load()) +
                       ",\"streamed\":" + std::to_string(board.frames[kStreaming].load()) +
                       ",\"viewers\":" + std::to_string(board.viewers.load()) +
                       ",\"columns\":" + std::to_string(kMapColumns) + ",\"changed\":[";
    const char *separator = "";
    for (int block = 0; block < kMapBlocks; block++)
        if (board.changed[block]) {
            json += separator + std::to_string(block);
            separator = ",";
        }
    json += "],\"events\":[";
    separator = "";
    uint32_t logged = board.eventsLogged;
    uint32_t first = logged > kEventSlots ? logged - kEventSlots + 1 : 1;
    for (uint32_t number = first; number <= logged; number++) {
        const EventNote &note = board.events[number % kEventSlots];
        if (note.number != number)
            continue;
        json += separator;
        json += "{\"number\":" + std::to_string(number) + ",\"time\":" + std::to_string(note.time) +
                ",\"blocks\":" + std::to_string(note.changedBlocks) + "}";
        separator = ",";
    }
    return json + "]}";
}

MHD_Result answer(void *context, MHD_Connection *connection, const char *url, const char *method,
                  const char *, const char *, size_t *, void **)
{
    Streaming &streaming = *static_cast<Streaming *>(context);
    if (strcmp(method, "GET") != 0) {
        static const char kOnlyGet[] = "GET only\n";
        return answerText(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "text/plain", kOnlyGet,
                          sizeof kOnlyGet - 1);
    }
    if (strcmp(url, "/stream.mjpg") == 0)
        return answerStream(connection, streaming);
    if (strcmp(url, "/state") == 0) {
        std::string json = stateJson(streaming.board);
        return answerText(connection, MHD_HTTP_OK, "application/json", json.data(), json.size());
    }
    if (strcmp(url, "/") == 0)
        return answerText(connection, MHD_HTTP_OK, "text/html; charset=utf-8", kLivePage,
                          strlen(kLivePage));
    static const char kNotFound[] = "not found\n";
    return answerText(connection, MHD_HTTP_NOT_FOUND, "text/plain", kNotFound,
                      sizeof kNotFound - 1);
}

} // namespace

int runStreaming(const Config &config, Board &board, int readyFd)
{
    Streaming streaming{config, board};
    return serveOnLoopback(config.streamPort, answer, &streaming, board.streamPort, readyFd);
}

} // namespace demo
