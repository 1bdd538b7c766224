#pragma once

#include <string>
#include <vector>

namespace platform {

/// What support asks first: which system this is, what hangs on USB, and who may open the product's devices. Texts of
/// whole lines, in English, with the names and serial numbers in them as they are.
struct SystemSurvey {
    std::string versions;  ///< of the system, its kernel and the USB library
    std::string devices;   ///< the tree of USB devices
    std::string access;    ///< the rule that gives access, and each of the product's devices with its access list

    // What stands in these texts, or in logs, and must not be passed on.
    std::vector<std::string> serialNumbers;  ///< of USB devices
    std::vector<std::string> users;          ///< account names, and the user's own full name
    std::vector<std::string> hosts;          ///< this computer's names
    std::vector<std::string> homes;          ///< home folders
};

}  // namespace platform
