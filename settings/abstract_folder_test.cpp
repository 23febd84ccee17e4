// What must hold for every folder, whatever stores it.
#include "settings/abstract_folder.h"

#include <algorithm>
#include <cstdint>

#include "settings/folder_creation_error.h"
#include "settings/test_support.h"

namespace Tamrin::setman {
namespace {

using names = std::vector<std::wstring>;
using AbstractFolder = test::AnyFolder;

INSTANTIATE_TEST_SUITE_P(RegistryAndMemory, AbstractFolder, testing::Bool());

TEST_P(AbstractFolder, ValuesComeBackAsWhatTheyAre) {
  EXPECT_TRUE(folder_->write_string(L"text", std::wstring(L"a\0\u00e9\U0001F50C\0\0", 7)));
  EXPECT_EQ(folder_->read_string(L"text"), std::wstring(L"a\0\u00e9\U0001F50C", 5));

  const std::size_t sizes[][2] = {{1, 1}, {1, 4}, {3, 4}, {4, 1}, {4, 8}, {5, 8}, {8, 4}};
  const std::uint64_t number = 0x8182838485668788;
  for (const auto& [written, read] : sizes) {
    EXPECT_TRUE(folder_->write_value(L"number", &number, written));
    std::uint64_t value = 0;
    EXPECT_TRUE(folder_->read_value(L"number", &value, read));
    EXPECT_EQ(value, number & (~0ull >> (64 - 8 * std::min(written, read))));
  }
  EXPECT_TRUE(folder_->write_value(L"bytes", "nine bytes", 9));
  for (const std::size_t size : {4, 8, 9, 10}) {
    std::string read(size, 'x');
    EXPECT_EQ(folder_->read_value(L"bytes", read.data(), size), size == 9);
    EXPECT_EQ(read, size == 9 ? "nine byte" : std::string(size, 'x'));
  }
  std::byte byte{};
  EXPECT_EQ(folder_->read_string(L"number"), std::nullopt);
  EXPECT_EQ(folder_->read_string(L"missing"), std::nullopt);
  EXPECT_FALSE(folder_->read_value(L"text", &byte, 1));
  EXPECT_FALSE(folder_->read_value(L"missing", &byte, 1));
}

TEST_P(AbstractFolder, NamesAreListedAndComparedWithoutCaseUntilTheyAreDeleted) {
  const std::wstring longest(16383, L'a');
  for (const auto& name : {std::wstring(L"First"), longest, std::wstring(L"FIRST")})
    EXPECT_TRUE(folder_->write_string(name, name));
  folder_->open_subfolder(L"Child\\Grandchild")->write_string(L"deep", L"4");
  auto listed = folder_->value_names();
  std::ranges::sort(listed);
  EXPECT_EQ(listed, (names{L"First", longest}));
  EXPECT_EQ(folder_->read_string(L"first"), L"FIRST");
  EXPECT_EQ(folder_->subfolder_names(), names{L"Child"});
  const auto child = folder_->open_subfolder(L"child");
  EXPECT_EQ(child->open_subfolder(L"GRANDCHILD")->read_string(L"Deep"), L"4");

  EXPECT_TRUE(folder_->delete_value(L"first"));
  EXPECT_FALSE(folder_->has_value(L"first") || folder_->delete_value(L"first"));
  EXPECT_TRUE(child->delete_folder());
  EXPECT_FALSE(child->delete_folder() || root_->delete_folder());
  EXPECT_TRUE(folder_->subfolder_names().empty());
}

TEST(FileStorage, ANameIsEitherAValueOrASubfolder) {
  const auto folder = std::make_shared<file_storage>(std::make_shared<directory>());
  EXPECT_TRUE(folder->write_string(L"value", L"text"));
  EXPECT_THROW(static_cast<void>(folder->open_subfolder(L"VALUE")), folder_creation_error);
}

TEST(StoredValue, OfOtherToolsIsReadAsWhatItIs) {
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
    const auto data = std::as_bytes(std::span(row.data));
    const stored_value value = {row.type, {data.begin(), data.end()}};
    EXPECT_EQ(decode_string(value), row.text);
    std::uint32_t number = 7;
    EXPECT_FALSE(decode_value(value, &number, sizeof(number)) || number != 7);
  }
}

}  // namespace
}  // namespace Tamrin::setman
