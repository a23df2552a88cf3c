// Closes a descriptor when a set-up fails half-way; release() hands it on
// when the set-up succeeds.
#ifndef TARVO_UTIL_DESCRIPTOR_H
#define TARVO_UTIL_DESCRIPTOR_H

#include <unistd.h>

namespace tarvo
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

} // namespace tarvo

#endif
