#include "simulator/capture/UsbCapture.hpp"

#include "platform/common/Release.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <pcap/pcap.h>
#include <pcap/usb.h>
#include <string>
#include <system_error>

namespace simulator {
namespace {

static_assert(sizeof(pcap_usb_header) == 48 && sizeof(pcap_usb_header_mmapped) == 64);

constexpr std::size_t kShortHeader = sizeof(pcap_usb_header);
constexpr std::size_t kLongHeader = sizeof(pcap_usb_header_mmapped);
constexpr int kMostBytes = 1 << 18;              // of a packet
constexpr std::int64_t kLatest = 4'000'000'000;  // seconds since the epoch: far from where sums overflow

using Reader = std::unique_ptr<pcap_t, platform::Release<pcap_close>>;
using Dumper = std::unique_ptr<pcap_dumper_t, platform::Release<pcap_dump_close>>;
using File = std::unique_ptr<std::FILE, platform::Release<std::fclose>>;

/// libpcap has put the header into this machine's byte order.
UsbEvent eventOf(std::span<const unsigned char> bytes, std::size_t number, std::size_t headerSize) {
    if (bytes.size() < headerSize) throw CaptureError(packetName(number) + " is shorter than its header");
    UsbEvent event;
    event.packet = number;
    pcap_usb_header header;
    std::memcpy(&header, bytes.data(), sizeof header);
    event.request = header.id;
    event.type = static_cast<char>(header.event_type);
    event.transfer = static_cast<UsbEvent::Transfer>(header.transfer_type & 3);
    event.endpoint = header.endpoint_number;
    event.device = header.device_address;
    event.bus = header.bus_id;
    event.status = header.status;
    event.length = header.urb_len;
    const std::string is = packetName(number) + " is damaged: ";
    if (std::string("SCE").find(event.type) == std::string::npos) throw CaptureError(is + "it neither begins nor ends");
    if (header.transfer_type > 3) throw CaptureError(is + "it is of no kind of transfer");
    if (header.ts_sec < 0 || header.ts_sec > kLatest) throw CaptureError(is + "it has no time that can be");
    event.time = std::chrono::seconds(header.ts_sec) + Time(header.ts_usec);
    if (event.transfer == UsbEvent::Transfer::Isochronous) return event;
    if (header.setup_flag == 0) {
        event.setup.emplace();
        std::ranges::copy(bytes.subspan(kShortHeader - event.setup->size(), event.setup->size()), event.setup->begin());
    }
    event.tail.assign(bytes.begin() + kShortHeader, bytes.begin() + static_cast<std::ptrdiff_t>(headerSize));
    const auto data = bytes.subspan(headerSize);
    if (header.data_len != data.size()) {
        throw CaptureError(is + "its header says that " + std::to_string(header.data_len) + " bytes follow, but " +
                           std::to_string(data.size()) + " do");
    }
    if (header.data_flag == 0 && event.length != data.size()) {
        throw CaptureError(packetName(number) + " was cut when it was captured: it holds " +
                           std::to_string(data.size()) + " bytes of " + std::to_string(event.length));
    }
    event.data.assign(data.begin(), data.end());
    return event;
}

Bytes bytesOf(const UsbEvent& event) {
    Bytes bytes(kShortHeader + event.tail.size() + event.data.size());
    pcap_usb_header header{};
    header.id = event.request;
    header.event_type = static_cast<std::uint8_t>(event.type);
    header.transfer_type = static_cast<std::uint8_t>(event.transfer);
    header.endpoint_number = event.endpoint;
    header.device_address = event.device;
    header.bus_id = event.bus;
    header.setup_flag = event.setup ? 0 : '-';
    header.data_flag = !event.data.empty() ? '\0' : event.isIn() ? '<' : '>';
    const auto seconds = std::chrono::floor<std::chrono::seconds>(event.time);
    header.ts_sec = seconds.count();
    header.ts_usec = static_cast<std::int32_t>((event.time - seconds).count());
    header.status = event.status;
    header.urb_len = event.length;
    header.data_len = static_cast<std::uint32_t>(event.data.size());
    if (event.setup) std::memcpy(&header.setup, event.setup->data(), event.setup->size());
    std::memcpy(bytes.data(), &header, kShortHeader);
    std::ranges::copy(event.tail, bytes.begin() + kShortHeader);
    std::ranges::copy(event.data, bytes.end() - static_cast<std::ptrdiff_t>(event.data.size()));
    return bytes;
}

}  // namespace

std::string packetName(std::size_t number) {
    return "packet " + std::to_string(number);
}

UsbCapture UsbCapture::read(const std::filesystem::path& path) {
    File file(std::fopen(path.c_str(), "re"));
    if (!file) throw CaptureError(std::strerror(errno));
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    const Reader reader(pcap_fopen_offline(file.get(), error.data()));
    if (!reader) throw CaptureError(std::string("it is no capture: ") + error.data());
    std::FILE* const open = file.release();  // the reader's now
    UsbCapture capture;
    capture.linkType = pcap_datalink(reader.get());
    if (capture.linkType != DLT_USB_LINUX && capture.linkType != DLT_USB_LINUX_MMAPPED) {
        throw CaptureError("it is not a capture of usbmon: its link type is " + std::to_string(capture.linkType) +
                           ", not 189 or 220");
    }
    const std::size_t headerSize = capture.linkType == DLT_USB_LINUX ? kShortHeader : kLongHeader;
    for (std::size_t number = 1;; ++number) {
        const long begins = std::ftell(open);
        pcap_pkthdr* header = nullptr;
        const unsigned char* bytes = nullptr;
        const int result = pcap_next_ex(reader.get(), &header, &bytes);
        if (result == PCAP_ERROR_BREAK) break;  // the end of the file
        const std::string where = " (at byte " + std::to_string(begins) + " of the file)";
        if (result != 1) {
            throw CaptureError(packetName(number) + " can't be read" + where + ": " + pcap_geterr(reader.get()));
        }
        try {
            UsbEvent event = eventOf({bytes, header->caplen}, number, headerSize);
            if (event.transfer != UsbEvent::Transfer::Isochronous) capture.events.push_back(std::move(event));
        } catch (const CaptureError& cause) {
            throw CaptureError(cause.what() + where);
        }
    }
    return capture;
}

void UsbCapture::write(const std::filesystem::path& path) const {
    const std::filesystem::path part = path.string() + ".part";
    const auto check = [&](bool right) {
        if (right) return;
        const std::string reason = std::strerror(errno);
        std::error_code gone;
        std::filesystem::remove(part, gone);
        throw CaptureError(path.string() + " can't be written: " + reason);
    };
    const Reader format(pcap_open_dead(linkType, kMostBytes));
    check(format != nullptr);
    Dumper dumper(pcap_dump_open(format.get(), part.c_str()));
    check(dumper != nullptr);
    for (const auto& event : events) {
        const Bytes bytes = bytesOf(event);
        pcap_pkthdr header{};
        header.caplen = header.len = static_cast<bpf_u_int32>(bytes.size());
        const auto seconds = std::chrono::floor<std::chrono::seconds>(event.time);
        header.ts.tv_sec = seconds.count();
        header.ts.tv_usec = (event.time - seconds).count();
        pcap_dump(reinterpret_cast<unsigned char*>(dumper.get()), &header, bytes.data());
    }
    check(pcap_dump_flush(dumper.get()) == 0 && std::ferror(pcap_dump_file(dumper.get())) == 0);
    dumper.reset();
    std::error_code error;
    std::filesystem::rename(part, path, error);
    errno = error.value();
    check(!error);
}

}  // namespace simulator
