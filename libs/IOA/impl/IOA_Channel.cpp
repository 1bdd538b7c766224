// A channel's identification exchange, which is its construction; ../IOA_Channel.cpp has the operations that come
// after. Two files because each is named by its own raise sites.
#include "IOA/IOA_Channel.hpp"

#include "GLO/GLO_Exception.hpp"
#include "IOA/IOA_Exception.hpp"
#include "IOA_ChannelIds.hpp"

namespace ioa {
namespace {

constexpr unsigned short gcNoProtocolsLine = 86;  // a stable identifier that support knows, not this file's line

}  // namespace

const win::Duration_t Channel_t::mPcpTimeout{1000};

Channel_t::Channel_t(iol::Link_t& link) : mLink(link) {
    Identify();
}

Channel_t::~Channel_t() = default;

void Channel_t::Identify() {
    SendPacket(iol::Packet_t(gcProductDataRequestId));
    GetPacket(mProductData);
    GetOptionalPacket(mProtocols);
    if (mProtocols.empty()) {
        SynthesizeMissingPcp(mProductData, mProtocols);
    } else {
        AppendMissingProtocols(mProductData, mProtocols);
    }
    if (mProtocols.empty()) throw InvalidProtocolInformation_t("libs/IOA/impl/IOA_Channel", gcNoProtocolsLine);
    GetOptionalPacket(mProductDataExt);
    CmndAsyncOff();
}

void Channel_t::GetOptionalPacket(iol::Packet_t& packet) const {
    try {
        mLink.GetPacket(packet, mPcpTimeout);
    } catch (const glo::Timeout_t&) {
        // Older devices don't send it.
    }
}

}  // namespace ioa
