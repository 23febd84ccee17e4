#include "tests/support/program.h"

#include <vector>

#include <psapi.h>  // needs <windows.h> before it

namespace system_test {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr std::size_t kHighestHandle = 0x1000;

std::wstring TemporaryPath(std::wstring_view extension) {
  static unsigned serial = 0;
  wchar_t folder[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, folder);
  return std::wstring(folder) + L"system_test_" + std::to_wstring(::GetCurrentProcessId()) + L"_" +
         std::to_wstring(++serial) + std::wstring(extension);
}

// Programs and tests are built side by side: ...\bin\NAME.exe and ...\tests\system_test.exe.
std::wstring ProgramPath(std::wstring_view name) {
  std::wstring path(32768, L'\0');
  path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  for (int level = 0; level < 2; ++level)
    path.resize(path.rfind(L'\\'));
  return path + LR"(\bin\)" + std::wstring(name) + L".exe";
}

Tamrin::unique_file CreateInheritable(const std::wstring& path) {
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  Tamrin::unique_file file(::CreateFileW(path.c_str(), GENERIC_WRITE, kShareAll, &inheritable,
                                         CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  Require(static_cast<bool>(file), "creating a file for a program's output");
  return file;
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

TemporaryFile::TemporaryFile(std::wstring_view extension) : path_(TemporaryPath(extension)) {
  ::DeleteFileW(path_.c_str());
}

TemporaryFile::~TemporaryFile() {
  ::DeleteFileW(path_.c_str());
}

std::string TemporaryFile::Content() const {
  const Tamrin::unique_file file(::CreateFileW(path_.c_str(), GENERIC_READ, kShareAll, nullptr,
                                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file)
    return {};
  std::string content(::GetFileSize(file.get(), nullptr), '\0');
  DWORD size = 0;
  Require(
      ::ReadFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &size, nullptr),
      "reading a program's output");
  content.resize(size);
  return content;
}

Program::Program(std::wstring_view name, std::wstring_view arguments, Input input) {
  Tamrin::unique_file reader;
  if (input == Input::kPipe) {
    HANDLE ends[2] = {};
    Require(::CreatePipe(&ends[0], &ends[1], nullptr, 0), "CreatePipe");
    reader.reset(ends[0]);
    input_.reset(ends[1]);
    // The program must not hold the other end, or its input would never end.
    ::SetHandleInformation(ends[0], HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
  }
  Start(L'"' + ProgramPath(name) + L"\" " + std::wstring(arguments),
        reader ? reader.get() : nullptr);
}

Program::~Program() {
  if (Runs() && ::TerminateProcess(process_.get(), 1))
    ::WaitForSingleObject(process_.get(), kPatience);
}

void Program::Start(std::wstring command_line, HANDLE input) {
  const auto output = CreateInheritable(output_.path());
  const auto errors = CreateInheritable(errors_.path());
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = input;
  startup.hStdOutput = output.get();
  startup.hStdError = errors.get();
  PROCESS_INFORMATION process = {};
  Require(::CreateProcessW(nullptr, command_line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                           nullptr, nullptr, &startup, &process),
          "CreateProcessW");
  ::CloseHandle(process.hThread);
  process_.reset(process.hProcess);
}

void Program::Write(std::string_view bytes) const {
  while (!bytes.empty()) {
    DWORD written = 0;
    Require(::WriteFile(input_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written,
                        nullptr),
            "writing to a program's standard input");
    bytes.remove_prefix(written);
  }
}

std::wstring Program::Output() const {
  return Decode(output_.Content());
}

std::wstring Program::Errors() const {
  return Decode(errors_.Content());
}

bool Program::Prints(std::wstring_view text) const {
  const auto printed = [&] { return Output().find(text) != std::wstring::npos; };
  Eventually([&] { return printed() || !Runs(); });
  return printed();
}

bool Program::Complains(std::wstring_view text) const {
  const auto complained = [&] { return Errors().find(text) != std::wstring::npos; };
  Eventually([&] { return complained() || !Runs(); });
  return complained();
}

bool Program::Runs() const {
  return ::WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT;
}

DWORD Program::ExitCode(DWORD milliseconds) const {
  DWORD code = 0;
  Require(::WaitForSingleObject(process_.get(), milliseconds) == WAIT_OBJECT_0 &&
              ::GetExitCodeProcess(process_.get(), &code),
          "waiting for a program's end");
  return code;
}

std::size_t Program::MemoryInUse() const {
  PROCESS_MEMORY_COUNTERS counters = {};
  ::K32GetProcessMemoryInfo(process_.get(), &counters, sizeof counters);
  return counters.PagefileUsage;
}

// Wine's figures for another process leave out what has not been touched.
std::size_t Program::CommittedMemory() const {
  std::size_t size = 0;
  MEMORY_BASIC_INFORMATION region = {};
  for (const std::byte* next = nullptr;
       ::VirtualQueryEx(process_.get(), next, &region, sizeof region) != 0;
       next = static_cast<const std::byte*>(region.BaseAddress) + region.RegionSize) {
    if (region.State == MEM_COMMIT && region.Type == MEM_PRIVATE)
      size += region.RegionSize;
  }
  return size;
}

// Wine's GetProcessHandleCount always says 0, so each possible handle is tried.
std::size_t Program::HandleCount() const {
  std::size_t count = 0;
  for (std::size_t value = 4; value < kHighestHandle; value += 4) {
    HANDLE copy = nullptr;
    // The value of a handle of another process is a number in the form of a pointer.
    if (::DuplicateHandle(process_.get(), reinterpret_cast<HANDLE>(value), ::GetCurrentProcess(),
                          &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
      ::CloseHandle(copy);
      ++count;
    }
  }
  return count;
}

// The console hands its events to a process by a thread at this routine. GenerateConsoleCtrlEvent
// would ask the console to do so, but Wine's knows Ctrl+C only, and reaches this process as well.
// All threads are made before the first one runs: a process that ends takes none.
void Program::SendConsoleEvent(DWORD event, int times) const {
  const FARPROC routine = ::GetProcAddress(::GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine");
  const auto start = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(routine));
  void* const argument = reinterpret_cast<void*>(static_cast<ULONG_PTR>(event));
  std::vector<Tamrin::unique_handle> threads;
  for (; times != 0; --times) {
    threads.emplace_back(::CreateRemoteThread(process_.get(), nullptr, 0, start, argument,
                                              CREATE_SUSPENDED, nullptr));
    Require(static_cast<bool>(threads.back()), "CreateRemoteThread");
  }
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
