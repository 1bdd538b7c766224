#include "WIN/WIN_BuildInfo.hpp"

#include "libs/WIN/impl/WIN_GeneratedBuildInfo.hpp"

namespace win {

char const* BuildDate() {
    return TROVIK_BUILD_DATE;
}
char const* BuildTime() {
    return TROVIK_BUILD_TIME;
}
char const* BuildUserId() {
    return TROVIK_BUILD_ACCOUNT;
}

}  // namespace win
