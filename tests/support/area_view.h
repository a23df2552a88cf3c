// A test's own look into a ring buffer's segment, by key, as any other
// process sharing the area sees it: host-order area words, big-endian cells.
#pragma once

#include <sys/shm.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace tarvo::test
{

// A cell header's fields in their order, after its distance from the start.
struct CellView {
    uint32_t at, used, stay, state, seq, size, length, prev, next;
};

class AreaView
{
  public:
    enum Word { Release, Error, CellCount, NoSkip, CellsBytes, WriteCell, FirstCell };
    enum Field { State = 8, Seq = 12, Size = 16, Next = 28 };

    explicit AreaView(int key) : base_(static_cast<uint8_t *>(shmat(shmget(key, 0, 0), nullptr, 0)))
    {
    }
    ~AreaView() { shmdt(base_); }

    uint32_t word(Word which) const { return reinterpret_cast<const uint32_t *>(base_)[which]; }
    void setWord(Word which, uint32_t value) { reinterpret_cast<uint32_t *>(base_)[which] = value; }
    uint32_t field(uint32_t at, uint32_t offset) const
    {
        const uint8_t *p = base_ + at + offset;
        return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
    }
    void setField(uint32_t at, uint32_t offset, uint32_t value)
    {
        for (int i = 0; i < 4; i++)
            base_[at + offset + i] = uint8_t(value >> (24 - 8 * i));
    }
    const uint8_t *payload(uint32_t at) const { return base_ + at + 32; }

    // The chain from the first cell in memory order.
    std::vector<CellView> cells() const
    {
        std::vector<CellView> chain;
        for (uint32_t at = word(FirstCell); at != 0 && chain.size() < 4096; at = field(at, Next))
            chain.push_back({at, field(at, 0), field(at, 4), field(at, 8), field(at, 12),
                             field(at, 16), field(at, 20), field(at, 24), field(at, 28)});
        return chain;
    }

  private:
    uint8_t *base_;
};

} // namespace tarvo::test
