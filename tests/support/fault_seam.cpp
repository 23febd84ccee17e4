// Linked into a program, makes the Windows functions that it imports, and its memory allocation,
// fail on a test's order. The program's own code is the one that is shipped: what changes is its
// import table, before its main function begins.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include "platform/win32.h"
#include "tests/support/fault_board.h"

#include <setupapi.h>  // needs <windows.h> before it

namespace system_test {
namespace {

// Allocations come before the board is there.
FaultBoard* board = nullptr;

// Says whether the call at this point that is going on is the one that must fail.
bool Fails(std::int32_t point) noexcept {
  if (board == nullptr || board->point != point || --board->countdown != 0)
    return false;
  ++board->failures;
  return true;
}

// False when the call is to block instead; it goes on after that.
bool ShallFail(std::int32_t point) noexcept {
  if (board->error != 0)
    return true;
  while (board->point == point)
    ::Sleep(10);
  return false;
}

void CountBlocks(int added) noexcept {
  if (board != nullptr)
    board->live_blocks += added;
}

std::int32_t AddPoint(const char* name) {
  static std::int32_t count = 0;
  std::strncpy(board->names.at(static_cast<std::size_t>(count)).data(), name,
               board->names[0].size() - 1);
  return count++;
}

// Exchanges the pointer through which this program calls `name` for `replacement`; gives the former
// one. The program must import it.
void* ExchangeImport(const char* name, void* replacement) {
  auto* const base = reinterpret_cast<std::byte*>(::GetModuleHandleW(nullptr));
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* const nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const auto& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  const auto* dll =
      reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
  for (; dll->Name != 0; ++dll) {
    const auto* names = reinterpret_cast<const ULONGLONG*>(base + dll->OriginalFirstThunk);
    auto* slot = reinterpret_cast<void**>(base + dll->FirstThunk);
    for (; *names != 0; ++names, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL64(*names))
        continue;
      const auto* const imported = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + *names);
      if (std::strcmp(imported->Name, name) != 0)
        continue;
      DWORD protection = 0;
      ::VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection);
      void* const former = std::exchange(*slot, replacement);
      ::VirtualProtect(slot, sizeof *slot, protection, &protection);
      return former;
    }
  }
  std::fprintf(stderr, "%s is not imported\n", name);
  std::abort();
}

// One imported function; Tag makes each a type of its own.
template <class Tag, class Result, class... Arguments>
struct Import {
  using Function = Result(WINAPI*)(Arguments...);

  static Result WINAPI Call(Arguments... arguments) {
    if (!Fails(point) || !ShallFail(point))
      return original(arguments...);
    ::SetLastError(board->error);
    return failure;
  }

  static inline Function original = nullptr;
  static inline Result failure = {};
  static inline std::int32_t point = 0;
};

template <class Tag, class Result, class... Arguments>
void Intercept(const char* name, Result(WINAPI*)(Arguments...), Result failure) {
  using This = Import<Tag, Result, Arguments...>;
  This::failure = failure;
  This::point = AddPoint(name);
  void* const former = ExchangeImport(name, reinterpret_cast<void*>(&This::Call));
  This::original = reinterpret_cast<typename This::Function>(former);
}

#define TARNWHEEL_INTERCEPT(function, failure) \
  Intercept<struct Tag_##function>(#function, &::function, failure)

const DWORD prepared = ::TlsAlloc();  // not null on threads that PrepareThread has seen

// Gives the first exception of a thread the memory that the runtime library has to have for it:
// without that it ends the process. That memory comes from malloc itself.
void PrepareThread() noexcept {
  if (::TlsGetValue(prepared) != nullptr)
    return;
  ::TlsSetValue(prepared, board);
  static_cast<void>(std::uncaught_exceptions());
}

struct Tag_CloseHandle;

// Only of a device's handle: others are closed all the time.
BOOL WINAPI CloseDevice(HANDLE handle) {
  using Close = Import<Tag_CloseHandle, BOOL, HANDLE>;
  return ::GetFileType(handle) == FILE_TYPE_CHAR ? Close::Call(handle) : Close::original(handle);
}

std::int32_t new_point = kNoFault;
std::int32_t malloc_point = kNoFault;
decltype(&std::malloc) original_malloc = nullptr;
decltype(&std::realloc) original_realloc = nullptr;
decltype(&std::free) original_free = nullptr;

void* CountedMalloc(std::size_t size) {
  PrepareThread();
  if (Fails(malloc_point))
    return nullptr;
  CountBlocks(1);
  return original_malloc(size);
}

