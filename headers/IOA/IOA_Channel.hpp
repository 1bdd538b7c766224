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

    /// What the identification found out. Never blocks.
    /// @{
    const ProductData_t& Product() const { return mProductData; }
    const ProductDataExt_t& ProductExt() const { return mProductDataExt; }  ///< empty when the device didn't send it
    const Protocols_t& Protocols() const { return mProtocols; }             ///< never empty
    /// @}

    /// Sends a raw command: the command number becomes the frame's id. A reply is the caller's to await.
    /// @param data  the argument bytes, which become the payload as they are
    void SendIopCommand(unsigned short command, std::vector<unsigned char> data);

    /// Sends a command packet (id 10). A reply is the caller's to await.
    void SendCommand(unsigned short command) const;

    /// The link's exchange of one packet, with iol::gcDefaultTimeout. Packets with other ids that come before the
    /// awaited one are lost.
    /// @{
    void GetPacket(iol::Packet_t& packet) const;
    void SendPacket(const iol::Packet_t& packet) const;
    /// @}

    /// Asks for the number that the device calls itself by (command 14, answer 38).
    unsigned int GetUnitID();

    /// Asks for the name that the owner gave the device (request 526, answer 525). For devices that
    /// Protocols_t::SupportsNaming().
    /// @return empty when the device has none
    std::wstring GetUnitName();

    /// Gives the device a name (packet 525). No reply is awaited.
    void SetUnitName(const std::wstring& name);

    /// Asks for the device's clock (command 5, answer 14).
    TimeData_t GetTimeData();

    /// Sets the device's clock (packet 14, then packet 47 with the value 0). No reply is awaited.
    void SetTimeData(const TimeData_t& time);

    /// Tells the device that the host is still there (command 684). No reply is awaited.
    void SendKeepAlive() const;

    /// Asks after how long the device takes the host for gone (command 685, answer 1523).
    /// @return in the device's own unit
    unsigned int GetDeviceDisconnectTimeout() const;

    /// Gives the device 200 milliseconds.
    /// The link's cancellation object is not consulted: links hold it, perhaps beyond its life, and their operations
    /// leave it alone. Cancellation takes effect between commands.
    void DelayForUnit();

    /// Tells the device to send nothing unasked (packet 28 with no bit set). No reply is awaited.
    void CmndAsyncOff();

    /// Waits for the end of a transfer (packet 12).
    /// @return the command
    /// @throws ioa::Exception_t  another transfer's end came, and is lost
    unsigned short GetXferCmplt(unsigned short command);

    /// Tells the device that the transfer of a command has ended (packet 12).
    void SendTransferComplete(unsigned short command);

    /// Asks for the extended product data anew (request 254, answer 248); the stored one stays as it is.
    /// @return empty when the device doesn't answer within mPcpTimeout
    ProductDataExt_t ProductDataExt();

    /// Waits for the next position record (packet 51). The device sends them unasked once it was told to.
    PvtData_t GetPvt();

    /// Asks for a record (commands 644, 151 and 63) and reads it into the caller's, whose id says which packet to wait
    /// for.
    /// @{
    void GetInitFixData(InitFixData_t& record);
    void GetProductInventory(ProductInventory_t& record);
    void GetGmapRgnInfo(GmapRgnInfo_t& record);
    /// @}

    /// Asks for the size of a region in bytes (packet 980, answer 981); what the device reports as negative is 0.
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
