#pragma once

namespace glo {

/// Empty base of what must not be copied.
class NonCopyable_t {
  public:
    NonCopyable_t(const NonCopyable_t&) = delete;
    NonCopyable_t& operator=(const NonCopyable_t&) = delete;

  protected:
    NonCopyable_t() = default;
    ~NonCopyable_t() = default;
};

}  // namespace glo