void* CountedRealloc(void* block, std::size_t size) {
  PrepareThread();
  if (Fails(malloc_point))
    return nullptr;
  void* const moved = original_realloc(block, size);
  CountBlocks(block == nullptr && moved != nullptr ? 1 : 0);
  return moved;
}

void CountedFree(void* block) {
  if (block != nullptr)
    CountBlocks(-1);
  original_free(block);
}

void InterceptEverything() {
  TARNWHEEL_INTERCEPT(CreateNamedPipeW, INVALID_HANDLE_VALUE);
  TARNWHEEL_INTERCEPT(ConnectNamedPipe, FALSE);
  TARNWHEEL_INTERCEPT(CreateFileW, INVALID_HANDLE_VALUE);
  TARNWHEEL_INTERCEPT(SetFileCompletionNotificationModes, FALSE);
  TARNWHEEL_INTERCEPT(ReadFile, FALSE);
  TARNWHEEL_INTERCEPT(WriteFile, FALSE);
  TARNWHEEL_INTERCEPT(DeviceIoControl, FALSE);
  TARNWHEEL_INTERCEPT(CancelIoEx, FALSE);
  TARNWHEEL_INTERCEPT(CreateThreadpoolIo, static_cast<PTP_IO>(nullptr));
  TARNWHEEL_INTERCEPT(TrySubmitThreadpoolCallback, FALSE);
  TARNWHEEL_INTERCEPT(ImpersonateNamedPipeClient, FALSE);
  TARNWHEEL_INTERCEPT(OpenThreadToken, FALSE);
  TARNWHEEL_INTERCEPT(GetTokenInformation, FALSE);
  TARNWHEEL_INTERCEPT(CopySid, FALSE);
  TARNWHEEL_INTERCEPT(LookupAccountSidW, FALSE);
  TARNWHEEL_INTERCEPT(SetupDiGetClassDevsExW, INVALID_HANDLE_VALUE);
  TARNWHEEL_INTERCEPT(SetupDiEnumDeviceInfo, FALSE);
  TARNWHEEL_INTERCEPT(SetupDiOpenDevRegKey, static_cast<HKEY>(INVALID_HANDLE_VALUE));
  TARNWHEEL_INTERCEPT(SetupDiGetDeviceRegistryPropertyW, FALSE);
  TARNWHEEL_INTERCEPT(RegQueryValueExW, static_cast<LSTATUS>(ERROR_NO_SYSTEM_RESOURCES));
  TARNWHEEL_INTERCEPT(CloseHandle, FALSE);
  ExchangeImport("CloseHandle", reinterpret_cast<void*>(&CloseDevice));
  malloc_point = AddPoint("malloc");
  original_free = reinterpret_cast<decltype(&std::free)>(
      ExchangeImport("free", reinterpret_cast<void*>(&CountedFree)));
  original_malloc = reinterpret_cast<decltype(&std::malloc)>(
      ExchangeImport("malloc", reinterpret_cast<void*>(&CountedMalloc)));
  original_realloc = reinterpret_cast<decltype(&std::realloc)>(
      ExchangeImport("realloc", reinterpret_cast<void*>(&CountedRealloc)));
  new_point = AddPoint("operator new");
}

FaultBoard* OpenBoard() {
  const auto name = FaultBoardName(::GetCurrentProcessId());
  // Lives as long as the process.
  const HANDLE section = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                              sizeof(FaultBoard), name.c_str());
  return static_cast<FaultBoard*>(::MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
}

// Before main.
[[maybe_unused]] const bool installed = [] {
  FaultBoard* const opened = OpenBoard();
  opened->point = kNoFault;
  opened->error = ERROR_NO_SYSTEM_RESOURCES;
  board = opened;
  InterceptEverything();
  opened->points = static_cast<std::uint32_t>(new_point) + 1;
  return true;
}();

}  // namespace
}  // namespace system_test

// The library's own would call malloc, and so count as both points.
void* operator new(std::size_t size) {
  if (system_test::Fails(system_test::new_point))
    throw std::bad_alloc();
  void* const block = ::HeapAlloc(::GetProcessHeap(), 0, size);
  if (block == nullptr)
    throw std::bad_alloc();
  system_test::CountBlocks(1);
  return block;
}

void operator delete(void* block) noexcept {
  if (block == nullptr)
    return;
  system_test::CountBlocks(-1);
  ::HeapFree(::GetProcessHeap(), 0, block);
}

void operator delete(void* block, std::size_t) noexcept {
  ::operator delete(block);
}
