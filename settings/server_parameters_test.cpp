#include "settings/server_parameters.h"

#include <gtest/gtest.h>

#include "settings/test_support.h"

namespace Tamrin::setman {
namespace {

using numbers = std::vector<std::uint32_t>;

constexpr HRESULT kEndOfFile = static_cast<HRESULT>(0x80070026);
constexpr HRESULT kInvalidData = static_cast<HRESULT>(0x8007000D);

// A stream that takes or gives only so many bytes before it stops or fails.
class limited_stream final : public IStream {
 public:
  limited_stream(ULONG limit, HRESULT after) : limit_(limit), after_(after) {}

  HRESULT STDMETHODCALLTYPE Write(const void*, ULONG size, ULONG* written) override {
    *written = std::min(size, limit_);
    limit_ -= *written;
    return *written == size ? S_OK : after_;
  }
  HRESULT STDMETHODCALLTYPE Read(void*, ULONG, ULONG*) override { return after_; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER, DWORD, ULARGE_INTEGER*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*,
                                   ULARGE_INTEGER*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Revert() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Stat(STATSTG*, DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_NOTIMPL; }

 private:
  ULONG limit_;
  HRESULT after_;
};

// A folder in which nothing works but the stream that it was given, if any.
class one_stream_folder final : public abstract_folder {
 public:
  explicit one_stream_folder(IStream* stream) : stream_(stream) {}

  std::shared_ptr<abstract_folder> open_subfolder(const std::wstring&) override { return nullptr; }
  bool write_string(const std::wstring&, std::wstring_view) override { return false; }
  bool write_value(const std::wstring&, const void*, std::size_t) override { return false; }
  std::optional<std::wstring> read_string(const std::wstring&) override { return std::nullopt; }
  bool read_value(const std::wstring&, void*, std::size_t) override { return false; }
  unique_stream open_stream(const std::wstring&, DWORD) override { return unique_stream(stream_); }
  bool delete_folder() override { return false; }
  bool delete_value(const std::wstring&) override { return false; }
  std::vector<std::wstring> value_names() override { return {}; }
  std::vector<std::wstring> subfolder_names() override { return {}; }
  bool has_value(const std::wstring& name) override {
    return stream_ != nullptr && name == kSharedPortsName;
  }

