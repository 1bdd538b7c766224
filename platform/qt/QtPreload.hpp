#pragma once

#include <thread>

namespace platform {

/// A quicker start of a window program. What the toolkit does one after the other before it can show a text, this does
/// at the same time, ahead of it: one thread loads the plug-ins that the application object is going to load, while the
/// calling one has the font library read the desktop's configuration. The toolkit then finds both done. Nothing depends
/// on it: what is missing or guessed wrongly the toolkit fetches itself, later.
///
/// Made on the main thread before QApplication, which changes the locale and the environment that fonts are chosen by:
/// no thread may read them meanwhile. The loading thread reads neither. Throws only for want of memory.
class QtPreload {
  public:
    QtPreload();
    ~QtPreload();  ///< waits for the plug-ins; they stay loaded
    QtPreload(const QtPreload&) = delete;
    QtPreload& operator=(const QtPreload&) = delete;

  private:
    std::thread mPlugins;
};

}  // namespace platform
