#pragma once

#include "IOL/IOL_Exception.hpp"
#include "IOL/IOL_Packet.hpp"

#include <string>
#include <vector>

namespace ioa {

/// Which device this is.
///
/// Frame 255, device to host:
///
/// | Offset | Width | Field |
/// |---|---|---|
/// | 0 | 2 | product id: the model's number |
/// | 2 | 2 | software version, signed: 202 stands for 2.02 |
/// | 4 | rest | descriptions: UTF-8 texts, each closed by a 0 byte |
class ProductData_t : public iol::Packet_t {
  public:
    static constexpr unsigned short gcId = 255;  ///< @plain

    ProductData_t() : iol::Packet_t(gcId) {}

    /// Appends to the descriptions; a text without its closing 0 is dropped.
    /// @throws iol::BadFrame_t  too short for the two numbers
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    /// What to call the model in front of a person: the first description up to its software version.
    std::wstring DisplayName() const;

    unsigned short productId = 0;            ///< the model's number
    short softwareVersion = 0;               ///< 202 stands for 2.02
    std::vector<std::wstring> descriptions;  ///< the first one names the model and its software version
};

/// Further description lines. Devices that have none don't send it, so an empty record is valid.
/// Frame 248, device to host: zero or more UTF-8 texts, each closed by a 0 byte.
class ProductDataExt_t : public iol::Packet_t {
  public:
    static constexpr unsigned short gcId = 248;  ///< @plain

    ProductDataExt_t() : iol::Packet_t(gcId) {}

    /// Appends to the descriptions; a text without its closing 0 is dropped.
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    std::vector<std::wstring> descriptions;  ///< empty when the device has none
};

}  // namespace ioa
