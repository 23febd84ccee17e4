#include "settings/server_parameters.h"

#include "settings/test_support.h"

namespace Tamrin::setman {
namespace {

using numbers = std::vector<std::uint32_t>;
using ServerParameters = test::AnyFolder;

constexpr HRESULT kEndOfFile = static_cast<HRESULT>(0x80070026);
constexpr HRESULT kInvalidData = static_cast<HRESULT>(0x8007000D);

INSTANTIATE_TEST_SUITE_P(RegistryAndMemory, ServerParameters, testing::Bool());

TEST_P(ServerParameters, ComeBackAndAreTheDefaultsWhereTheyAreMissing) {
  server_parameters read{L"x", false, {1}};
  EXPECT_EQ(read_server_parameters(*folder_, read), S_OK);
  EXPECT_EQ(read, server_parameters());
  for (const server_parameters& written :
       {server_parameters{L"D:(A;;GA;;;WD)", false, {3, 5, 0x12345678}}, server_parameters(),
        server_parameters{L"D:", true, numbers(1000, 7)}}) {
    EXPECT_EQ(write_server_parameters(*folder_, written), S_OK);
    EXPECT_EQ(read_server_parameters(*folder_, read), S_OK);
    EXPECT_EQ(read, written);
  }
}

TEST_P(ServerParameters, ValuesOfAnotherTypeAreRefusedNotReplacedByDefaults) {
  const wchar_t* const names[] = {L"SecurityDescriptor", L"AutoDiscovery", L"sharedports"};
  for (int name = 0; name < 3; ++name) {
    for (const int type : {0, 1, 2}) {
      if (type == 0)
        folder_->write_string(names[name], L"0");
      else if (type == 1)
        folder_->write_value(names[name], "\0\0\0", 4);  // the bytes of an empty list
      else
        WriteStream(names[name], {'D', 0, ':'});
      server_parameters read;
      EXPECT_EQ(FAILED(read_server_parameters(*folder_, read)), type != name || name == 2);
      EXPECT_EQ(read == server_parameters(), type != name || name == 2);
    }
    folder_->delete_value(names[name]);
  }
}

TEST_P(ServerParameters, PortsAreSortedAndDamagedListsRefused) {
  const struct {
    test::bytes stored;
    HRESULT expected;
  } rows[] = {
      {{2, 0, 0, 0, 9, 0, 0, 0, 7, 0, 0, 0}, S_OK},
      {{1, 0}, kEndOfFile},
      {{2, 0, 0, 0, 9, 0, 0, 0, 7, 0, 0}, kEndOfFile},
      {{0xFF, 0xFF, 0xFF, 0xFF, 9, 0, 0, 0}, kEndOfFile},
      {{1, 0, 0, 0, 9, 0, 0, 0, 7}, kInvalidData},
      {{0, 0, 0, 0, 9, 0, 0, 0}, kInvalidData},
  };
  for (const auto& row : rows) {
    WriteStream(L"SharedPorts", row.stored);
    server_parameters read{L"", false, {42}};
    EXPECT_EQ(read_server_parameters(*folder_, read), row.expected);
    EXPECT_EQ(read.shared_ports, row.expected == S_OK ? numbers({7, 9}) : numbers({42}));
  }
}

}  // namespace
}  // namespace Tamrin::setman
