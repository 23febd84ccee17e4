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
  const test::bytes written = {9, 8, 7, 6, 5, 4, 3, 2, 1};
  EXPECT_TRUE(folder_->write_value(L"bytes", written.data(), written.size()));
  for (const std::size_t size : {4, 8, 9, 10}) {
    test::bytes read(size, 0xEE);
    EXPECT_EQ(folder_->read_value(L"bytes", read.data(), size), size == 9);
    EXPECT_EQ(read, size == 9 ? written : test::bytes(size, 0xEE));
  }
  std::byte byte{};
  EXPECT_EQ(folder_->read_string(L"number"), std::nullopt);
  EXPECT_EQ(folder_->read_string(L"missing"), std::nullopt);
  EXPECT_FALSE(folder_->read_value(L"text", &byte, 1));
  EXPECT_FALSE(folder_->read_value(L"missing", &byte, 1));
  EXPECT_EQ(ReadStream(L"missing"), test::bytes());
}

TEST_P(AbstractFolder, StreamWrittenInPiecesIsCommittedByItsRelease) {
  WriteStream(L"stream", {1, 2, 3, 4});
  unique_stream stream = folder_->open_stream(L"stream", STGM_WRITE);
  EXPECT_EQ(stream.get()->Write("\x0A\x0B", 2, nullptr), S_OK);
  EXPECT_EQ(stream.get()->Write("\x0C", 1, nullptr), S_OK);
  EXPECT_EQ(ReadStream(L"stream").size(), 4u);
  stream.reset();
  EXPECT_EQ(ReadStream(L"stream"), (test::bytes{10, 11, 12}));
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
  EXPECT_FALSE(folder_->has_value(L"third"));
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

}  // namespace
}  // namespace Tamrin::setman
