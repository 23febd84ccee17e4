// What must hold for every folder, whatever stores it.
#include "settings/abstract_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <thread>

#include "settings/folder_creation_error.h"
#include "settings/test_support.h"

namespace Tamrin::setman {
namespace {

using names = std::vector<std::wstring>;

class AbstractFolder : public testing::TestWithParam<bool> {
 protected:
  ~AbstractFolder() override { folder_->delete_folder(); }

  std::shared_ptr<abstract_folder> root_ = [] {
    std::shared_ptr<abstract_folder> memory = test::memory_folder();
    return GetParam() ? hkey_current_user : memory;
  }();
  std::shared_ptr<abstract_folder> folder_ = root_->open_subfolder(test::registry_path());
};

INSTANTIATE_TEST_SUITE_P(RegistryAndMemory, AbstractFolder, testing::Bool());

TEST_P(AbstractFolder, StringsComeBackWithoutTrailingZeros) {
  const std::pair<std::wstring, std::wstring> rows[] = {
      {L"", L""},
      {L"\u00e9\U0001F50C", L"\u00e9\U0001F50C"},
      {std::wstring(3000, L'x'), std::wstring(3000, L'x')},
      {std::wstring(L"a\0b\0\0", 5), std::wstring(L"a\0b", 3)}};
  for (const auto& [written, expected] : rows) {
    EXPECT_TRUE(folder_->write_string(L"text", written));
    EXPECT_EQ(folder_->read_string(L"text"), expected);
  }
}

TEST_P(AbstractFolder, NumbersAreCutOrZeroExtendedAndBytesAreNot) {
  const struct {
    std::size_t written;
    std::size_t read;
    std::uint64_t expected;
  } rows[] = {{1, 1, 0x88},       {1, 4, 0x88},         {3, 4, 0x668788},  {4, 1, 0x88},
              {4, 8, 0x85668788}, {5, 8, 0x8485668788}, {8, 4, 0x85668788}};
  const std::uint64_t number = 0x8182838485668788;
  for (const auto& row : rows) {
    EXPECT_TRUE(folder_->write_value(L"number", &number, row.written));
    std::uint64_t read = 0;
    EXPECT_TRUE(folder_->read_value(L"number", &read, row.read));
    EXPECT_EQ(read, row.expected) << row.written << " read as " << row.read;
  }
  const test::bytes written = {9, 8, 7, 6, 5, 4, 3, 2, 1};
  EXPECT_TRUE(folder_->write_value(L"bytes", written.data(), written.size()));
  for (const std::size_t size : {4, 8, 9, 10}) {
    test::bytes read(size, 0xEE);
    EXPECT_EQ(folder_->read_value(L"bytes", read.data(), size), size == 9);
    EXPECT_EQ(read, size == 9 ? written : test::bytes(size, 0xEE));
  }
}

TEST_P(AbstractFolder, ValuesOfAnotherTypeAndMissingOnesAreNotRead) {
  std::uint32_t number = 7;
  EXPECT_TRUE(folder_->write_string(L"text", L"ab"));
  EXPECT_TRUE(folder_->write_value(L"number", &number, sizeof(number)));
  EXPECT_EQ(folder_->read_string(L"number"), std::nullopt);
  EXPECT_EQ(folder_->read_string(L"missing"), std::nullopt);
  EXPECT_FALSE(folder_->read_value(L"text", &number, sizeof(number)));
  EXPECT_FALSE(folder_->read_value(L"missing", &number, sizeof(number)));
  EXPECT_EQ(test::read_stream(*folder_, L"missing"), test::bytes());
  EXPECT_EQ(number, 7u);
}

TEST_P(AbstractFolder, StreamWrittenInPiecesIsCommittedByItsRelease) {
  test::write_stream(*folder_, L"stream", {1, 2, 3, 4, 5, 6, 7, 8, 9});
  unique_stream stream = folder_->open_stream(L"stream", STGM_WRITE);
  ASSERT_TRUE(stream);
  ULONG written = 0;
  EXPECT_EQ(stream.get()->Write("\x0A\x0B", 2, &written), S_OK);
  EXPECT_EQ(written, 2u);
  EXPECT_EQ(stream.get()->Write("\x0C", 1, &written), S_OK);
  EXPECT_EQ(test::read_stream(*folder_, L"stream").size(), 9u);
  stream.reset();
  EXPECT_EQ(test::read_stream(*folder_, L"stream"), (test::bytes{10, 11, 12}));
}

TEST_P(AbstractFolder, NamesAreListedAndComparedWithoutCaseUntilTheyAreDeleted) {
  const std::wstring longest(16383, L'a');
  for (const auto& name : {std::wstring(L"First"), std::wstring(L"second"), longest})
    EXPECT_TRUE(folder_->write_string(name, L"1"));
  folder_->write_string(L"FIRST", L"3");
  folder_->open_subfolder(L"Child\\Grandchild")->write_string(L"deep", L"4");
  auto listed = folder_->value_names();
  std::ranges::sort(listed);
  EXPECT_EQ(listed, (names{L"First", longest, L"second"}));
  EXPECT_TRUE(folder_->has_value(L"SECOND"));
  EXPECT_FALSE(folder_->has_value(L"third"));
  EXPECT_EQ(folder_->read_string(L"first"), L"3");
  EXPECT_EQ(folder_->subfolder_names(), names{L"Child"});
  const auto child = folder_->open_subfolder(L"child");
  EXPECT_EQ(child->open_subfolder(L"GRANDCHILD")->read_string(L"Deep"), L"4");

  EXPECT_TRUE(folder_->delete_value(L"first"));
  EXPECT_FALSE(folder_->delete_value(L"first"));
  EXPECT_TRUE(child->delete_folder());
  EXPECT_FALSE(child->delete_folder());
  EXPECT_TRUE(folder_->subfolder_names().empty());
  EXPECT_FALSE(root_->delete_folder());
}

// The first write to a registry folder replaces the handle with which it reads.
TEST_P(AbstractFolder, AThreadMayReadWhileAnotherWrites) {
  folder_->write_string(L"shared", L"value");
  std::atomic<int> failures = 0;
  for (int round = 0; round < 100; ++round) {
    const std::shared_ptr<abstract_folder> fresh = root_->open_subfolder(test::registry_path());
    std::atomic<bool> reading = false;
    const std::jthread writer([&] {
      reading.wait(false);
      if (!fresh->write_value(L"round", &round, sizeof(round)))
        ++failures;
    });
    for (int read = 0; read < 20; ++read) {
      if (fresh->read_string(L"shared") != L"value")
        ++failures;
      reading = true;
      reading.notify_one();
    }
  }
  EXPECT_EQ(failures, 0);
}

TEST(FileStorage, StreamsKeepTheirModes) {
  const auto folder = test::memory_folder();
  std::byte byte{1};
  EXPECT_FALSE(folder->open_stream(L"value", STGM_WRITE | STGM_TRANSACTED));
  EXPECT_TRUE(folder->value_names().empty());
  folder->write_string(L"value", L"untouched");
  const unique_stream reading = folder->open_stream(L"value", STGM_READ);
  EXPECT_EQ(reading.get()->Write(&byte, 1, nullptr), STG_E_ACCESSDENIED);
  folder->open_stream(L"value", STGM_READWRITE).reset();
  EXPECT_EQ(folder->read_string(L"value"), L"untouched");
  unique_stream writing = folder->open_stream(L"value", STGM_WRITE);
  EXPECT_EQ(writing.get()->Read(&byte, 1, nullptr), STG_E_ACCESSDENIED);
  EXPECT_TRUE(folder->delete_value(L"value"));  // which the stream outlives
  writing.reset();
}

TEST(FileStorage, ANameIsEitherAValueOrASubfolder) {
  const auto folder = test::memory_folder();
  folder->write_string(L"value", L"text");
  const auto child = folder->open_subfolder(L"child");
  EXPECT_FALSE(folder->write_string(L"Child", L"text"));
  EXPECT_FALSE(folder->open_stream(L"child", STGM_WRITE));
  for (const wchar_t* name : {L"VALUE", L"value\\grandchild"})
    EXPECT_THROW(static_cast<void>(folder->open_subfolder(name)), folder_creation_error);
}

}  // namespace
}  // namespace Tamrin::setman
