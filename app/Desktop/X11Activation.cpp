#include "app/Desktop/X11Activation.hpp"

#include <QGuiApplication>
#include <QWidget>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string_view>
#include <system_error>
#include <xcb/xcb.h>

namespace {

constexpr std::uint32_t kFromApplication = 1;  ///< and not from a task bar

struct Free {
    void operator()(void* reply) const noexcept { std::free(reply); }
};

xcb_atom_t atom(xcb_connection_t* x, std::string_view name) {
    const auto request = xcb_intern_atom(x, 0, static_cast<std::uint16_t>(name.size()), name.data());
    const std::unique_ptr<xcb_intern_atom_reply_t, Free> reply(xcb_intern_atom_reply(x, request, nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

xcb_window_t rootOf(xcb_connection_t* x, xcb_window_t window) {
    const auto request = xcb_get_geometry(x, window);
    const std::unique_ptr<xcb_get_geometry_reply_t, Free> reply(xcb_get_geometry_reply(x, request, nullptr));
    return reply ? reply->root : static_cast<xcb_window_t>(XCB_WINDOW_NONE);
}

/// The display server's time at which the person has asked for the start; 0 where the id does not tell.
std::uint32_t timeOf(std::string_view startupId) {
    constexpr std::string_view kMark = "_TIME";
    const std::size_t mark = startupId.rfind(kMark);
    if (mark == std::string_view::npos) return 0;
    const std::string_view digits = startupId.substr(mark + kMark.size());
    const char* const end = digits.data() + digits.size();
    std::uint32_t time = 0;
    const auto result = std::from_chars(digits.data(), end, time);
    return result.ec == std::errc() && result.ptr == end ? time : 0;
}

xcb_client_message_event_t message(xcb_window_t window, xcb_atom_t type, std::uint8_t format) {
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = format;
    event.window = window;
    event.type = type;
    return event;
}

void send(xcb_connection_t* x, xcb_window_t root, std::uint32_t receivers, const xcb_client_message_event_t& event) {
    xcb_send_event(x, 0, root, receivers, reinterpret_cast<const char*>(&event));
}

/// To all that listen: a text in pieces, the last of which ends in a zero byte.
void tellComplete(xcb_connection_t* x, xcb_window_t root, xcb_window_t window, const std::string& startupId) {
    std::string text = "remove: ID=\"";
    for (const char c : startupId) {
        if (c == '"' || c == '\\') text += '\\';
        text += c;
    }
    text += std::string_view("\"\0", 2);
    auto event = message(window, atom(x, "_NET_STARTUP_INFO_BEGIN"), 8);
    const xcb_atom_t next = atom(x, "_NET_STARTUP_INFO");
    for (std::string_view left = text; !left.empty(); event.type = next) {
        const std::string_view piece = left.substr(0, std::size(event.data.data8));
        std::ranges::fill(event.data.data8, std::uint8_t{0});
        std::ranges::copy(piece, event.data.data8);
        send(x, root, XCB_EVENT_MASK_PROPERTY_CHANGE, event);
        left.remove_prefix(piece.size());
    }
}

}  // namespace

bool X11Activation::activate(const QWidget& window, const std::string& startupId) {
    const auto* const x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || startupId.empty()) return false;
    xcb_connection_t* const x = x11->connection();
    const auto id = static_cast<xcb_window_t>(window.winId());
    const xcb_window_t root = rootOf(x, id);
    if (root == XCB_WINDOW_NONE) return false;  // a broken connection; that number means where the pointer is
    tellComplete(x, root, id, startupId);
    const std::uint32_t time = timeOf(startupId);
    if (time != 0) {
        auto event = message(id, atom(x, "_NET_ACTIVE_WINDOW"), 32);
        event.data.data32[0] = kFromApplication;
        event.data.data32[1] = time;
        send(x, root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT, event);
    }
    xcb_flush(x);
    return time != 0;
}
