#include "WIN/WIN_CriticalSection.hpp"

namespace win {

CriticalSection_t::~CriticalSection_t() = default;

void CriticalSection_t::Enter() {
    // The line is a stable identifier that support knows.
    if (!mIsDisabled && mMutex.Lock() != 0) throw Error_t("../WIN/WIN_CriticalSection.hpp", 54);
}

void CriticalSection_t::Leave() {
    if (!mIsDisabled) mMutex.Unlock();
}

}  // namespace win
