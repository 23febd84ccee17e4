// Shared by the tests of the asynchronous runtime.
#pragma once

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

#include "async/errors.h"
#include "async/future.h"
#include "platform/unique_resource.h"

namespace ostra::test {

// Counts its living copies.
struct counted {
  explicit counted(std::atomic<int>& living) : count(&living) { ++*count; }
  counted(const counted& other) : count(other.count) { ++*count; }
  counted& operator=(const counted&) = delete;
  ~counted() { --*count; }
  std::atomic<int>* count;
};

// True when `condition` holds within five seconds.
template <class Condition>
bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline)
      return false;
    std::this_thread::yield();
  }
  return true;
}

// The code of the hresult_error that `action` throws; S_OK when it throws none.
template <class Action>
HRESULT code_of(Action action) {
  try {
    action();
  } catch (const hresult_error& error) {
    return error.code();
  }
  return S_OK;
}

// A pipe with an overlapped server end and a blocking client end, connected.
struct pipe_pair {
  pipe_pair() {
    static std::atomic<unsigned> serial = 0;
    const auto name = LR"(\\.\pipe\async_test_)" + std::to_wstring(::GetCurrentProcessId()) + L"_" +
                      std::to_wstring(++serial);
    server = Tamrin::unique_file(details::check_file(
        ::CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED, PIPE_TYPE_BYTE,
                           1, 65536, 65536, 0, nullptr)));
    client = Tamrin::unique_file(details::check_file(::CreateFileW(
        name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr)));
  }

  void client_writes(char byte) const {
    DWORD written = 0;
    details::check_bool(::WriteFile(client.get(), &byte, 1, &written, nullptr));
  }

  Tamrin::unique_file server;
  Tamrin::unique_file client;
};

}  // namespace ostra::test
