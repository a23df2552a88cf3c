// Profile streams read by number, with the producer in another process.
#include "tarvo/profile.h"

#include "support/area_view.h"
#include "support/child.h"
#include "support/frames.h"
#include "support/ipc_keys.h"

#include <gtest/gtest.h>

using namespace tarvo::test;

namespace
{

TEST(Profile, KeysFollowTheNumber)
{
    EXPECT_EQ(pfGetPKey(0), 4097);
    EXPECT_EQ(pfGetPKey(12), 4109);
    pfClose(nullptr);
    pfUnlock(nullptr);
    EXPECT_EQ(pfRead(nullptr), 0);
}

TEST(Profile, ReadsFrameAfterFrameHoldingOneCellAtATime)
{
    IpcKeys keys;
    int profile = keys.profileNumber();
    Signal created, parked, written, finished;
    Child producer([&] {
        RingBuffer *rb = rbInitial(pfGetPKey(profile), "producer", 64 * 1024, 1, 0);
        created.raise();
        parked.await();
        for (uint32_t number = 1; number <= 3; number++) {
            auto frame = makeFrame(number, 1000 * number);
            rbSafeWrite(rb, frame.data(), uint32_t(frame.size()));
        }
        written.raise();
        finished.await();
        return rbRelease(rb) == 0 ? 0 : 1;
    });
    ASSERT_EQ(created.await(), '!');
    ProfileStream *stream = pfOpen(profile);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->profile, profile);
    EXPECT_EQ(stream->frames, 0);
    EXPECT_NE(stream->opened.tv_sec, 0);
    EXPECT_EQ(rbLockRead(stream->ring), nullptr); // park before the first frame
    parked.raise();
    ASSERT_EQ(written.await(), '!');

    AreaView view(pfGetPKey(profile));
    for (uint32_t number = 1; number <= 3; number++) {
        EXPECT_EQ(pfRead(stream), int(1000 * number));
        ASSERT_NE(stream->payload, nullptr);
        EXPECT_EQ(frameNumber(stream->payload), number);
        EXPECT_TRUE(frameIsIntact(stream->payload, 1000 * number));
        EXPECT_EQ(stream->frames, int(number));
        uint32_t held = 0;
        for (const CellView &cell : view.cells())
            held += cell.used;
        EXPECT_EQ(held, 1u) << "the previous frame is let go first";
    }
    // Nothing more comes: the wait gives up, and payload says so.
    pfRead(stream);
    EXPECT_EQ(stream->payload, nullptr);
    EXPECT_EQ(stream->frames, 3);

    finished.raise();
    EXPECT_EQ(producer.wait(), 0);
    pfRead(stream);
    EXPECT_EQ(stream->payload, RB_RELEASED);
    EXPECT_EQ(stream->frames, 4) << "the end counts as a read";
    pfClose(stream);
}

} // namespace
