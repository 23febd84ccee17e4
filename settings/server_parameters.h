// The server's three parameters, as named values of a settings folder.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "settings/abstract_folder.h"
#include "settings/default_access.h"

namespace Tamrin::setman {

// A string: the listening security descriptor in SDDL.
inline constexpr wchar_t kSecurityDescriptorName[] = L"SecurityDescriptor";
// A number: 1 when the server announces itself, else 0.
inline constexpr wchar_t kAutoDiscoveryName[] = L"AutoDiscovery";
// Bytes: a 32-bit count, then that many 32-bit port numbers, all little-endian.
inline constexpr wchar_t kSharedPortsName[] = L"SharedPorts";
// Service only. A string: the full path of its log file; if missing, the service logs nothing.
inline constexpr wchar_t kLogPathName[] = L"LogPath";
// Service only. A number: the highest level that its log keeps, as in log/ilogger.h.
inline constexpr wchar_t kLogLevelName[] = L"LogLevel";
// A number, always 0: the installation writes it to create the key.
inline constexpr wchar_t kDummyName[] = L"Dummy";

struct server_parameters {
  std::wstring security_descriptor = kDefaultSecurityDescriptor;
  bool auto_discovery = true;
  // Ascending. An empty list shares all ports.
  std::vector<std::uint32_t> shared_ports;

  [[nodiscard]] bool operator==(const server_parameters&) const = default;
};

// The path of the parameters' registry key below HKEY_LOCAL_MACHINE; each release has its own.
[[nodiscard]] std::wstring parameters_key(unsigned major, unsigned minor);

// That key as a folder, which is not opened yet.
[[nodiscard]] std::shared_ptr<abstract_folder> open_parameters_folder(unsigned major,
                                                                      unsigned minor);

// Writes this one value. Returns the stream's error; a stream that cannot be opened is ignored.
[[nodiscard]] HRESULT write_shared_ports(abstract_folder& folder,
                                         const std::vector<std::uint32_t>& ports);

// Failed writes are ignored, as is a stream that cannot be opened. An error while the stream is
// written is returned, or HRESULT_FROM_WIN32(ERROR_HANDLE_EOF) when it takes too few bytes.
[[nodiscard]] HRESULT write_server_parameters(abstract_folder& folder,
                                              const server_parameters& parameters);

// Reads all three. A missing value takes its default. A value of the wrong type or length is an
// error and never defaulted: the default might share more than the administrator intended. On
// failure `parameters` is unchanged and the result is HRESULT_FROM_WIN32(ERROR_INVALID_DATA),
// HRESULT_FROM_WIN32(ERROR_HANDLE_EOF) for a list of ports with fewer numbers than its count
// declares, or the stream's error. The ports are in ascending order.
[[nodiscard]] HRESULT read_server_parameters(abstract_folder& folder,
                                             server_parameters& parameters);

}  // namespace Tamrin::setman
