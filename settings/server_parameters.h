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
// Of the service alone. A string: the full path of its log file; without it, it logs nothing.
inline constexpr wchar_t kLogPathName[] = L"LogPath";
// Of the service alone. A number: the greatest level that its log keeps, as in log/ilogger.h.
inline constexpr wchar_t kLogLevelName[] = L"LogLevel";
// A number, always 0: the installation writes it so that the key exists.
inline constexpr wchar_t kDummyName[] = L"Dummy";

struct server_parameters {
  std::wstring security_descriptor = kDefaultSecurityDescriptor;
  bool auto_discovery = true;
  // Ascending. An empty list shares all ports.
  std::vector<std::uint32_t> shared_ports;

  [[nodiscard]] bool operator==(const server_parameters&) const = default;
};

// The registry key of the parameters below HKEY_LOCAL_MACHINE; each release of the product has its
// own.
[[nodiscard]] std::wstring parameters_key(unsigned major, unsigned minor);

// That key as a folder, not yet opened.
[[nodiscard]] std::shared_ptr<abstract_folder> open_parameters_folder(unsigned major,
                                                                      unsigned minor);

// Writes the one value. Returns the stream's error.
[[nodiscard]] HRESULT write_shared_ports(abstract_folder& folder,
                                         const std::vector<std::uint32_t>& ports);

// Failed writes are ignored, as is a stream that cannot be opened; but an error while the stream is
// written is returned, and HRESULT_FROM_WIN32(ERROR_HANDLE_EOF) when it takes fewer bytes than
// given.
[[nodiscard]] HRESULT write_server_parameters(abstract_folder& folder,
                                              const server_parameters& parameters);

// Reads all three. One that is missing has its default; one that is there but cannot be read as
// what it should be is an error, never a default, which might share more than its writer meant to.
// Then `parameters` is unchanged and the result HRESULT_FROM_WIN32(ERROR_INVALID_DATA),
// HRESULT_FROM_WIN32(ERROR_HANDLE_EOF) for a list of ports that ends before the last number that
// its count promises, or the stream's error. The ports come in ascending order.
[[nodiscard]] HRESULT read_server_parameters(abstract_folder& folder,
                                             server_parameters& parameters);

}  // namespace Tamrin::setman
