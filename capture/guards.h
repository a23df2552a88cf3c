// Guards that give back a device descriptor or a buffer mapping when a set-up
// fails half-way; release() hands the resource on when it succeeds.
#ifndef TARVO_CAPTURE_GUARDS_H
#define TARVO_CAPTURE_GUARDS_H

#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

namespace tarvo::capture
{

class Descriptor
{
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return fd_; }
    int release()
    {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }

  private:
    int fd_;
};

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
