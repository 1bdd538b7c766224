#pragma once

#include "app/Util/Logging/DDAbstractLogger.hpp"
#include "app/Util/Logging/DDTTYPalette.hpp"
#include "app/Util/Logging/impl/DDLocalTime.hpp"

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The colours of some messages, and the escape sequences that stand for them. A plain value.
struct DDTTYLoggerColorProfile {
    /// @param background  a colour that is not given is left as the terminal has it
    DDTTYLoggerColorProfile(const DDTTYPalette& palette, std::optional<DDTTYColor> foreground,
                            std::optional<DDTTYColor> background, std::uint32_t mask, std::int32_t context);

    std::string description() const;

    std::uint32_t mask;  ///< flags of the messages
    std::int32_t context;
    DDTTYColor fg;
    DDTTYColor bg;
    std::string fgCode;
    std::string bgCode;
    std::string resetCode;
};

/// Mirrors every message to the standard error stream. A formatter's text is written as it is; without one, or where it
/// gives back the message's own text, a line reads
/// "2026-11-15 18:25:03:120 ResetTool[812:1a03] Device rebooted".
///
/// Lines of one batch go out in writes of at most PIPE_BUF bytes, which a pipe or terminal that others write to as well
/// takes whole; a longer line has a write of its own. An output that fails loses the line and nothing else.
class DDTTYLogger final : public DDAbstractLogger {
  public:
    /// The process's one, on its standard error stream. Any thread.
    static std::shared_ptr<DDTTYLogger> sharedInstance();

    /// @param descriptor  where to write; not owned, and open as long as the logger
    DDTTYLogger(int descriptor, DDTTYPalette palette);

    /// @name Colours, off unless switched on. Block. Any thread.
    /// @{
    bool colorsEnabled() const;
    void setColorsEnabled(bool enabled);

    /// Colours of the messages with one of these flags and that context; takes the place of earlier ones of the same
    /// mask and context. The first profile that fits a message wins.
    void setForegroundColor(std::optional<DDTTYColor> foreground, std::optional<DDTTYColor> background,
                            std::uint32_t mask, std::int32_t context = 0);
    /// Colours of the messages with that tag, which come before those of the flags.
    void setForegroundColorForTag(std::optional<DDTTYColor> foreground, std::optional<DDTTYColor> background,
                                  const void* tag);
    void clearColors(std::uint32_t mask, std::int32_t context = 0);
    void clearColorsForTag(const void* tag);
    void clearAllColors();
    /// @}

    void logMessage(const DDLogMessage& message) override;
    void logMessages(std::span<const DDLogMessage* const> messages) override;
    bool takesBatches() const noexcept override { return true; }
    bool readsThreadNames() const noexcept override { return false; }

  private:
    const DDTTYLoggerColorProfile* profileFor(const DDLogMessage& message) const;
    void appendLine(const DDLogMessage& message);
    void appendBuiltInForm(const DDLogMessage& message);
    void write(std::string_view bytes) const noexcept;

    const int mDescriptor;
    const DDTTYPalette mPalette;
    const std::string mAppNameAndProcess;  ///< " name[pid:"

    // All of the following belongs to the logger's queue.
    bool mColorsEnabled = false;
    std::vector<DDTTYLoggerColorProfile> mColorProfilesArray;
    std::map<const void*, DDTTYLoggerColorProfile> mColorProfilesDict;
    DDLocalTime::Cache mTime{[](const std::tm& time) { return DDLocalTime::format("%Y-%m-%d %H:%M:%S:", time); }};
    std::string mFormatted;  ///< a formatter's text
    std::string mPending;    ///< lines on their way out
};
