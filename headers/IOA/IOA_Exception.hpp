#pragma once

#include "GLO/GLO_Exception.hpp"
#include "IOL/IOL_Exception.hpp"

#include <string>

namespace ioa {

/// A reply that is well formed but wrong, and root of the other failures of the application protocol.
class Exception_t : public iol::Exception_t {
  public:
    /// @plain
    Exception_t(const char* file, unsigned short line, const std::wstring& message = {})
        : iol::Exception_t(file, line, message) {}
};

/// A checksum doesn't match.
class ChecksumFailed_t : public Exception_t {
  public:
    using Exception_t::Exception_t;
};

/// No usable protocol list could be established for the device.
class InvalidProtocolInformation_t : public Exception_t {
  public:
    using Exception_t::Exception_t;
};

/// The device lacks a protocol that the operation needs.
class ProtocolNotSupportedException_t : public Exception_t {
  public:
    using Exception_t::Exception_t;
};

/// Failure of a file transfer. Not a communications error: the transfer failed, not the device.
class GftpException_t : public glo::Exception_t {
  public:
    /// @plain
    GftpException_t(const char* file, unsigned short line, const std::wstring& message = {})
        : glo::Exception_t(file, line, message, {}) {}
};

/// A fault in the file transfer's own bookkeeping.
class GftpInternalError_t : public GftpException_t {
  public:
    using GftpException_t::GftpException_t;
};

/// The device reported an error of the transfer.
class GftpTransferError_t : public GftpException_t {
  public:
    using GftpException_t::GftpException_t;
};

/// The local file of a transfer failed.
class GftpLocalFileError_t : public GftpException_t {
  public:
    using GftpException_t::GftpException_t;
};

}  // namespace ioa
