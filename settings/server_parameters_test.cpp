#include "settings/server_parameters.h"

#include <gtest/gtest.h>

#include <functional>

#include "settings/test_support.h"

namespace Tamrin::setman {
namespace {

using numbers = std::vector<std::uint32_t>;

constexpr HRESULT kEndOfFile = static_cast<HRESULT>(0x80070026);
constexpr HRESULT kInvalidData = static_cast<HRESULT>(0x8007000D);

TEST(ServerParameters, KeyNameHasAMinorVersionOfTwoDigits) {
  EXPECT_EQ(parameters_key(3, 5), L"Software\\Quorvane\\Tarnwheel Server 3.05");
  EXPECT_EQ(parameters_key(10, 123), L"Software\\Quorvane\\Tarnwheel Server 10.123");
}

TEST(ServerParameters, ComeBackFromMemoryAndFromTheRegistry) {
  const std::shared_ptr<file_storage> memory = test::memory_folder();
  const test::registry_folder registry;
  for (abstract_folder* folder : {static_cast<abstract_folder*>(memory.get()), &*registry}) {
    const server_parameters rows[] = {
        {L"D:(A;;GA;;;WD)", false, {3, 5, 0x12345678}}, {}, {L"D:", true, numbers(1000, 7)}};
    server_parameters read{L"x", false, {1}};
    EXPECT_EQ(read_server_parameters(*folder, read), S_OK);
    EXPECT_EQ(read, server_parameters()) << "where all are missing";
    for (const server_parameters& written : rows) {
      EXPECT_EQ(write_server_parameters(*folder, written), S_OK);
      EXPECT_EQ(read_server_parameters(*folder, read), S_OK);
      EXPECT_EQ(read, written);
    }
  }
}

TEST(ServerParameters, ValuesOfAnotherTypeAreRefusedNotReplacedByDefaults) {
  const std::uint32_t number = 0;
  const std::function<void(abstract_folder&)> rows[] = {
      [&](auto& folder) { folder.write_value(L"SecurityDescriptor", &number, sizeof number); },
      [](auto& folder) {
        test::write_stream(folder, L"SecurityDescriptor", {'D', 0, ':', 0});
      },
      [](auto& folder) { folder.write_string(L"AutoDiscovery", L"0"); },
      [](auto& folder) {
        test::write_stream(folder, L"AutoDiscovery", {0, 0, 0});
      },
      [](auto& folder) { folder.write_string(L"sharedports", L"3,5"); },
      [&](auto& folder) { folder.write_value(L"SharedPorts", &number, sizeof number); },
  };
  for (const auto& write : rows) {
    const std::shared_ptr<file_storage> memory = test::memory_folder();
    const test::registry_folder registry;
    for (abstract_folder* folder : {static_cast<abstract_folder*>(memory.get()), &*registry}) {
      write(*folder);
      server_parameters read;
      EXPECT_TRUE(FAILED(read_server_parameters(*folder, read))) << &write - rows;
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
      {{2, 0, 0, 0, 9, 0, 0, 0, 7, 0, 0, 0}, S_OK, {7, 9}},
      {{1, 0}, kEndOfFile, {}},
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

}  // namespace
}  // namespace Tamrin::setman
