#pragma once

#include "app/Util/Logging/DDLogFormatter.hpp"
#include "app/Util/Logging/impl/DDLocalTime.hpp"

#include <ctime>
#include <string>

/// The lines of the tool's log files: time, thread number, level letter and text, as in
/// "2026-11-15 18.25.03 (GMT+01:00) | 7171 | I | Device rebooted".
class VundLogFormatter : public DDLogFormatter {
  public:
    bool formatLogMessage(const DDLogMessage& message, std::string& text) override;
    bool readsThreadNames() const noexcept override { return false; }

  private:
    static std::string timeText(const std::tm& time);

    DDLocalTime::Cache mTime{timeText};
};

/// The form for a person's eye, which is that of the files.
class UILogFormatter final : public VundLogFormatter {
  public:
    bool formatLogMessage(const DDLogMessage& message, std::string& text) override {
        return VundLogFormatter::formatLogMessage(message, text);
    }
};
