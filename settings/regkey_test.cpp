#include "settings/regkey.h"

#include "settings/test_support.h"

namespace Tamrin::setman {
namespace {

using RegKey = test::AnyFolder;

INSTANTIATE_TEST_SUITE_P(Registry, RegKey, testing::Values(true));

TEST_P(RegKey, ValuesOfOtherToolsAreReadAsWhatTheyAre) {
  const struct {
    DWORD type;
    test::bytes data;
    std::optional<std::wstring> text;
  } rows[] = {{REG_SZ, {'a', 0, 'b', 0, 0, 0}, L"ab"},
              {REG_SZ, {'a', 0, 'b'}, L"ab"},
              {REG_EXPAND_SZ, {'a', 0, 0, 0}, {}},
              {REG_BINARY, {1, 0, 0, 0, 0, 0, 0, 0}, {}},
              {REG_DWORD, {1, 0}, {}},
              {REG_QWORD, {1, 0, 0, 0}, {}},
              {REG_DWORD_BIG_ENDIAN, {0, 0, 0, 1}, {}}};
  for (const auto& row : rows) {
    EXPECT_EQ(::RegSetKeyValueW(HKEY_CURRENT_USER, path_.c_str(), L"value", row.type,
                                row.data.data(), static_cast<DWORD>(row.data.size())),
              ERROR_SUCCESS);
    EXPECT_EQ(folder_->read_string(L"value"), row.text);
    std::uint32_t number = 7;
    EXPECT_FALSE(folder_->read_value(L"value", &number, sizeof(number)) || number != 7);
  }
}

}  // namespace
}  // namespace Tamrin::setman
