#include "writer_copies.h"

#include "frame_stamps.h"
#include "owned_ring.h"

#include <cstring>

namespace tarvo::bench
{

namespace
{

// Keeps the compiler from dropping copies into memory it never sees read.
inline void keepWritten(const void *at)
{
    asm volatile("" : : "r"(at) : "memory");
}

template <typename Call> void timeIfAsked(CallTimes *times, Call &&call)
{
    if (times != nullptr)
        times->time(call);
    else
        call();
}

} // namespace

WriterCopies::WriterCopies(RingBuffer *ring, uint32_t frameLength)
    : ring_(ring), frameLength_(frameLength), source_(frameLength, 0x5a),
      privateCells_(OwnedRing::cellsBytes(frameLength))
{
}

void WriterCopies::copyFrame(CallTimes *times)
{
    copyNumber_++;
    stampFrame(source_.data(), frameLength_, copyNumber_);
    uint32_t cellStride = kCellHeaderBytes + frameLength_;
    uint8_t *to = privateCells_.data() + copyNumber_ % kRingCells * cellStride + kCellHeaderBytes;
    timeIfAsked(times, [&] {
        std::memcpy(to, source_.data(), frameLength_);
        keepWritten(to);
    });
}

void WriterCopies::writeFrame(CallTimes *times)
{
    ringNumber_++;
    stampFrame(source_.data(), frameLength_, ringNumber_);
    int result = 0;
    timeIfAsked(times, [&] { result = rbSafeWrite(ring_, source_.data(), frameLength_); });
    dropped_ += result == 0;
    released_ |= result < 0;
}

void WriterCopies::warmUp()
{
    for (int i = 0; i < 2 * kRingCells; i++) {
        copyFrame();
        writeFrame();
    }
    dropped_ = 0;
}

} // namespace tarvo::bench
