#include "settings/regkey.h"

#include <gtest/gtest.h>

#include "settings/folder_creation_error.h"
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

  std::pair<DWORD, test::bytes> GetRaw(const wchar_t* name) {
    DWORD type = 0;
    test::bytes data(64);
    auto size = static_cast<DWORD>(data.size());
    EXPECT_EQ(::RegQueryValueExW(raw_key_.get(), name, nullptr, &type, data.data(), &size),
              ERROR_SUCCESS);
    data.resize(size);
    return {type, data};
  }

  unique_registry_key raw_key_;
  test::registry_folder folder_;
};

TEST_F(RegKey, ValuesAreStoredWithTheirTypeAndSize) {
  const bool on = true;
  const std::uint64_t large = 0xFFFFFFFFFFFFFFFF;
  folder_->write_string(L"text", L"ab");
  folder_->write_value(L"on", &on, sizeof(on));
  folder_->write_value(L"large", &large, 5);
  test::write_stream(*folder_, L"stream", {1, 2, 3, 4});
  EXPECT_EQ(GetRaw(L"text"), (std::pair<DWORD, test::bytes>(REG_SZ, {'a', 0, 'b', 0})));
  EXPECT_EQ(GetRaw(L"on"), (std::pair<DWORD, test::bytes>(REG_DWORD, {1, 0, 0, 0})));
  EXPECT_EQ(GetRaw(L"large"),
            (std::pair<DWORD, test::bytes>(REG_QWORD, {255, 255, 255, 255, 255, 0, 0, 0})));
  EXPECT_EQ(GetRaw(L"stream"), (std::pair<DWORD, test::bytes>(REG_BINARY, {1, 2, 3, 4})));
}

TEST_F(RegKey, ValuesOfOtherToolsAreReadAsWhatTheyAre) {
  const struct {
    DWORD type;
    test::bytes data;
    std::optional<std::wstring> expected;
  } rows[] = {{REG_SZ, {'a', 0, 'b', 0, 0, 0}, L"ab"},
              {REG_SZ, {'a', 0, 0, 0, 0, 0, 0, 0}, L"a"},
              {REG_SZ, {0, 0}, L""},
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

TEST_F(RegKey, ReadingCreatesTheMissingKey) {
  const std::shared_ptr<abstract_folder> child = folder_->open_subfolder(L"child");
  EXPECT_TRUE(folder_->subfolder_names().empty());
  EXPECT_TRUE(child->value_names().empty());
  EXPECT_EQ(folder_->subfolder_names(), std::vector<std::wstring>{L"child"});
}

TEST_F(RegKey, AKeyThatCannotBeCreatedIsReportedWithItsError) {
  const std::wstring too_long(300, L'k');
  const std::shared_ptr<abstract_folder> child = folder_->open_subfolder(too_long);
  HKEY key = nullptr;
  const LSTATUS expected = ::RegCreateKeyExW(raw_key_.get(), too_long.c_str(), 0, nullptr, 0,
                                             KEY_READ, nullptr, &key, nullptr);
  ASSERT_NE(expected, ERROR_SUCCESS);
  const auto message_of = [expected](auto operation) -> std::string {
    try {
      operation();
    } catch (const folder_creation_error& error) {
      EXPECT_EQ(error.error(), static_cast<DWORD>(expected));
      return error.what();
    }
    return "no error";
  };
  EXPECT_EQ(message_of([&] { static_cast<void>(child->value_names()); }), "Error opening key");
  EXPECT_EQ(message_of([&] { child->write_string(L"value", L"text"); }), "Error creating key");
}

}  // namespace
}  // namespace Tamrin::setman
