#pragma once

#include "platform/SystemSurvey.hpp"
#include "platform/linux/usb/OpenFailure.hpp"

#include <string>

namespace platform {

/// Where the survey looks.
struct SurveyPlaces {
    std::string devices = "/sys/bus/usb/devices";
    std::string nodes = "/dev/bus/usb";
    std::string udev = "/run/udev";
    std::string release = "/etc/os-release";
    OpenFailurePlaces failure;  ///< for the rule and the access to a node
};

/// Opens no device and needs no right that every user has not. What can't be read is left out. Any thread.
SystemSurvey surveyOf(const SurveyPlaces& places);

/// The same on this system, for Platform.
inline SystemSurvey surveyOfThisSystem() {
    return surveyOf({});
}

}  // namespace platform
