#pragma once

#include <thread>

namespace platform {

/// A quicker start of a window program, by a tenth of the time to the first frame. What the toolkit does one after the
/// other before it can show a text, this does at the same time, ahead of it: a thread loads the plug-in of the window
/// system, which the application object is going to load, while the calling one has the font library read the desktop's
/// configuration. The toolkit then finds both done. Nothing depends on it: what is missing or guessed wrongly the
/// toolkit fetches itself, later.
///
/// Made on the main thread before QApplication, which changes the locale and the environment that fonts are chosen by:
/// no thread may read them meanwhile. The loading thread reads neither. Throws only for want of memory.
class QtPreload {
  public:
    QtPreload();
    ~QtPreload();  ///< waits for the plug-in, which stays loaded
    QtPreload(const QtPreload&) = delete;
    QtPreload& operator=(const QtPreload&) = delete;

  private:
    std::thread mPlugin;
};

}  // namespace platform
