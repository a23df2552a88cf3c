#include "transport.h"

#include "owned_ring.h"

#include <cstring>
#include <vector>

namespace tarvo::bench
{

namespace
{

class RingTransport final : public Transport
{
  public:
    RingTransport(int key, uint32_t frameLength, RingReading reading)
        : key_(key), frameLength_(frameLength), reading_(reading), ring_(key, frameLength),
          encoded_(frameLength, 0x5a)
    {
    }

    bool start() override
    {
        return ring_.valid() && readers_.start([&](int, ReaderLink &link) {
            return readRingFrames(key_, frameLength_, reading_, link);
        });
    }

    // The copy from `encoded_` stands in for the encoder writing the frame.
    bool prepare(uint32_t number) override
    {
        void *cell = rbLockWrite(ring_.get(), frameLength_);
        if (cell == RB_RELEASED)
            return false;
        reserved_ = cell != nullptr;
        if (!reserved_) {
            dropped_++;
            return true;
        }
        std::memcpy(cell, encoded_.data(), frameLength_);
        stampFrame(static_cast<uint8_t *>(cell), frameLength_, number);
        return true;
    }

    bool publish() override
    {
        if (reserved_)
            rbUnlockWrite(ring_.get());
        reserved_ = false;
        return true;
    }

    // Readers waiting in rbGetPayload see the stop flag with the next frame.
    bool stop() override
    {
        return readers_.stopAndWait(
            [&] { rbSafeWrite(ring_.get(), encoded_.data(), frameLength_); });
    }

    uint64_t dropped() const override { return dropped_; }
    const ReaderPool &readers() const override { return readers_; }

  private:
    int key_;
    uint32_t frameLength_;
    RingReading reading_;
    OwnedRing ring_;
    // Declared after the ring, so that readers end before it is released.
    ReaderPool readers_;
    std::vector<uint8_t> encoded_;
    bool reserved_ = false;
    uint64_t dropped_ = 0;
};

} // namespace

std::unique_ptr<Transport> makeRingTransport(int key, uint32_t frameLength, RingReading reading)
{
    return std::make_unique<RingTransport>(key, frameLength, reading);
}

} // namespace tarvo::bench
