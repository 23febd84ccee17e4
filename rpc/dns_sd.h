// DNS-based service discovery (DNS-SD) on the local link through Windows' own responder: servers
// are announced and found without a socket of this program.
//
// Windows calls back on threads of its own, and once more after a request has been cancelled. So
// anything that it holds a pointer to, a request or its context, is never destroyed; a process
// creates only one of each kind.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/win32.h"
// After <windows.h>.
#include <windns.h>

namespace tether {

// The service type. A server's instance of it is named "<computer>.<type>".
inline constexpr wchar_t kServiceType[] = L"_tarnwheel._tcp.local";

// Returned on success by the functions that start a request.
inline constexpr DWORD kDnsRequestPending = 9506;  // DNS_REQUEST_PENDING

// The functions of dnsapi.dll. Windows before Windows 10 version 1809 lacks them, so they are
// looked up at run time.
struct dns_sd_functions {
  decltype(&::DnsServiceRegister) register_instance = nullptr;
  decltype(&::DnsServiceRegisterCancel) cancel_registration = nullptr;
  decltype(&::DnsServiceDeRegister) deregister_instance = nullptr;
  decltype(&::DnsServiceFreeInstance) free_instance = nullptr;
  decltype(&::DnsServiceBrowse) browse = nullptr;
  decltype(&::DnsServiceBrowseCancel) cancel_browse = nullptr;
  decltype(&::DnsFree) free_records = nullptr;
};

// Null when this machine lacks any of them. Any thread. The functions stay valid for the lifetime
// of the process.
[[nodiscard]] const dns_sd_functions* find_dns_sd() noexcept;

// The computer whose server is announced by the instance `name`. Nothing when `name` is not an
// instance of kServiceType or does not name a computer: anyone on the link can announce anything.
[[nodiscard]] std::optional<std::wstring> announced_computer(std::wstring_view name);

}  // namespace tether
