#include "IOA/IOA_ProductData.hpp"

#include "GLO/GLO_Assert.hpp"
#include "IOL/IOL_Exception.hpp"
#include "IOL/IOL_FrameStream.hpp"
#include "WIN/WIN_Encoding.hpp"

#include <utility>

namespace ioa {
namespace {

constexpr char gcFile[] = "libs/IOA/IOA_ProductData";

/// Appends every text that the stream still holds. The end of the data ends the list and is no error.
void ReadTexts(iol::FrameStream_t& stream, std::vector<std::wstring>& texts) {
    stream.encodingg(win::Utf8Encoding());
    for (std::wstring text; stream >> text;) texts.push_back(std::move(text));
}

iol::Frame_t WriteTexts(unsigned short id, iol::FrameStream_t& stream, const std::vector<std::wstring>& texts) {
    stream.encodingp(win::Utf8Encoding());
    for (const std::wstring& text : texts) stream << text;
    glo::Assert(!stream.fail(), gcFile, __LINE__);
    return iol::Frame_t(id, stream);
}

}  // namespace

void ProductData_t::AcceptFrame(const iol::Frame_t& frame) {
    iol::Packet_t::AcceptFrame(frame);
    iol::FrameStream_t stream(frame);
    stream >> productId >> softwareVersion;
    if (stream.fail()) throw iol::BadFrame_t(frame, gcFile, __LINE__);
    ReadTexts(stream, descriptions);
}

iol::Frame_t ProductData_t::ProduceFrame() const {
    iol::FrameStream_t stream;
    stream << productId << softwareVersion;
    return WriteTexts(gcId, stream, descriptions);
}

std::wstring ProductData_t::DisplayName() const {
    if (descriptions.empty()) return {};
    const std::wstring& text = descriptions.front();
    // The last marker is never reached, since the first is part of it: a beta's name keeps its "Beta". People know
    // their devices by these names, so the order stays.
    for (const wchar_t* marker : {L" Software", L" software", L" Beta Software"}) {
        if (const auto end = text.find(marker); end != std::wstring::npos) return text.substr(0, end);
    }
    return text;
}

void ProductDataExt_t::AcceptFrame(const iol::Frame_t& frame) {
    iol::Packet_t::AcceptFrame(frame);
    iol::FrameStream_t stream(frame);
    if (stream.fail()) throw iol::BadFrame_t(frame, gcFile, __LINE__);
    ReadTexts(stream, descriptions);
}

iol::Frame_t ProductDataExt_t::ProduceFrame() const {
    iol::FrameStream_t stream;
    return WriteTexts(gcId, stream, descriptions);
}

}  // namespace ioa
