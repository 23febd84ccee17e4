#include "rpc/dns_sd.h"

#include <type_traits>

#include "platform/name_less.h"
#include "rpc/discovery_datagram.h"

namespace tether {
namespace {

dns_sd_functions load_functions() noexcept {
  dns_sd_functions functions;
  const HMODULE library = ::LoadLibraryExW(L"dnsapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (library == nullptr)
    return functions;
  const auto find = [library](auto& function, const char* name) {
    using any_function = void (*)();
    const auto found = reinterpret_cast<any_function>(::GetProcAddress(library, name));
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(found);
    return function != nullptr;
  };
  const bool complete = find(functions.register_instance, "DnsServiceRegister") &&
                        find(functions.cancel_registration, "DnsServiceRegisterCancel") &&
                        find(functions.deregister_instance, "DnsServiceDeRegister") &&
                        find(functions.free_instance, "DnsServiceFreeInstance") &&
                        find(functions.browse, "DnsServiceBrowse") &&
                        find(functions.cancel_browse, "DnsServiceBrowseCancel") &&
                        find(functions.free_records, "DnsFree");
  return complete ? functions : dns_sd_functions();
}

}  // namespace

const dns_sd_functions* find_dns_sd() noexcept {
  static const dns_sd_functions functions = load_functions();
  return functions.browse == nullptr ? nullptr : &functions;
}

std::optional<std::wstring> announced_computer(std::wstring_view name) {
  const auto computer = name.substr(0, name.find(L'.'));
  name.remove_prefix(computer.size());
  const bool is_instance =
      name.starts_with(L'.') && Tamrin::compare_names(name.substr(1), kServiceType) == CSTR_EQUAL;
  if (!is_instance || !is_computer_name(computer))
    return std::nullopt;
  return std::wstring(computer);
}

}  // namespace tether
