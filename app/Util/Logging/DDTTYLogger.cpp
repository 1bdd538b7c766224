#include "app/Util/Logging/DDTTYLogger.hpp"

#include "app/Util/Logging/DDLogFormatter.hpp"
#include "app/Util/Logging/DDLogMessage.hpp"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <errno.h>  // program_invocation_short_name too
#include <new>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t kInitialProfiles = 8;

}  // namespace

DDTTYLoggerColorProfile::DDTTYLoggerColorProfile(const DDTTYPalette& palette, std::optional<DDTTYColor> foreground,
                                                 std::optional<DDTTYColor> background, std::uint32_t flags,
                                                 std::int32_t ofContext)
    : mask(flags), context(ofContext), fg(foreground.value_or(DDTTYColor())), bg(background.value_or(DDTTYColor())) {
    if (foreground) fgCode = palette.foregroundCode(fg);
    if (background) bgCode = palette.backgroundCode(bg);
    if (foreground || background) resetCode = palette.resetCode();
}

std::string DDTTYLoggerColorProfile::description() const {
    const auto front = fg.bytes(), back = bg.bytes();
    char text[256];
    const int length = std::snprintf(
        text, sizeof text, "<DDTTYLoggerColorProfile: %p mask:%i ctxt:%i fg:%i,%i,%i bg:%i,%i,%i fgCode:%s bgCode:%s>",
        static_cast<const void*>(this), static_cast<int>(mask), context, front[0], front[1], front[2], back[0], back[1],
        back[2], fgCode.c_str(), bgCode.c_str());
    return std::string(text, static_cast<std::size_t>(std::clamp<int>(length, 0, sizeof text - 1)));
}

std::shared_ptr<DDTTYLogger> DDTTYLogger::sharedInstance() {
    // Never destroyed: it is still written to while static objects are.
    static auto& instance =
        *new std::shared_ptr<DDTTYLogger>(new DDTTYLogger(STDERR_FILENO, DDTTYPalette::fromEnvironment()));
    return instance;
}

DDTTYLogger::DDTTYLogger(int descriptor, DDTTYPalette palette)
    : DDAbstractLogger("cocoa.modogriomu.ttyLogger"),
      mDescriptor(descriptor),
      mPalette(std::move(palette)),
      mAppNameAndProcess(std::string(" ") + program_invocation_short_name + "[" + std::to_string(::getpid()) + ":") {
    mColorProfilesArray.reserve(kInitialProfiles);
}

bool DDTTYLogger::colorsEnabled() const {
    return valueOnLoggerQueue(mColorsEnabled);
}

void DDTTYLogger::setColorsEnabled(bool enabled) {
    performOnLoggerQueue([&] { mColorsEnabled = enabled; });
}

void DDTTYLogger::setForegroundColor(std::optional<DDTTYColor> foreground, std::optional<DDTTYColor> background,
                                     std::uint32_t mask, std::int32_t context) {
    performOnLoggerQueue([&] {
        DDTTYLoggerColorProfile profile(mPalette, foreground, background, mask, context);
        for (DDTTYLoggerColorProfile& old : mColorProfilesArray)
            if (old.mask == mask && old.context == context) return std::swap(old, profile);
        mColorProfilesArray.push_back(std::move(profile));
    });
}

void DDTTYLogger::setForegroundColorForTag(std::optional<DDTTYColor> foreground, std::optional<DDTTYColor> background,
                                           const void* tag) {
    performOnLoggerQueue([&] {
        mColorProfilesDict.insert_or_assign(tag, DDTTYLoggerColorProfile(mPalette, foreground, background, 0, 0));
    });
}

void DDTTYLogger::clearColors(std::uint32_t mask, std::int32_t context) {
    performOnLoggerQueue([&] {
        std::erase_if(mColorProfilesArray, [&](const auto& old) { return old.mask == mask && old.context == context; });
    });
}

void DDTTYLogger::clearColorsForTag(const void* tag) {
    performOnLoggerQueue([&] { mColorProfilesDict.erase(tag); });
}

void DDTTYLogger::clearAllColors() {
    performOnLoggerQueue([&] {
        mColorProfilesArray.clear();
        mColorProfilesDict.clear();
    });
}

const DDTTYLoggerColorProfile* DDTTYLogger::profileFor(const DDLogMessage& message) const {
    if (!mColorsEnabled) return nullptr;
    if (message.tag) {
        const auto found = mColorProfilesDict.find(message.tag);
        if (found != mColorProfilesDict.end()) return &found->second;
    }
    for (const DDTTYLoggerColorProfile& profile : mColorProfilesArray)
        if ((profile.mask & message.logFlag) && profile.context == message.logContext) return &profile;
    return nullptr;
}

void DDTTYLogger::logMessage(const DDLogMessage& message) {
    const DDLogMessage* const one = &message;
    logMessages({&one, 1});
}

void DDTTYLogger::logMessages(std::span<const DDLogMessage* const> messages) {
    for (const DDLogMessage* message : messages) {
        const std::size_t start = mPending.size();
        try {
            appendLine(*message);
        } catch (...) {
            mPending.resize(start);  // no memory for it, or a formatter that fails: only this message is dropped
            continue;
        }
        if (start > 0 && mPending.size() > PIPE_BUF) {
            write(std::string_view(mPending).substr(0, start));
            mPending.erase(0, start);
        }
    }
    write(mPending);
    mPending.clear();
    if (mPending.capacity() > std::size_t{4} * PIPE_BUF) mPending.shrink_to_fit();
}

void DDTTYLogger::appendLine(const DDLogMessage& message) {
    mFormatted.clear();
    if (formatter() && !formatter()->formatLogMessage(message, mFormatted)) return;
    const DDTTYLoggerColorProfile* profile = profileFor(message);
    if (profile) mPending.append(profile->fgCode).append(profile->bgCode);
    const bool ownForm = formatter() && mFormatted != message.logMsg;
    if (ownForm) {
        mPending.append(mFormatted);
    } else {
        appendBuiltInForm(message);
    }
    const std::string& text = ownForm ? mFormatted : message.logMsg;
    if (text.empty() || text.back() != '\n') mPending.push_back('\n');
    if (profile) mPending.append(profile->resetCode);
}

void DDTTYLogger::appendBuiltInForm(const DDLogMessage& message) {
    char thread[16];
    char* const end = std::to_chars(thread, thread + sizeof thread, message.machThreadID, 16).ptr;
    mPending.append(mTime.text(message.timestamp));
    DDLocalTime::appendMilliseconds(message.timestamp, mPending);
    mPending.append(mAppNameAndProcess).append(thread, end).append("] ").append(message.logMsg);
}

void DDTTYLogger::write(std::string_view bytes) const noexcept {
    while (!bytes.empty()) {
        const ssize_t count = ::write(mDescriptor, bytes.data(), bytes.size());
        if (count > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (count < 0 && errno == EAGAIN) {
            // Whoever shares the terminal with us has made it non-blocking.
            pollfd ready{mDescriptor, POLLOUT, 0};
            ::poll(&ready, 1, -1);
        } else if (count == 0 || errno != EINTR) {
            return;
        }
    }
}
