#pragma once

namespace ioa {

// Requests without data.
inline constexpr unsigned short gcProductDataRequestId = 254;
inline constexpr unsigned short gcUnitNameRequestId = 526;

// Numbers that travel in the command packet.
inline constexpr unsigned short CmndGetTime = 5;
inline constexpr unsigned short CmndGetUnitId = 14;
inline constexpr unsigned short CmndGetGmapRgnInfo = 63;
inline constexpr unsigned short CmndGetProductInventory = 151;
inline constexpr unsigned short CmndGetInitFixData = 644;
inline constexpr unsigned short CmndKeepAlive = 684;
inline constexpr unsigned short CmndGetDisconnectTimeout = 685;

}  // namespace ioa
