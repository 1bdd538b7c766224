#pragma once

namespace platform {

/// The deleter of a C library's handle: calls the function that gives it back.
template <auto kFunction>
struct Release {
    void operator()(auto* handle) const noexcept { kFunction(handle); }
};

}  // namespace platform
