// The recorder process: appends every frame of the profile to one
// Motion-JPEG file (the frames back to back).
#include "jpeg_frame.h"
#include "roles.h"

#include "tarvo/profile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace demo
{

int runRecorder(const Config &config, Board &board, int readyFd)
{
    int file = open(config.recordFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0) {
        perror(config.recordFile.c_str());
        return 1;
    }
    ProfileStream *stream = pfOpen(config.profile);
    if (stream == nullptr) {
        close(file);
        return 1;
    }
    reportReady(readyFd);
    int status = 0;
    while (uint32_t length = readJpegFrame(stream)) {
        if (write(file, stream->payload, length) != ssize_t(length)) {
            perror(config.recordFile.c_str());
            status = 1;
            break;
        }
        board.frames[kRecorder]++;
        board.recordedBytes += length;
    }
    pfClose(stream);
    close(file);
    return status;
}

} // namespace demo
