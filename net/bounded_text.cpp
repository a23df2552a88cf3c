// Bounded text assembly.
#include "bounded_text.h"

#include <cstdio>

namespace tarvo::net
{

TextBuilder &TextBuilder::append(std::string_view text)
{
    size_t room = size_ - 1 - length_;
    if (text.size() > room) {
        text.remove_suffix(text.size() - room);
        complete_ = false;
    }
    memcpy(buffer_ + length_, text.data(), text.size());
    length_ += text.size();
    buffer_[length_] = '\0';
    return *this;
}

TextBuilder &TextBuilder::format(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vformat(format, arguments);
    va_end(arguments);
    return *this;
}

TextBuilder &TextBuilder::vformat(const char *format, va_list arguments)
{
    size_t room = size_ - length_;
    int wanted = vsnprintf(buffer_ + length_, room, format, arguments);
    if (wanted < 0) {
        buffer_[length_] = '\0';
        complete_ = false;
    } else if (size_t(wanted) >= room) {
        length_ = size_ - 1; // vsnprintf cut it there
        complete_ = false;
    } else {
        length_ += size_t(wanted);
    }
    return *this;
}

} // namespace tarvo::net
