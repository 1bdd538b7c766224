#include "app/Util/Logging/DDAbstractLogger.hpp"

#include "app/Util/Logging/DDLogFormatter.hpp"
#include "app/Util/Logging/impl/DDLogCore.hpp"

#include <utility>

DDAbstractLogger::DDAbstractLogger(std::string name)
    : mName(std::move(name)), mLoggerQueue(std::make_shared<platform::SerialQueue>(mName)) {}

DDAbstractLogger::~DDAbstractLogger() = default;

void DDAbstractLogger::logMessages(std::span<const DDLogMessage* const> messages) {
    for (const DDLogMessage* message : messages) logMessage(*message);
}

void DDAbstractLogger::performOnLoggerQueue(const std::function<void()>& block) const {
    if (isOnInternalLoggerQueue()) return block();
    const auto onLoggerQueue = [&] { mLoggerQueue->dispatch_sync([&] { performWithinDelivery(block); }); };
    if (isOnGlobalLoggingQueue()) return onLoggerQueue();
    DDLogCore::shared().loggingQueue().dispatch_sync(onLoggerQueue);
}

void DDAbstractLogger::performWithinDelivery(const std::function<void()>& block) noexcept {
    DDLogCore::shared().loggingQueue().performWithin(block);
}

std::shared_ptr<DDLogFormatter> DDAbstractLogger::logFormatter() const {
    return valueOnLoggerQueue(mFormatter);
}

void DDAbstractLogger::setLogFormatter(std::shared_ptr<DDLogFormatter> formatter) {
    if (formatter && formatter->readsThreadNames()) DDLogCore::shared().setWantsThreadNames();
    performOnLoggerQueue([&] { mFormatter.swap(formatter); });
}

bool DDAbstractLogger::isOnGlobalLoggingQueue() const noexcept {
    return DDLogCore::shared().loggingQueue().isCurrent();
}

bool DDAbstractLogger::isOnInternalLoggerQueue() const noexcept {
    return mLoggerQueue->isCurrent();
}