 private:
  IStream* stream_;
};

TEST(ServerParameters, KeyNameHasAMinorVersionOfTwoDigits) {
  EXPECT_EQ(parameters_key(3, 5), L"Software\\Quorvane\\Tarnwheel Server 3.05");
  EXPECT_EQ(parameters_key(10, 12), L"Software\\Quorvane\\Tarnwheel Server 10.12");
  EXPECT_EQ(parameters_key(1, 123), L"Software\\Quorvane\\Tarnwheel Server 1.123");
}

TEST(ServerParameters, ComeBackFromMemoryAndFromTheRegistry) {
  const std::shared_ptr<file_storage> memory = test::memory_folder();
  const test::registry_folder registry;
  for (abstract_folder* folder : {static_cast<abstract_folder*>(memory.get()), &*registry}) {
    // Somebody else's, and in an enumeration before ours.
    EXPECT_TRUE(folder->write_string(std::wstring(16383, L'a'), L"long"));
    const server_parameters written{L"D:(A;;GA;;;WD)", false, {3, 5, 0x12345678}};
    EXPECT_EQ(write_server_parameters(*folder, written), S_OK);
    server_parameters read;
    EXPECT_EQ(read_server_parameters(*folder, read), S_OK);
    EXPECT_EQ(read, written);
    EXPECT_EQ(test::read_stream(*folder, L"SharedPorts"),
              (test::bytes{3, 0, 0, 0, 3, 0, 0, 0, 5, 0, 0, 0, 0x78, 0x56, 0x34, 0x12}));

    const server_parameters defaults;
    EXPECT_EQ(write_server_parameters(*folder, defaults), S_OK);
    EXPECT_EQ(read_server_parameters(*folder, read), S_OK);
    EXPECT_EQ(read, defaults);
    EXPECT_EQ(test::read_stream(*folder, L"SharedPorts"), test::bytes(4, 0));

    const server_parameters many{L"D:", true, numbers(1000, 7)};
    EXPECT_EQ(write_server_parameters(*folder, many), S_OK);
    EXPECT_EQ(read_server_parameters(*folder, read), S_OK);
    EXPECT_EQ(read, many);
  }
}

TEST(ServerParameters, MissingOnesHaveDefaults) {
  one_stream_folder folder(nullptr);
  server_parameters read{L"D:", false, {1}};
  EXPECT_EQ(read_server_parameters(folder, read), S_OK);
  EXPECT_EQ(read, server_parameters());
  EXPECT_EQ(read.security_descriptor, L"D:(A;;0xc0100004;;;SU)(A;;0xc0100000;;;WD)");
  EXPECT_EQ(write_server_parameters(folder, server_parameters()), S_OK);
}

TEST(ServerParameters, ValuesOfAnotherTypeAreRefusedNotReplacedByDefaults) {
  const std::uint32_t number = 0;
  for (int row = 0; row < 6; ++row) {
    const std::shared_ptr<file_storage> memory = test::memory_folder();
    const test::registry_folder registry;
    for (abstract_folder* folder : {static_cast<abstract_folder*>(memory.get()), &*registry}) {
      switch (row) {
        case 0:
          folder->write_value(L"SecurityDescriptor", &number, sizeof number);
          break;
        case 1:
          test::write_stream(*folder, L"SecurityDescriptor", {'D', 0, ':', 0});
          break;
        case 2:
          folder->write_string(L"AutoDiscovery", L"0");
          break;
        case 3:
          test::write_stream(*folder, L"AutoDiscovery", {0, 0, 0});
          break;
        case 4:
          folder->write_string(L"sharedports", L"3,5");
          break;
        case 5:
          folder->write_value(L"SharedPorts", &number, sizeof number);
          break;
      }
      server_parameters read;
      EXPECT_TRUE(FAILED(read_server_parameters(*folder, read))) << row;
      EXPECT_EQ(read, server_parameters());
    }
  }
}

TEST(ServerParameters, DamagedPortListsAreRefused) {
  const struct {
    test::bytes stored;
    HRESULT expected;
    numbers ports;
  } rows[] = {
      {{}, kEndOfFile, {}},
      {{0, 0, 0, 0}, S_OK, {}},
      {{2, 0, 0, 0, 9, 0, 0, 0, 7, 0, 0, 0}, S_OK, {7, 9}},
      {{1, 0}, kEndOfFile, {}},
      {{1, 0, 0, 0}, kEndOfFile, {}},
      {{2, 0, 0, 0, 9, 0, 0, 0, 7, 0, 0}, kEndOfFile, {}},
      {{0xFF, 0xFF, 0xFF, 0xFF, 9, 0, 0, 0}, kEndOfFile, {}},
      {{1, 0, 0, 0, 9, 0, 0, 0, 7}, kInvalidData, {}},
      {{0, 0, 0, 0, 9, 0, 0, 0}, kInvalidData, {}},
  };
  for (const auto& row : rows) {
    const std::shared_ptr<file_storage> folder = test::memory_folder();
    test::write_stream(*folder, L"SharedPorts", row.stored);
    const numbers before = {42};
    server_parameters read{L"", false, before};
    EXPECT_EQ(read_server_parameters(*folder, read), row.expected);
    EXPECT_EQ(read.shared_ports, row.expected == S_OK ? row.ports : before);
  }
}

TEST(ServerParameters, StreamErrorsAndShortWritesAreReported) {
  server_parameters parameters;
  parameters.shared_ports = {3, 5};
  for (const ULONG limit : {0u, 3u, 4u, 11u, 12u}) {
    limited_stream full(limit, S_OK);
    limited_stream failing(limit, STG_E_MEDIUMFULL);
    one_stream_folder full_folder(&full);
    one_stream_folder failing_folder(&failing);
    EXPECT_EQ(write_server_parameters(full_folder, parameters), limit == 12 ? S_OK : kEndOfFile);
    EXPECT_EQ(write_server_parameters(failing_folder, parameters),
              limit == 12 ? S_OK : STG_E_MEDIUMFULL);
  }
  limited_stream unreadable(0, STG_E_READFAULT);
  one_stream_folder folder(&unreadable);
  server_parameters read;
  EXPECT_EQ(read_server_parameters(folder, read), STG_E_READFAULT);
}

}  // namespace
}  // namespace Tamrin::setman
