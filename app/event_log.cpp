#include "app/event_log.h"

#include <array>
#include <string>

#include "app/events.h"
#include "app/executable_path.h"
#include "async/errors.h"
#include "console/system_text.h"
#include "format/format.h"
#include "platform/unique_resource.h"

namespace tarnwheel {
namespace {

constexpr wchar_t kSource[] = L"Tarnwheel Server";
constexpr wchar_t kSourceKey[] =
    LR"(System\CurrentControlSet\Services\EventLog\Application\Tarnwheel Server)";

struct event_source_traits {
  using pointer = HANDLE;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer source) noexcept { ::DeregisterEventSource(source); }
};
using unique_event_source = Tamrin::unique_resource<event_source_traits>;

DWORD set_source_value(const wchar_t* name, DWORD type, const void* data, std::size_t size) {
  return static_cast<DWORD>(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kSourceKey, name, type, data,
                                              static_cast<DWORD>(size)));
}

// The cause of a failure, in other words than the system's where those would not tell it.
std::wstring cause_of(HRESULT code) {
  if (code == ostra::details::to_hresult(ERROR_ALREADY_EXISTS))
    return L"another server runs on this machine, or another program holds the name of its stop "
           L"event";
  if (code == ostra::details::to_hresult(ERROR_INVALID_DATA))
    return L"a value in the key of its parameters is not of the right type or length";
  return console::system_text(code);
}

void report(WORD type, DWORD event, HRESULT code) noexcept {
  try {
    const std::wstring cause = cause_of(code);
    const std::wstring number = tfmt::format(L"{0ub016xp}", code);
    std::array<const wchar_t*, 2> texts = {cause.c_str(), number.c_str()};
    const unique_event_source source(::RegisterEventSourceW(nullptr, kSource));
    ::ReportEventW(source.get(), type, 0, event, nullptr, static_cast<WORD>(texts.size()), 0,
                   texts.data(), nullptr);
  } catch (...) {
    // Out of memory: the entry is dropped.
  }
}

}  // namespace

DWORD register_event_source() {
  constexpr DWORD kTypes = EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE;
  const std::wstring path = executable_path();
  if (path.empty())
    return ::GetLastError();
  const DWORD error = set_source_value(L"EventMessageFile", REG_EXPAND_SZ, path.c_str(),
                                       (path.size() + 1) * sizeof(wchar_t));
  return error != ERROR_SUCCESS
             ? error
             : set_source_value(L"TypesSupported", REG_DWORD, &kTypes, sizeof kTypes);
}

void remove_event_source() noexcept {
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kSourceKey);
}

void report_failed_start(HRESULT code) noexcept {
  report(EVENTLOG_ERROR_TYPE, EVENT_START_FAILED, code);
}

void report_failed_run(HRESULT code) noexcept {
  report(EVENTLOG_ERROR_TYPE, EVENT_RUN_FAILED, code);
}

void report_failed_log(HRESULT code) noexcept {
  report(EVENTLOG_WARNING_TYPE, EVENT_LOG_FAILED, code);
}

}  // namespace tarnwheel
