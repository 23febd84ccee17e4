// A stand-in for the part of Windows' dnsapi.dll that announces and finds services. Callbacks run
// on threads of its own, even after a cancellation, as documented.
#include <atomic>
#include <cwchar>
#include <thread>

#include "tests/support/dnsapi/dns_board.h"
// After <windows.h>.
#include <windns.h>

namespace {

using system_test::DnsBoard;

constexpr DWORD kPending = 9506;

// Set when the request whose DNS_SERVICE_CANCEL points to it is cancelled.
using Cancelled = std::atomic<bool>;

DnsBoard& Board() {
  static DnsBoard* const board = [] {
    const HANDLE section = ::OpenFileMappingW(FILE_MAP_WRITE, FALSE, system_test::kDnsBoardName);
    return static_cast<DnsBoard*>(::MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, sizeof(DnsBoard)));
  }();
  return *board;
}

// Processes the request on a thread of its own, unless the test has set a refusal.
template <class Request>
DWORD Start(void (*work)(const Request&, const Cancelled&), const Request& request,
            DNS_SERVICE_CANCEL* cancel) {
  if (const DWORD refusal = Board().refusal; refusal != 0)
    return refusal;
  auto* const cancelled = new Cancelled(false);
  if (cancel != nullptr)
    cancel->reserved = cancelled;
  std::thread([=, copy = request] { work(copy, *cancelled); }).detach();
  return kPending;
}

void Complete(const DNS_SERVICE_REGISTER_REQUEST& request, DWORD status) {
  ++Board().unfreed;
  request.pRegisterCompletionCallback(status, request.pQueryContext,
                                      new DNS_SERVICE_INSTANCE(*request.pServiceInstance));
}

void Register(const DNS_SERVICE_REGISTER_REQUEST& request, const Cancelled& cancelled) {
  ::Sleep(Board().delay);
  if (cancelled)
    return Complete(request, ERROR_CANCELLED);
  const auto& instance = *request.pServiceInstance;
  std::swprintf(Board().instance, std::size(Board().instance), L"%ls %ls %u %ls=%ls %ls=%ls",
                instance.pszInstanceName, instance.pszHostName, instance.wPort, instance.keys[0],
                instance.values[0], instance.keys[1], instance.values[1]);
  Board().is_announced = true;
  Complete(request, ERROR_SUCCESS);
}

void Withdraw(const DNS_SERVICE_REGISTER_REQUEST& request, const Cancelled&) {
  ::Sleep(Board().delay);
  Complete(request, ERROR_SUCCESS);
}

// Reports an instance to the program. A record that comes after a cancellation is not counted:
// the program may end before it frees it.
void Tell(const DNS_SERVICE_BROWSE_REQUEST& request, const wchar_t* instance, bool counts = true) {
  auto* const record = new DNS_RECORD();
  record->dwReserved = counts ? 1 : 0;
  Board().unfreed += counts ? 1 : 0;
  record->wType = DNS_TYPE_PTR;
  record->dwTtl = 120;
  record->Data.PTR.pNameHost = const_cast<wchar_t*>(instance);
  request.pBrowseCallback(ERROR_SUCCESS, request.pQueryContext, record);
}

void Browse(const DNS_SERVICE_BROWSE_REQUEST& request, const Cancelled& cancelled) {
  for (const auto* instance : Board().others)
    Tell(request, instance);
  const std::wstring registered = Board().instance;
  if (Board().is_announced)
    Tell(request, registered.substr(0, registered.find(L' ')).c_str());
  while (!cancelled)
    ::Sleep(1);
  ::Sleep(Board().delay);
  Tell(request, L"late._tarnwheel._tcp.local", false);
  request.pBrowseCallback(ERROR_CANCELLED, request.pQueryContext, nullptr);
}

DWORD Cancel(const DNS_SERVICE_CANCEL* cancel) {
  *static_cast<Cancelled*>(cancel->reserved) = true;
  return ERROR_SUCCESS;
}

}  // namespace

extern "C" {

DWORD WINAPI DnsServiceRegister(DNS_SERVICE_REGISTER_REQUEST* request, DNS_SERVICE_CANCEL* cancel) {
  return Start(&Register, *request, cancel);
}

DWORD WINAPI DnsServiceRegisterCancel(DNS_SERVICE_CANCEL* cancel) {
  return Cancel(cancel);
}

DWORD WINAPI DnsServiceDeRegister(DNS_SERVICE_REGISTER_REQUEST* request, DNS_SERVICE_CANCEL*) {
  Board().is_announced = false;
  return Start(&Withdraw, *request, nullptr);
}

void WINAPI DnsServiceFreeInstance(DNS_SERVICE_INSTANCE* instance) {
  --Board().unfreed;
  delete instance;
}

DNS_STATUS WINAPI DnsServiceBrowse(DNS_SERVICE_BROWSE_REQUEST* request,
                                   DNS_SERVICE_CANCEL* cancel) {
  return static_cast<DNS_STATUS>(Start(&Browse, *request, cancel));
}

DNS_STATUS WINAPI DnsServiceBrowseCancel(DNS_SERVICE_CANCEL* cancel) {
  return static_cast<DNS_STATUS>(Cancel(cancel));
}

void WINAPI DnsFree(void* records, DNS_FREE_TYPE) {
  auto* const record = static_cast<DNS_RECORD*>(records);
  Board().unfreed -= static_cast<int>(record->dwReserved);
  delete record;
}

}  // extern "C"
