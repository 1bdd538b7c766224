#include "IOL/IOL_Frame.hpp"

#include "GLO/GLO_HexValueDump.hpp"
#include "IOL/IOL_Exception.hpp"
#include "IOL/IOL_FrameStream.hpp"

#include <cstdint>
#include <limits>
#include <ostream>
#include <utility>

namespace iol {
namespace {

constexpr unsigned short gcTooLongLine = 36;  // a stable identifier that support knows, not this file's line

void CheckLength(std::uint64_t length) {
    if (length > std::numeric_limits<std::uint32_t>::max()) {
        throw Exception_t("libs/IOL/IOL_Frame", gcTooLongLine, std::wstring());
    }
}

std::vector<unsigned char> TakeRest(FrameStream_t& stream) {
    CheckLength(stream.RemainingSize());
    return stream.TakeRemaining();
}

}  // namespace

Frame_t::Frame_t(unsigned short id, const unsigned char* bytes, unsigned int count)
    : Frame_t(id, std::vector<unsigned char>(bytes, bytes + count)) {}

Frame_t::Frame_t(unsigned short id, std::vector<unsigned char> bytes) : mId(id) {
    CheckLength(bytes.size());
    mData = glo::SmartPtr_t<const Data_t>(new Data_t(std::move(bytes)));
}

Frame_t::Frame_t(unsigned short id, FrameStream_t& stream) : Frame_t(id, TakeRest(stream)) {}

void Frame_t::Write(std::wostream& stream) const {
    stream << L"Frame: (ID,DATA)\nID: " << mId << L"\n";
    glo::HexValueDump(Data(), Data() + Size(), stream, true);
}

}  // namespace iol
