#include "settings/server_parameters.h"

#include "settings/test_support.h"

namespace Tamrin::setman {
namespace {

using numbers = std::vector<std::uint32_t>;

TEST_P(AnyFolder, ParametersComeBackAndAreTheDefaultsWhereTheyAreMissing) {
  server_parameters read{L"x", false, {1}};
  EXPECT_EQ(read_server_parameters(*folder_, read), S_OK);
  EXPECT_EQ(read, server_parameters());
  for (const server_parameters& written :
       {server_parameters{L"D:(A;;GA;;;WD)", false, {3, 5, 0x12345678}},
        server_parameters{L"D:", true, numbers(1000, 7)}}) {
    EXPECT_EQ(write_server_parameters(*folder_, written), S_OK);
    EXPECT_EQ(read_server_parameters(*folder_, read), S_OK);
    EXPECT_EQ(read, written);
  }
}

TEST_P(AnyFolder, ParametersOfAnotherTypeAreRefusedNotReplacedByDefaults) {
  // The first letters of the parameters that are refused when `write` has written them.
  const auto refused = [this](auto write) {
    std::wstring letters;
    for (const wchar_t* name : {L"SecurityDescriptor", L"AutoDiscovery", L"sharedports"}) {
      write(name);
      server_parameters read;
      if (FAILED(read_server_parameters(*folder_, read)))
        letters += *name;
      EXPECT_EQ(read == server_parameters(), letters.ends_with(*name)) << name;
      folder_->delete_value(name);
    }
    return letters;
  };
  EXPECT_EQ(refused([&](auto name) { folder_->write_string(name, L"0"); }), L"As");
  // The bytes of an empty list.
  EXPECT_EQ(refused([&](auto name) { folder_->write_value(name, "\0\0\0", 4); }), L"Ss");
  EXPECT_EQ(refused([&](auto name) { WriteStream(name, {'D', 0, ':'}); }), L"SAs");
}

TEST_P(AnyFolder, PortsAreSortedAndDamagedListsRefused) {
  const std::pair<bytes, LONG> rows[] = {
      {{2, 0, 0, 0, 9, 0, 0, 0, 7, 0, 0, 0}, NO_ERROR},
      {{1, 0}, ERROR_HANDLE_EOF},
      {{2, 0, 0, 0, 9, 0, 0, 0, 7, 0, 0}, ERROR_HANDLE_EOF},
      {{0xFF, 0xFF, 0xFF, 0xFF, 9, 0, 0, 0}, ERROR_HANDLE_EOF},
      {{1, 0, 0, 0, 9, 0, 0, 0, 7}, ERROR_INVALID_DATA},
      {{0, 0, 0, 0, 9, 0, 0, 0}, ERROR_INVALID_DATA},
  };
  for (const auto& [stored, error] : rows) {
    WriteStream(L"SharedPorts", stored);
    server_parameters read{L"", false, {42}};
    EXPECT_EQ(read_server_parameters(*folder_, read), HRESULT_FROM_WIN32(error));
    EXPECT_EQ(read.shared_ports, error == NO_ERROR ? numbers({7, 9}) : numbers({42}));
  }
}

}  // namespace
}  // namespace Tamrin::setman
