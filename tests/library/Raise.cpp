#include "Raise.hpp"

void raise(std::size_t row) {
    static const char file[] = "the raise site";
    std::size_t next = 0;
#define THROWN(Class, Above, arguments) \
    if (row == next++) throw Class arguments;
#include "Exceptions.def"
}
