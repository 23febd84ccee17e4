#include "settings/regkey.h"

#include "settings/test_support.h"

namespace Tamrin::setman {
namespace {

class RegKey : public test::AnyFolder {
 protected:
  using stored = std::pair<DWORD, test::bytes>;

  void SetRaw(const stored& value) {
    EXPECT_EQ(::RegSetKeyValueW(HKEY_CURRENT_USER, path_.c_str(), L"value", value.first,
                                value.second.data(), static_cast<DWORD>(value.second.size())),
              ERROR_SUCCESS);
  }
  [[nodiscard]] stored Raw() const {
    stored value{REG_NONE, test::bytes(16)};
    DWORD size = 16;
    ::RegGetValueW(HKEY_CURRENT_USER, path_.c_str(), L"value", RRF_RT_ANY, &value.first,
                   value.second.data(), &size);
    value.second.resize(size);
    return value;
  }
};

INSTANTIATE_TEST_SUITE_P(Registry, RegKey, testing::Values(true));

TEST_P(RegKey, ValuesAreStoredWithTheirTypeAndSize) {
  folder_->write_value(L"value", "\1", 1);
  EXPECT_EQ(Raw(), (stored{REG_DWORD, {1, 0, 0, 0}}));
  folder_->write_value(L"value", "\1\2\3\4\5", 5);
  EXPECT_EQ(Raw(), (stored{REG_QWORD, {1, 2, 3, 4, 5, 0, 0, 0}}));
  WriteStream(L"value", {1, 2, 3});
  EXPECT_EQ(Raw(), (stored{REG_BINARY, {1, 2, 3}}));
}

TEST_P(RegKey, ValuesOfOtherToolsAreReadAsWhatTheyAre) {
  const std::pair<stored, std::optional<std::wstring>> rows[] = {
      {{REG_SZ, {'a', 0, 'b', 0, 0, 0}}, L"ab"},
      {{REG_SZ, {'a', 0, 'b'}}, L"ab"},
      {{REG_EXPAND_SZ, {'a', 0, 0, 0}}, {}},
      {{REG_BINARY, {1, 0, 0, 0, 0, 0, 0, 0}}, {}},
      {{REG_DWORD, {1, 0}}, {}},
      {{REG_QWORD, {1, 0, 0, 0}}, {}},
      {{REG_DWORD_BIG_ENDIAN, {0, 0, 0, 1}}, {}}};
  for (const auto& [value, text] : rows) {
    SetRaw(value);
    EXPECT_EQ(folder_->read_string(L"value"), text);
    std::uint32_t number = 7;
    EXPECT_FALSE(folder_->read_value(L"value", &number, sizeof(number)) || number != 7);
  }
}

}  // namespace
}  // namespace Tamrin::setman
