#include "THR/THR_Delay.hpp"

#include "GLO/GLO_Assert.hpp"
#include "GLO/GLO_Exception.hpp"
#include "THR/THR_CancelRequested.hpp"

namespace thr {

void Delay(unsigned int milliseconds, const CancelRequested_t& cancel) {
    constexpr char gcFile[] = "libs/THR/THR_Delay";
    const int result = cancel.Wait(win::Duration_t(milliseconds));
    if (result == 0) throw glo::Terminate_t(gcFile, __LINE__);
    glo::Assert(result == 1, gcFile, __LINE__);
}

}  // namespace thr
