// A way of handing numbered frames from the writer to kReaders reader
// processes: through a ring buffer, or through one Unix stream socket per
// reader.  Each run takes a fresh one.
#ifndef TARVO_BENCH_TRANSPORT_H
#define TARVO_BENCH_TRANSPORT_H

#include "reader_pool.h"
#include "ring_reader.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace tarvo::bench
{

class Transport
{
  public:
    virtual ~Transport() = default;
    // Starts the readers; true once each waits for the first frame.
    virtual bool start() = 0;
    // Gets frame `number` ready to go out; false when the transport failed.
    virtual bool prepare(uint32_t number) = 0;
    // Hands the prepared frame to every reader; false when the transport
    // failed.
    virtual bool publish() = 0;
    // Stops the readers; true when every one ended well.
    virtual bool stop() = 0;
    // Frames that found no room and went to nobody.
    virtual uint64_t dropped() const = 0;
    virtual const ReaderPool &readers() const = 0;
};

using TransportMaker = std::function<std::unique_ptr<Transport>()>;

// A ring of kRingCells cells under `key`.  The writer fills each frame in the
// cell it reserved with rbLockWrite, as a camera producer does, and publishes
// it with rbUnlockWrite.  Readers may skip frames, as the writer never waits
// for them.
std::unique_ptr<Transport> makeRingTransport(int key, uint32_t frameLength, RingReading reading);

// A socket pair per reader; the writer blocks while a socket is full, so
// readers get every frame.
std::unique_ptr<Transport> makeSocketTransport(uint32_t frameLength);

} // namespace tarvo::bench

#endif
