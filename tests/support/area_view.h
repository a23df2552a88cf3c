// A test's own look into a ring buffer's segment, by key, as any other
// process sharing the area would see it.
#ifndef TARVO_TESTS_AREA_VIEW_H
#define TARVO_TESTS_AREA_VIEW_H

#include <sys/shm.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace tarvo::test
{

// A cell header's fields in their order; `at` is its distance from the
// segment start.
struct CellView {
    uint32_t at, used, stay, state, seq, size, length, prev, next;
};

class AreaView
{
  public:
    enum Word { Release, Error, CellCount, NoSkip, CellsBytes, WriteCell, FirstCell };

    explicit AreaView(int key) : id_(shmget(key, 0, 0))
    {
        void *at = id_ < 0 ? nullptr : shmat(id_, nullptr, 0);
        base_ = at == reinterpret_cast<void *>(-1) ? nullptr : static_cast<uint8_t *>(at);
    }
    ~AreaView()
    {
        if (base_)
            shmdt(base_);
    }
    AreaView(const AreaView &) = delete;
    AreaView &operator=(const AreaView &) = delete;

    size_t segmentSize() const
    {
        shmid_ds status{};
        shmctl(id_, IPC_STAT, &status);
        return status.shm_segsz;
    }
    uint32_t word(Word which) const
    {
        uint32_t value;
        std::memcpy(&value, base_ + 4 * which, 4);
        return value;
    }
    void setWord(Word which, uint32_t value) { std::memcpy(base_ + 4 * which, &value, 4); }

    // Cell fields are big-endian bytes on every host.
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

    // The chain from the first cell in memory order.
    std::vector<CellView> cells() const
    {
        std::vector<CellView> chain;
        for (uint32_t at = word(FirstCell); at != 0 && chain.size() < 100000; at = field(at, 28)) {
            chain.push_back({at, field(at, 0), field(at, 4), field(at, 8), field(at, 12),
                             field(at, 16), field(at, 20), field(at, 24), field(at, 28)});
        }
        return chain;
    }

    const uint8_t *payload(uint32_t at) const { return base_ + at + 32; }

  private:
    int id_;
    uint8_t *base_ = nullptr;
};

} // namespace tarvo::test

#endif
