// Guards that give back a buffer mapping when a set-up fails half-way;
// release() hands the mapping on when it succeeds.  Descriptors have
// tarvo::Descriptor.
#ifndef TARVO_CAPTURE_GUARDS_H
#define TARVO_CAPTURE_GUARDS_H

#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

namespace tarvo::capture
{

// A driver buffer mapped read-only and shared.
class Mapping
{
  public:
    Mapping() = default;
    ~Mapping()
    {
        if (address_ != MAP_FAILED)
            munmap(address_, length_);
    }
    Mapping(const Mapping &) = delete;
    Mapping &operator=(const Mapping &) = delete;

    bool map(int fd, size_t length, off_t offset)
    {
        address_ = mmap(nullptr, length, PROT_READ, MAP_SHARED, fd, offset);
        length_ = length;
        return address_ != MAP_FAILED;
    }
    void *release()
    {
        void *address = address_;
        address_ = MAP_FAILED;
        return address;
    }

  private:
    void *address_ = MAP_FAILED;
    size_t length_ = 0;
};

} // namespace tarvo::capture

#endif
