// DNS-based service discovery (DNS-SD) on the local link, as Windows' own responder does it:
// servers are announced and found without a socket of this program's.
//
// Windows calls back on threads of its own, also once after a request has been cancelled. So
// whatever it has been given a pointer to, a request or its context, is never destroyed; a process
// makes one of each kind.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/win32.h"
// Behind <windows.h>.
#include <windns.h>

namespace tether {

// The type of the service. A server's instance of it is named "<computer>.<type>".
inline constexpr wchar_t kServiceType[] = L"_tarnwheel._tcp.local";

// What the functions that start a request return when they have started it.
inline constexpr DWORD kDnsRequestPending = 9506;  // DNS_REQUEST_PENDING

// The functions of dnsapi.dll. Versions of Windows before 1809 of Windows 10 lack them, so they are
// looked for at run time.
struct dns_sd_functions {
  decltype(&::DnsServiceRegister) register_instance = nullptr;
  decltype(&::DnsServiceRegisterCancel) cancel_registration = nullptr;
  decltype(&::DnsServiceDeRegister) deregister_instance = nullptr;
  decltype(&::DnsServiceFreeInstance) free_instance = nullptr;
  decltype(&::DnsServiceBrowse) browse = nullptr;
  decltype(&::DnsServiceBrowseCancel) cancel_browse = nullptr;
  decltype(&::DnsFree) free_records = nullptr;
};

// Null when this machine lacks any of them. Any thread; they stay valid as long as the process
// runs.
[[nodiscard]] const dns_sd_functions* find_dns_sd() noexcept;

// The computer whose server the instance `name` announces. Nothing when it is no instance of
// kServiceType, or is not named for a computer: anybody on the link may announce what he likes.
[[nodiscard]] std::optional<std::wstring> announced_computer(std::wstring_view name);

}  // namespace tether
