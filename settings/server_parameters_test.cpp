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
  const auto refuses = [this](const wchar_t* name) {
    server_parameters read;
    const bool refused = FAILED(read_server_parameters(*folder_, read));
    EXPECT_EQ(read == server_parameters(), refused);
    folder_->delete_value(name);
    return refused;
  };
  for (const wchar_t* name : {L"SecurityDescriptor", L"AutoDiscovery", L"sharedports"}) {
    folder_->write_string(name, L"0");
    EXPECT_EQ(refuses(name), *name != L'S') << name;
    folder_->write_value(name, "\0\0\0", 4);  // the bytes of an empty list
    EXPECT_EQ(refuses(name), *name != L'A') << name;
    WriteStream(name, {'D', 0, ':'});
    EXPECT_TRUE(refuses(name)) << name;
  }
}

TEST_P(ServerParameters, PortsAreSortedAndDamagedListsRefused) {
  const std::pair<test::bytes, HRESULT> rows[] = {
      {{2, 0, 0, 0, 9, 0, 0, 0, 7, 0, 0, 0}, S_OK},
      {{1, 0}, kEndOfFile},
      {{2, 0, 0, 0, 9, 0, 0, 0, 7, 0, 0}, kEndOfFile},
      {{0xFF, 0xFF, 0xFF, 0xFF, 9, 0, 0, 0}, kEndOfFile},
      {{1, 0, 0, 0, 9, 0, 0, 0, 7}, kInvalidData},
      {{0, 0, 0, 0, 9, 0, 0, 0}, kInvalidData},
  };
  for (const auto& [stored, outcome] : rows) {
    WriteStream(L"SharedPorts", stored);
    server_parameters read{L"", false, {42}};
    EXPECT_EQ(read_server_parameters(*folder_, read), outcome);
    EXPECT_EQ(read.shared_ports, outcome == S_OK ? numbers({7, 9}) : numbers({42}));
  }
}

}  // namespace
}  // namespace Tamrin::setman
