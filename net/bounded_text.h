// Text assembled in fixed buffers: every piece is bounded by the buffer, and
// a piece that does not fit is noticed rather than written past the end.
#ifndef TARVO_NET_BOUNDED_TEXT_H
#define TARVO_NET_BOUNDED_TEXT_H

#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace tarvo::net
{

// Appends to a buffer of `size` bytes, keeping it NUL-terminated.  Text
// beyond the last byte is cut off and complete() turns false for good.
class TextBuilder
{
  public:
    TextBuilder(char *buffer, size_t size) : buffer_(buffer), size_(size) { buffer_[0] = '\0'; }
    template <size_t N> explicit TextBuilder(char (&buffer)[N]) : TextBuilder(buffer, N) {}
    TextBuilder(const TextBuilder &) = delete;
    TextBuilder &operator=(const TextBuilder &) = delete;

    TextBuilder &append(std::string_view text);
    TextBuilder &append(char c) { return append(std::string_view(&c, 1)); }
    TextBuilder &format(const char *format, ...) __attribute__((format(printf, 2, 3)));
    TextBuilder &vformat(const char *format, va_list arguments)
        __attribute__((format(printf, 2, 0)));

    bool complete() const { return complete_; }
    const char *text() const { return buffer_; }
    int length() const { return int(length_); }

  private:
    char *buffer_;
    size_t size_;
    size_t length_ = 0;
    bool complete_ = true;
};

// The text of a caller's character field: up to its first NUL or its end.
template <size_t N> std::string_view fieldText(const char (&field)[N])
{
    return std::string_view(field, strnlen(field, N));
}

// True when the field holds a NUL, i.e. is usable as a C string.
template <size_t N> bool isTerminated(const char (&field)[N])
{
    return strnlen(field, N) < N;
}

inline const char *orEmpty(const char *text)
{
    return text ? text : "";
}

} // namespace tarvo::net

#endif
