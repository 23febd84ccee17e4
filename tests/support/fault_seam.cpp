// Linked into a program, makes the Windows functions that it imports, and its memory allocation,
// fail when a test says so. The program's own code is the code that is shipped: only its import
// table is changed, before its main function begins.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "platform/win32.h"
#include "tests/support/fault_board.h"

namespace system_test {
namespace {

// Null for the first allocations, which come before the board exists.
FaultBoard* board = nullptr;

// Counts a call at `point`; true if it must fail. A call that is to block is held here first.
bool Fails(int point) noexcept {
  if (board == nullptr || board->point != point || --board->countdown != 0)
    return false;
  ++board->failures;
  while (board->blocks && board->point == point)
    ::Sleep(10);
  return !board->blocks;
}

// On x64 every argument of these functions takes one register or stack slot, and surplus arguments
// do no harm, so one signature serves all of them.
using Word = std::intptr_t;
using Function = Word(WINAPI*)(Word, Word, Word, Word, Word, Word, Word, Word);
Function originals[kOperatorNew] = {};

template <int Point>
Word WINAPI Call(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h) {
  // Only device handles count: others are closed all the time.
  const bool counts =
      Point != kCloseHandle || ::GetFileType(reinterpret_cast<HANDLE>(a)) == FILE_TYPE_CHAR;
  if (!counts || !Fails(Point))
    return originals[Point](a, b, c, d, e, f, g, h);
  ::SetLastError(ERROR_NO_SYSTEM_RESOURCES);
  return Point < kHandleFunctions    ? reinterpret_cast<Word>(INVALID_HANDLE_VALUE)
         : Point == kHandleFunctions ? ERROR_NO_SYSTEM_RESOURCES
                                     : 0;
}

// The import table's pointer to `name`, which the program must import.
void** ImportOf(const char* name) {
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
      const auto* const imported = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + *names);
      if (!IMAGE_SNAP_BY_ORDINAL64(*names) && std::strcmp(imported->Name, name) == 0)
        return slot;
    }
  }
  std::fprintf(stderr, "%s is not imported\n", name);
  std::abort();
}

template <int... Points>
void InterceptAll(std::integer_sequence<int, Points...>) {
  const Function replacements[] = {&Call<Points>...};
  for (int point = 0; point < kOperatorNew; ++point) {
    void** const slot = ImportOf(kFaultPoints[point]);
    DWORD protection = 0;
    originals[point] = reinterpret_cast<Function>(*slot);
    ::VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection);
    *slot = reinterpret_cast<void*>(replacements[point]);
    ::VirtualProtect(slot, sizeof *slot, protection, &protection);
  }
}

// Runs before main. The section lives as long as the process.
[[maybe_unused]] const bool installed = [] {
  const auto name = FaultBoardName(::GetCurrentProcessId());
  const HANDLE section = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                              sizeof(FaultBoard), name.c_str());
  void* const view = ::MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0);
  auto* const opened = static_cast<FaultBoard*>(view);
  opened->point = kNoFault;
  board = opened;
  InterceptAll(std::make_integer_sequence<int, kOperatorNew>());
  return true;
}();

}  // namespace
}  // namespace system_test

void* operator new(std::size_t size) {
  void* const block = system_test::Fails(system_test::kOperatorNew) ? nullptr : std::malloc(size);
  if (block == nullptr)
    throw std::bad_alloc();
  if (system_test::board != nullptr)
    ++system_test::board->live_blocks;
  return block;
}

void operator delete(void* block) noexcept {
  if (block != nullptr && system_test::board != nullptr)
    --system_test::board->live_blocks;
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  ::operator delete(block);
}
