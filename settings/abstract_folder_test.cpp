// The contract of every folder, independent of its storage.
#include "settings/abstract_folder.h"

#include <algorithm>
#include <cstdint>

#include "settings/folder_creation_error.h"
#include "settings/test_support.h"

namespace Tamrin::setman {
namespace {

using names = std::vector<std::wstring>;

INSTANTIATE_TEST_SUITE_P(RegistryAndMemory, AnyFolder, testing::Bool());

TEST_P(AnyFolder, ValuesComeBackAsWhatTheyAre) {
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
  for (const std::size_t size : {4u, 8u, 9u, 10u}) {
    std::string read(size, 'x');
    EXPECT_EQ(folder_->read_value(L"bytes", read.data(), size), size == 9);
    EXPECT_EQ(read, size == 9 ? "nine byte" : std::string(size, 'x'));
  }
  std::byte byte{};
  EXPECT_EQ(folder_->read_string(L"missing"), std::nullopt);
  EXPECT_FALSE(folder_->read_value(L"missing", &byte, 1));
}

TEST_P(AnyFolder, NamesAreListedAndComparedWithoutCaseUntilTheyAreDeleted) {
  EXPECT_TRUE(folder_->write_string(L"First", L"old") && folder_->write_string(L"FIRST", L"new"));
  EXPECT_EQ(folder_->value_names(), names{L"First"});
  EXPECT_EQ(folder_->read_string(L"first"), L"new");
  EXPECT_TRUE(folder_->delete_value(L"first"));
  EXPECT_FALSE(folder_->has_value(L"first") || folder_->delete_value(L"first"));
  const std::wstring longest(16383, L'a');
  EXPECT_TRUE(folder_->write_string(longest, L""));
  EXPECT_EQ(folder_->value_names(), names{longest});

  folder_->open_subfolder(L"Child\\Grandchild")->write_string(L"deep", L"4");
  EXPECT_EQ(folder_->subfolder_names(), names{L"Child"});
  const auto child = folder_->open_subfolder(L"child");
  EXPECT_EQ(child->open_subfolder(L"GRANDCHILD")->read_string(L"Deep"), L"4");
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
  stored_value value = encode_string(L"ab");
  for (const std::size_t size : {6u, 3u}) {  // with a terminating zero, and cut within a character
    value.bytes.resize(size);
    EXPECT_EQ(decode_string(value), L"ab");
  }
  for (const auto& [type, size] : {std::pair<DWORD, std::size_t>{REG_DWORD, 2},
                                   {REG_EXPAND_SZ, 4},
                                   {REG_QWORD, 4},
                                   {REG_DWORD_BIG_ENDIAN, 4}}) {
    value.type = type;
    value.bytes.resize(size);
    std::uint32_t number = 7;
    EXPECT_FALSE(decode_string(value) || decode_value(value, &number, sizeof number)) << type;
    EXPECT_EQ(number, 7u);
  }
}

}  // namespace
}  // namespace Tamrin::setman
