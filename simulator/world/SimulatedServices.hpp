#pragma once

#include "platform/NSExceptionHandler.hpp"
#include "platform/NSUserDefaults.hpp"
#include "platform/ScriptRunner.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace simulator {

/// Answers what it is told to and keeps what it was asked.
class RecordingScriptRunner final : public platform::ScriptRunner {
  public:
    bool executeAndReturnError(const std::string& source, const std::stop_token&) override {
        calls.push_back(source);
        if (onScript) onScript();
        return succeeds;
    }
    int system(const std::string& command) override {
        calls.push_back(command);
        return status;
    }

    std::vector<std::string> calls;
    std::function<void()> onScript;  ///< what happens meanwhile; may throw
    bool succeeds = true;
    int status = 0;
};

/// Preferences in memory: the application domain by key, the others whole.
class MemoryDefaults final : public platform::NSUserDefaults {
  public:
    std::optional<platform::PropertyList> objectForKey(const std::string& key) const override;
    bool boolForKey(const std::string& key) const override;
    std::int64_t integerForKey(const std::string& key) const override;
    platform::PropertyList::Dictionary persistentDomainForName(const std::string& domain) const override;
    bool setPersistentDomain(const platform::PropertyList::Dictionary& contents, const std::string& domain) override;

    platform::PropertyList::Dictionary values;
    std::map<std::string, platform::PropertyList::Dictionary> domains;
};

/// Keeps what it was given.
class RecordingExceptionHandler final : public platform::NSExceptionHandler {
  public:
    void setDelegate(platform::NSExceptionHandlerDelegate* value) override { delegate = value; }
    void setExceptionHandlingMask(std::uint32_t value) override { mask = value; }
    std::vector<std::string> callStackSymbols() override { return {"frame one", "frame two"}; }

    platform::NSExceptionHandlerDelegate* delegate = nullptr;
    std::uint32_t mask = 0;
};

}  // namespace simulator
