#include "simulator/engine/SettingsStore.hpp"

namespace simulator {

SettingsStore SettingsStore::wellUsed() {
    return SettingsStore({{"Language", "English"},
                          {"Units", "Metric"},
                          {"Time format", "24 hours"},
                          {"Time zone", "UTC+01:00"},
                          {"Backlight", "30 seconds"},
                          {"Contrast", "60 %"},
                          {"Alarm 1", "06:45, weekdays"},
                          {"Alarm 2", "off"},
                          {"Key tones", "off"},
                          {"Auto lap", "1000 m"},
                          {"Home", "N 47.0505 E 008.3064"},
                          {"Position format", "hddd.dddd"},
                          {"Owner", "A. Walker"}});
}

}  // namespace simulator
