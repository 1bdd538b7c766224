#pragma once

#include "GLO/GLO_AutoPtr.hpp"
#include "GLO/GLO_NonCopyable.hpp"

#include <array>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

namespace glo {

/// A text buffer of fixed size that the crash report shows: a history of lines, then a snapshot of what is going on.
/// It is published through the data symbol "__crashreporter_info__", a `const char*` that the program exports. In a
/// program without that symbol the box is inert. Any thread.
///
/// | history, 0 to mark | snapshot | zero ... | byte 9999: always zero |
class Blackbox_t : public NonCopyable_t {
  public:
    static constexpr std::size_t gcBufferSize = 10000;  ///< bytes, the terminating zero included

    /// @param symbol  where to publish the buffer's address; null makes an inert box, which is logged once
    explicit Blackbox_t(const char** symbol);
    ~Blackbox_t();  ///< takes the published address back

    bool IsActive() const { return static_cast<bool>(mBuffer); }  ///< not inert

    /// Appends to the history. A full box first drops as many of its oldest characters as the text is long.
    void Add(std::string_view text);

    /// Replaces the whole history.
    void Update(std::string_view text);

    /// Replaces the snapshot that trails the history; an empty text removes it.
    void Snapshot(std::string_view text);

    /// A copy of the buffer's text. Not to be used on an inert box, where there is none.
    std::string CurrentText() const;

  private:
    using Buffer_t = std::array<char, gcBufferSize>;

    std::size_t AppendAt(std::size_t length, std::string_view text);

    const char** mSymbol;
    AutoPtr<Buffer_t> mBuffer;
    mutable std::recursive_mutex mCriticalSection;  ///< guards all below and the buffer's text
    std::string mSnapshot;
    std::size_t mMark = 0;  ///< length of the history
};

/// Serializes the creation of process-wide objects. Taken alone, never together with another lock. Any thread.
std::recursive_mutex& SingletonCriticalSection();

/// The process-wide black box, made at its first use and destroyed at the end of the process. Any thread.
Blackbox_t& Blackbox();

}  // namespace glo
