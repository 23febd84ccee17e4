#include "tests/support/program.h"

#include <atomic>
#include <vector>

namespace system_test {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr std::size_t kHighestHandle = 0x1000;

std::wstring TemporaryPath() {
  static std::atomic<unsigned> serial = 0;
  wchar_t folder[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, folder);
  return std::wstring(folder) + L"system_test_" + std::to_wstring(::GetCurrentProcessId()) + L"_" +
         std::to_wstring(++serial);
}

// Programs and tests are built in sibling folders: ...\bin\NAME.exe and ...\tests\system_test.exe.
std::wstring ProgramPath(std::wstring_view name) {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder = path;
  for (int level = 0; level < 2; ++level)
    folder.resize(folder.rfind(L'\\'));
  return folder + LR"(\bin\)" + std::wstring(name) + L".exe";
}

Tamrin::unique_file CreateInheritable(const TemporaryFile& file) {
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  return Tamrin::unique_file(::CreateFileW(file.path.c_str(), GENERIC_WRITE, kShareAll,
                                           &inheritable, CREATE_ALWAYS, 0, nullptr));
}

std::wstring Decode(const std::string& bytes) {
  const auto size = static_cast<int>(bytes.size());
  std::wstring text(bytes.size(), L'\0');
  const int length =
      ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), size, text.data(), size);
  Require(length != 0 || bytes.empty(), "reading what a program has printed as UTF-8");
  text.resize(static_cast<std::size_t>(length));
  std::erase(text, L'\r');
  return text;
}

}  // namespace

TemporaryFile::TemporaryFile() : path(TemporaryPath()) {
  ::DeleteFileW(path.c_str());
}

std::string TemporaryFile::Content() const {
  const Tamrin::unique_file file(
      ::CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
  std::string content(file ? ::GetFileSize(file.get(), nullptr) : 0, '\0');
  const auto room = static_cast<DWORD>(content.size());
  DWORD size = 0;
  Require(!file || ::ReadFile(file.get(), content.data(), room, &size, nullptr), "reading a file");
  content.resize(size);
  return content;
}

Program::Program(std::wstring_view name, std::wstring_view arguments) {
  const auto output = CreateInheritable(output_), errors = CreateInheritable(errors_);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output.get();
  startup.hStdError = errors.get();
  std::wstring command = L'"' + ProgramPath(name) + L"\" " + std::wstring(arguments);
  PROCESS_INFORMATION process = {};
  Require(::CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                           nullptr, nullptr, &startup, &process),
          "CreateProcessW");
  ::CloseHandle(process.hThread);
  process_.reset(process.hProcess);
}

Program::~Program() {
  if (Runs() && ::TerminateProcess(process_.get(), 1))
    ::WaitForSingleObject(process_.get(), kPatience);
}

std::wstring Program::Output() const {
  return Decode(output_.Content());
}

std::wstring Program::Errors() const {
  return Decode(errors_.Content());
}

bool Program::Prints(std::wstring_view text) const {
  const auto printed = [&] {
    return Output().find(text) != std::wstring::npos || Errors().find(text) != std::wstring::npos;
  };
  Eventually([&] { return printed() || !Runs(); });
  return printed();
}

bool Program::Runs() const {
  return ::WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT;
}

DWORD Program::ExitCode(DWORD milliseconds) const {
  DWORD code = 0;
  Require(::WaitForSingleObject(process_.get(), milliseconds) == WAIT_OBJECT_0 &&
              ::GetExitCodeProcess(process_.get(), &code),
          "waiting for a program to end");
  return code;
}

// Wine's own figures for another process leave out memory that has not been touched.
std::size_t Program::CommittedMemory() const {
  std::size_t size = 0;
  MEMORY_BASIC_INFORMATION region = {};
  for (const std::byte* next = nullptr;
       ::VirtualQueryEx(process_.get(), next, &region, sizeof region) != 0;
       next = static_cast<const std::byte*>(region.BaseAddress) + region.RegionSize)
    size += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize : 0;
  return size;
}

// Wine's GetProcessHandleCount always reports 0, so every possible handle value is tried.
std::size_t Program::HandleCount() const {
  std::size_t count = 0;
  for (std::size_t value = 4; value < kHighestHandle; value += 4) {
    HANDLE copy = nullptr;
    // A handle value in another process is a number, although its type is a pointer.
    if (::DuplicateHandle(process_.get(), reinterpret_cast<HANDLE>(value), ::GetCurrentProcess(),
                          &copy, 0, FALSE, DUPLICATE_SAME_ACCESS) &&
        ::CloseHandle(copy))
      ++count;
  }
  return count;
}

// The console delivers an event by starting a thread of the process at this routine.
// GenerateConsoleCtrlEvent would ask the console to do so, but Wine's supports Ctrl+C only and
// would reach this process as well. All threads are created before the first one runs, since none
// can be created in a process that is ending.
void Program::SendConsoleEvent(DWORD event, int times) const {
  const FARPROC routine = ::GetProcAddress(::GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine");
  const auto start = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(routine));
  void* const argument = reinterpret_cast<void*>(static_cast<ULONG_PTR>(event));
  std::vector<Tamrin::unique_handle> threads;
  for (; times != 0; --times)
    threads.emplace_back(::CreateRemoteThread(process_.get(), nullptr, 0, start, argument,
                                              CREATE_SUSPENDED, nullptr));
  for (const auto& thread : threads)
    ::ResumeThread(thread.get());
}

CompletedRun::CompletedRun(std::wstring_view name, std::wstring_view arguments) {
  const Program program(name, arguments);
  exit_code = program.ExitCode();
  output = program.Output();
  errors = program.Errors();
}

}  // namespace system_test
