// The server's three parameters, as named values of a settings folder.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "settings/abstract_folder.h"

namespace Tamrin::setman {

// A string: the listening security descriptor in SDDL.
inline constexpr wchar_t kSecurityDescriptorName[] = L"SecurityDescriptor";
// A number: 1 when the server announces itself, else 0.
inline constexpr wchar_t kAutoDiscoveryName[] = L"AutoDiscovery";
// Bytes: a 32-bit count, then that many 32-bit port numbers, all little-endian.
inline constexpr wchar_t kSharedPortsName[] = L"SharedPorts";
// A number, always 0: the installation writes it so that the key exists.
inline constexpr wchar_t kDummyName[] = L"Dummy";

// Services may create instances of the pipe; everybody may connect, read and write.
inline constexpr wchar_t kDefaultSecurityDescriptor[] =
    L"D:(A;;0xc0100004;;;SU)(A;;0xc0100000;;;WD)";

struct server_parameters {
  std::wstring security_descriptor = kDefaultSecurityDescriptor;
  bool auto_discovery = true;
  // Ascending. An empty list shares all ports.
  std::vector<std::uint32_t> shared_ports;
};

// The registry key of the parameters below HKEY_LOCAL_MACHINE; each release of the product has its
// own.
[[nodiscard]] std::wstring parameters_key(unsigned major, unsigned minor);

// That key as a folder, not yet opened.
[[nodiscard]] std::shared_ptr<abstract_folder> open_parameters_folder(unsigned major,
                                                                      unsigned minor);

// Failed writes are ignored, as is a stream that cannot be opened; but an error while the stream is
// written is returned, and HRESULT_FROM_WIN32(ERROR_HANDLE_EOF) when it takes fewer bytes than
// given.
[[nodiscard]] HRESULT write_server_parameters(abstract_folder& folder,
                                              const server_parameters& parameters);

// The default when there is no such string.
[[nodiscard]] std::wstring read_security_descriptor(abstract_folder& folder);

// On when there is no such number.
[[nodiscard]] bool read_auto_discovery(abstract_folder& folder);

// Sets `ports` to the stored list in ascending order; no value and an empty value are an empty
// list. On failure `ports` is unchanged, and the result is the stream's error, or
// HRESULT_FROM_WIN32(ERROR_HANDLE_EOF) when the value ends before the last number that its count
// promises, or HRESULT_FROM_WIN32(ERROR_INVALID_DATA) when it goes on after it.
[[nodiscard]] HRESULT read_shared_ports(abstract_folder& folder, std::vector<std::uint32_t>& ports);

}  // namespace Tamrin::setman
