#include "bench/process.h"

#include "async/errors.h"

#include <psapi.h>  // both need <windows.h> before them
#include <tlhelp32.h>

namespace bench {
namespace {

using ostra::details::check_bool;
using ostra::details::check_file;
using ostra::details::check_pointer;

// The system gives out the lowest values that are free.
constexpr std::size_t kLongestGap = 300;

}  // namespace

std::wstring ProgramFolder() {
  std::wstring path(32768, L'\0');
  path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path.substr(0, path.rfind(L'\\') + 1);
}

Process::Process(std::wstring_view name, std::wstring_view arguments) {
  std::wstring command = L'"' + ProgramFolder() + std::wstring(name) + L".exe\" ";
  command += arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  check_bool(::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW,
                              nullptr, nullptr, &startup, &process));
  ::CloseHandle(process.hThread);
  process_.reset(process.hProcess);
}

Process::~Process() {
  if (Runs() && ::TerminateProcess(process_.get(), 1))
    WaitForEnd();
}

void Process::WaitForEnd() const {
  ::WaitForSingleObject(process_.get(), INFINITE);
}

void Process::SendCtrlC() const {
  const FARPROC routine = ::GetProcAddress(::GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine");
  const auto start = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(routine));
  const Tamrin::unique_handle thread(
      check_pointer(::CreateRemoteThread(process_.get(), nullptr, 0, start, nullptr, 0, nullptr)));
}

bool Process::Runs() const {
  return ::WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT;
}

std::size_t Process::PrivateBytes() const {
  PROCESS_MEMORY_COUNTERS counters = {};
  check_bool(::K32GetProcessMemoryInfo(process_.get(), &counters, sizeof counters));
  return counters.PagefileUsage;
}

std::size_t Process::Handles() const {
  std::size_t count = 0, missed = 0;
  for (std::size_t value = 4; missed < kLongestGap; value += 4, ++missed) {
    HANDLE copy = nullptr;
    // The value of a handle of another process is a number in the form of a pointer.
    if (::DuplicateHandle(process_.get(), reinterpret_cast<HANDLE>(value), ::GetCurrentProcess(),
                          &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
      ::CloseHandle(copy);
      ++count;
      missed = 0;
    }
  }
  return count;
}

std::size_t Process::Threads() const {
  const Tamrin::unique_file snapshot(check_file(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0)));
  const DWORD id = ::GetProcessId(process_.get());
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof entry;
  std::size_t count = 0;
  for (BOOL more = ::Thread32First(snapshot.get(), &entry); more;
       more = ::Thread32Next(snapshot.get(), &entry)) {
    count += entry.th32OwnerProcessID == id ? 1u : 0u;
  }
  return count;
}

}  // namespace bench
