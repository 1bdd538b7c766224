#pragma once

#include "app/Util/Logging/DDAbstractLogger.hpp"

#include <cstdint>
#include <memory>

/// One registered logger. Belongs to the logging queue.
struct DDLoggerNode {
    std::shared_ptr<DDAbstractLogger> logger;
    std::shared_ptr<platform::DispatchQueue> loggerQueue;
    std::uint32_t logLevel = 0;
};
