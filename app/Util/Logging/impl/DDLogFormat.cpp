#include "app/Util/Logging/impl/DDLogFormat.hpp"

#include <charconv>
#include <cstring>

namespace {

/// Appends to a buffer as long as there is room.
class Appender {
  public:
    Appender(char* begin, std::size_t size) : mBegin(begin), mAt(begin), mEnd(begin + size) {}

    bool character(char c) {
        if (mAt == mEnd) return false;
        *mAt++ = c;
        return true;
    }

    bool text(const char* chars) {
        if (!chars) chars = "(null)";
        const std::size_t size = std::strlen(chars);
        if (size > static_cast<std::size_t>(mEnd - mAt)) return false;
        std::memcpy(mAt, chars, size);
        mAt += size;
        return true;
    }

    template <typename Integer>
    bool number(Integer value, int base) {
        const auto [end, error] = std::to_chars(mAt, mEnd, value, base);
        mAt = end;
        return error == std::errc();
    }

    std::size_t length() const { return static_cast<std::size_t>(mAt - mBegin); }

  private:
    char* const mBegin;
    char* mAt;
    char* const mEnd;
};

enum class Width { Int, Long, LongLong, Size };

Width widthModifier(const char*& at) {
    if (*at == 'z') return ++at, Width::Size;
    if (*at != 'l') return Width::Int;
    if (*++at != 'l') return Width::Long;
    return ++at, Width::LongLong;
}

}  // namespace

bool ddFormatPlainly(char* buffer, std::size_t size, std::size_t& length, const char* format, std::va_list arguments) {
    Appender out(buffer, size);
    for (const char* at = format; *at; ++at) {
        if (*at != '%') {
            if (!out.character(*at)) return false;
            continue;
        }
        const Width width = widthModifier(++at);
        bool done = false;
        switch (*at) {
            case 'd':
            case 'i':
                done = width == Width::Int        ? out.number(va_arg(arguments, int), 10)
                       : width == Width::LongLong ? out.number(va_arg(arguments, long long), 10)
                                                  : out.number(va_arg(arguments, long), 10);
                break;
            case 'u':
            case 'x': {
                const int base = *at == 'u' ? 10 : 16;
                done = width == Width::Int        ? out.number(va_arg(arguments, unsigned), base)
                       : width == Width::Long     ? out.number(va_arg(arguments, unsigned long), base)
                       : width == Width::LongLong ? out.number(va_arg(arguments, unsigned long long), base)
                                                  : out.number(va_arg(arguments, std::size_t), base);
                break;
            }
            case 's':
                done = width == Width::Int && out.text(va_arg(arguments, const char*));
                break;
            case 'c':
                done = width == Width::Int && out.character(static_cast<char>(va_arg(arguments, int)));
                break;
            case '%':
                done = width == Width::Int && at[-1] == '%' && out.character('%');
                break;
            default:
                break;
        }
        if (!done) return false;
    }
    length = out.length();
    return true;
}
