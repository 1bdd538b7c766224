#include "GLO/GLO_Blackbox.hpp"

#include "platform/Platform.hpp"
#include "platform/common/CrashReporter.hpp"

#include <algorithm>
#include <cstring>

namespace glo {

Blackbox_t::Blackbox_t(const char** symbol) : mSymbol(symbol) {
    if (!mSymbol) {
        platform::NSLog("ERROR: Unable to set black box up\n");
        return;
    }
    mBuffer.reset(new Buffer_t{});
    *mSymbol = mBuffer->data();
}

Blackbox_t::~Blackbox_t() {
    if (mSymbol) *mSymbol = nullptr;
}

/// Puts as much of the text as fits behind the first `length` characters and ends it there. Answers the new length.
std::size_t Blackbox_t::AppendAt(std::size_t length, std::string_view text) {
    const std::size_t count = std::min(text.size(), gcBufferSize - 1 - length);
    std::memcpy(mBuffer->data() + length, text.data(), count);
    (*mBuffer)[length + count] = 0;
    return length + count;
}

void Blackbox_t::Add(std::string_view text) {
    const std::lock_guard guard(mCriticalSection);
    if (!mBuffer) return;
    std::size_t length = mMark;
    if (length >= gcBufferSize - 1) {
        const std::size_t dropped = std::min(text.size(), length);
        std::memmove(mBuffer->data(), mBuffer->data() + dropped, length - dropped);
        length -= dropped;
    }
    mMark = AppendAt(length, text);
    AppendAt(mMark, mSnapshot);
}

void Blackbox_t::Update(std::string_view text) {
    const std::lock_guard guard(mCriticalSection);
    if (!mBuffer) return;
    mMark = AppendAt(0, text);
    AppendAt(mMark, mSnapshot);
}

void Blackbox_t::Snapshot(std::string_view text) {
    const std::lock_guard guard(mCriticalSection);
    if (!mBuffer) return;
    mSnapshot = text.empty() ? std::string() : "\nSnapshot: " + std::string(text);
    AppendAt(mMark, mSnapshot);
}

std::string Blackbox_t::CurrentText() const {
    const std::lock_guard guard(mCriticalSection);
    return mBuffer->data();
}

std::recursive_mutex& SingletonCriticalSection() {
    static std::recursive_mutex sCriticalSection;
    return sCriticalSection;
}

Blackbox_t& Blackbox() {
    const std::lock_guard guard(SingletonCriticalSection());
    static Blackbox_t sBlackbox(platform::crashReporterInfo());
    return sBlackbox;
}

}  // namespace glo
