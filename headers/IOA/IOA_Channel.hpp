#pragma once

#include "IOA/IOA_Candidates.hpp"
#include "IOA/IOA_Exception.hpp"
#include "IOA/IOA_ProductData.hpp"
#include "IOA/IOA_Protocols.hpp"
#include "IOA/IOA_PvtData.hpp"
#include "IOA/IOA_RawPackets.hpp"
#include "IOA/IOA_Records.hpp"
#include "IOL/IOL_Link.hpp"
#include "WIN/WIN_Duration.hpp"

#include <string>
#include <vector>

namespace ioa {

/// The application protocol with one device: finds out who the device is and what it speaks, then sends commands. It
/// keeps nothing of the connection but what it found out; every operation is a short exchange of packets.
///
/// Every operation blocks, belongs to the owner thread of the link, never tries again, and lets the link's errors pass:
/// glo::Timeout_t when a mandatory reply doesn't come within iol::gcDefaultTimeout, iol::BadFrame_t when a reply can't
/// be decoded, and whatever the transport throws. After a time-out the channel stays usable.
class Channel_t {
  public:
    /// The wait for the replies that a device may leave out, in milliseconds.
    static const win::Duration_t mPcpTimeout;

    /// Identifies the device: asks for its product data, takes the protocol list and the extended product data where
    /// they come, mends the list from what is known of the product, and switches unasked data off.
    /// @param link  borrowed; must outlive the channel
    /// @throws glo::Timeout_t                     no product data
    /// @throws ioa::InvalidProtocolInformation_t  no protocol list, and none is known for the product and version
    explicit Channel_t(iol::Link_t& link);

    /// Sends nothing.
    virtual ~Channel_t();

    Channel_t(const Channel_t&) = delete;
    Channel_t& operator=(const Channel_t&) = delete;

    // What the identification found out.

    const ProductData_t& Product() const { return mProductData; }
    const ProductDataExt_t& ProductExt() const { return mProductDataExt; }  ///< empty when the device didn't send it
    const Protocols_t& Protocols() const { return mProtocols; }             ///< never empty

    /// Sends a raw command: the command number becomes the frame's id. A reply is the caller's to await.
    void SendIopCommand(unsigned short command, std::vector<unsigned char> data);

    /// Sends a command packet.
    void SendCommand(unsigned short command) const;

    void GetPacket(iol::Packet_t& packet) const;
    void SendPacket(const iol::Packet_t& packet) const;

    unsigned int GetUnitID();
    std::wstring GetUnitName();
    void SetUnitName(const std::wstring& name);
    TimeData_t GetTimeData();
    void SetTimeData(const TimeData_t& time);
    void SendKeepAlive() const;
    unsigned int GetDeviceDisconnectTimeout() const;

    /// Gives the device 200 milliseconds.
    /// The link's cancellation object is not consulted: links hold it, perhaps beyond its life, and their operations
    /// leave it alone. Cancellation takes effect between commands.
    void DelayForUnit();

    /// Tells the device to send nothing unasked.
    void CmndAsyncOff();

    /// Waits for the end of a transfer.
    /// @return the command
    /// @throws ioa::Exception_t  another transfer's end came
    unsigned short GetXferCmplt(unsigned short command);
    void SendTransferComplete(unsigned short command);

    /// Asks for the extended product data anew; the stored one stays as it is.
    /// @return empty when the device doesn't answer within mPcpTimeout
    ProductDataExt_t ProductDataExt();

    /// Waits for the next position record. The device sends them unasked once it was told to.
    PvtData_t GetPvt();

    void GetInitFixData(InitFixData_t& record);
    void GetProductInventory(ProductInventory_t& record);
    void GetGmapRgnInfo(GmapRgnInfo_t& record);

    /// Asks for the size of a region in bytes; what the device reports as negative is 0.
    /// @throws glo::OutOfRange_t  256 or more; nothing has been sent
    long long GetRgnSize(unsigned short region);

    /// What to call the device in front of a person: its owner's name for it, else the model's, then with the extra
    /// text in parentheses. A failure to get the owner's name counts as none.
    std::wstring DisplayName(const std::wstring& extra);

  private:
    void Identify();
    void RequestAndGet(unsigned short command, iol::Packet_t& reply) const;

    /// Waits mPcpTimeout for a packet that the device may leave out.
    void GetOptionalPacket(iol::Packet_t& packet) const;

    iol::Link_t& mLink;
    ProductData_t mProductData;
    ProductDataExt_t mProductDataExt;
    Protocols_t mProtocols;
};

}  // namespace ioa
