#include "settings/regkey.h"

#include <gtest/gtest.h>

#include <tuple>

#include "settings/test_support.h"

namespace Tamrin::setman {
namespace {

class RegKey : public testing::Test {
 protected:
  RegKey() {
    HKEY key = nullptr;
    ::RegCreateKeyExW(HKEY_CURRENT_USER, test::registry_path().c_str(), 0, nullptr, 0,
                      KEY_ALL_ACCESS, nullptr, &key, nullptr);
    raw_key_.reset(key);
  }

  void SetRaw(const wchar_t* name, DWORD type, const test::bytes& data) {
    ASSERT_EQ(::RegSetValueExW(raw_key_.get(), name, 0, type, data.data(),
                               static_cast<DWORD>(data.size())),
              ERROR_SUCCESS);
  }

  unique_registry_key raw_key_;
  test::registry_folder folder_;
};

TEST_F(RegKey, ValuesAreStoredWithTheirTypeAndSize) {
  const bool on = true;
  const std::uint64_t large = 1;
  folder_->write_string(L"text", L"ab");
  folder_->write_value(L"on", &on, sizeof(on));
  folder_->write_value(L"large", &large, 5);
  test::write_stream(*folder_, L"stream", {1, 2, 3});
  const std::tuple<const wchar_t*, DWORD, DWORD> rows[] = {{L"text", REG_SZ, 4},
                                                           {L"on", REG_DWORD, 4},
                                                           {L"large", REG_QWORD, 8},
                                                           {L"stream", REG_BINARY, 3}};
  for (const auto& [name, type, size] : rows) {
    DWORD stored_type = 0;
    DWORD stored_size = 0;
    ::RegQueryValueExW(raw_key_.get(), name, nullptr, &stored_type, nullptr, &stored_size);
    EXPECT_EQ(stored_type, type) << name;
    EXPECT_EQ(stored_size, size) << name;
  }
}

TEST_F(RegKey, ValuesOfOtherToolsAreReadAsWhatTheyAre) {
  const struct {
    DWORD type;
    test::bytes data;
    std::optional<std::wstring> expected;
  } rows[] = {{REG_SZ, {'a', 0, 'b', 0, 0, 0}, L"ab"},
              {REG_SZ, {'a', 0, 'b'}, L"ab"},
              {REG_EXPAND_SZ, {'a', 0, 0, 0}, std::nullopt},
              {REG_BINARY, {1, 0, 0, 0, 0, 0, 0, 0}, std::nullopt},
              {REG_DWORD, {1, 0}, std::nullopt},
              {REG_QWORD, {1, 0, 0, 0}, std::nullopt},
              {REG_DWORD_BIG_ENDIAN, {0, 0, 0, 1}, std::nullopt}};
  for (const auto& row : rows) {
    SetRaw(L"value", row.type, row.data);
    EXPECT_EQ(folder_->read_string(L"value"), row.expected);
    std::uint32_t number = 7;
    EXPECT_FALSE(folder_->read_value(L"value", &number, sizeof(number)));
    EXPECT_EQ(number, 7u);
  }
}

}  // namespace
}  // namespace Tamrin::setman
