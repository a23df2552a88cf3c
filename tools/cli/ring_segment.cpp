#include "ring_segment.h"

#include "tarvo/semlock.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <sys/sem.h>
#include <sys/shm.h>

namespace tarvo::cli
{
namespace
{

constexpr uint32_t kAreaHeaderSize = 28;
constexpr uint32_t kCellHeaderSize = 32;
constexpr int kWriterKeyDistance = 16;
constexpr time_t kLockPatienceSeconds = 2;

uint32_t loadBigEndian(const uint8_t *at)
{
    return uint32_t{at[0]} << 24 | uint32_t{at[1]} << 16 | uint32_t{at[2]} << 8 | uint32_t{at[3]};
}

CellCopy readCell(const uint8_t *base, uint32_t at)
{
    const uint8_t *header = base + at;
    CellCopy cell{at, 0, 0, 0, 0, 0, 0, 0, 0};
    uint32_t *fields[] = {&cell.used, &cell.stay,   &cell.state, &cell.seq,
                          &cell.size, &cell.length, &cell.prev,  &cell.next};
    for (uint32_t i = 0; i < 8; i++)
        *fields[i] = loadBigEndian(header + 4 * i);
    return cell;
}

// Copies the chain from the first cell.  Nothing read is trusted: a cell is
// followed only while its payload ends inside the segment and its links name
// its neighbours in memory, so the walk rises through the segment and ends
// within as many steps as the segment can hold cells.
void copyChain(const uint8_t *base, uint32_t segmentSize, RingCopy &ring)
{
    ring.cells.clear();
    ring.damage = nullptr;
    uint32_t cellLimit = (segmentSize - kAreaHeaderSize) / kCellHeaderSize;
    uint32_t at = kAreaHeaderSize, previous = 0;
    for (uint32_t steps = 0; steps < cellLimit; steps++) {
        CellCopy cell = readCell(base, at);
        ring.cells.push_back(cell);
        if (cell.prev != previous) {
            ring.damage = "its Prev does not name the cell before it";
        } else if (cell.size > segmentSize - kCellHeaderSize - at) {
            ring.damage = "its payload runs past the end of the segment";
        } else if (cell.next != 0 && (cell.next != at + kCellHeaderSize + cell.size ||
                                      cell.next > segmentSize - kCellHeaderSize)) {
            ring.damage = "its Next does not name the cell right after it";
        }
        if (ring.damage || cell.next == 0)
            return;
        previous = at;
        at = cell.next;
    }
    ring.damage = "the chain holds more cells than the segment can";
}

} // namespace

RingSegment::~RingSegment()
{
    if (base_)
        shmdt(base_);
}

Attach RingSegment::attach(int key)
{
    key_ = key;
    id_ = shmget(key, 0, 0);
    if (id_ < 0)
        return errno == EACCES   ? Attach::kNotAllowed
               : errno == ENOENT ? Attach::kNoSegment
                                 : Attach::kFailed;
    shmid_ds status;
    if (shmctl(id_, IPC_STAT, &status) != 0)
        return errno == EACCES ? Attach::kNotAllowed : Attach::kFailed;
    size_ = status.shm_segsz > INT_MAX ? UINT32_MAX : uint32_t(status.shm_segsz);
    if (size_ < kAreaHeaderSize + kCellHeaderSize || size_ > INT_MAX)
        return Attach::kWrongSize;
    void *base = shmat(id_, nullptr, SHM_RDONLY);
    if (base == reinterpret_cast<void *>(-1))
        return errno == EACCES ? Attach::kNotAllowed : Attach::kFailed;
    base_ = static_cast<const uint8_t *>(base);
    return Attach::kAttached;
}

int RingSegment::attachedProcesses() const
{
    shmid_ds status;
    if (shmctl(id_, IPC_STAT, &status) != 0 || (status.shm_perm.mode & SHM_DEST))
        return -1;
    return int(status.shm_nattch);
}

bool RingSegment::released() const
{
    uint32_t release;
    std::memcpy(&release, base_, sizeof release);
    return release != 0 || attachedProcesses() < 0;
}

RingSegment::Copy RingSegment::copy(RingCopy &ring) const
{
    // The locks are looked up every time: a restarted writer makes them anew.
    SemLock areaLock = sfInitial(key_, 0);
    if (areaLock < 0)
        return Copy::kNoLock;
    // Taken as the library takes it, but given up after a while rather than
    // waiting for ever on a process stopped while holding it.
    sembuf take[2] = {{0, 0, SEM_UNDO}, {0, 1, SEM_UNDO}};
    timespec patience{kLockPatienceSeconds, 0};
    int taken;
    do {
        taken = semtimedop(areaLock, take, 2, &patience);
    } while (taken != 0 && errno == EINTR);
    if (taken != 0)
        return errno == EAGAIN ? Copy::kLockBusy : Copy::kNoLock;
    uint32_t words[7];
    std::memcpy(words, base_, sizeof words);
    copyChain(base_, size_, ring);
    sfUnlock(areaLock);

    ring.release = words[0];
    ring.error = words[1];
    ring.cellCount = words[2];
    ring.noSkip = words[3];
    ring.cellsBytes = words[4];
    ring.writeCell = words[5];
    ring.firstCell = words[6];
    ring.writerLockHeld = sfLocked(sfInitial(key_ + kWriterKeyDistance, 0));
    return Copy::kCopied;
}

} // namespace tarvo::cli
