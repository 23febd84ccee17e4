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

enum class storage { registry, memory };

class AbstractFolder : public testing::TestWithParam<storage> {
 protected:
  AbstractFolder() {
    if (GetParam() == storage::registry) {
      root_ = hkey_current_user;
    } else {
      root_ = test::memory_folder();
    }
    folder_ = root_->open_subfolder(test::registry_path());
  }
  ~AbstractFolder() override { folder_->delete_folder(); }

  std::shared_ptr<abstract_folder> root_;
  std::shared_ptr<abstract_folder> folder_;
};

std::vector<std::wstring> sorted(std::vector<std::wstring> names) {
  std::sort(names.begin(), names.end());
  return names;
}

using names = std::vector<std::wstring>;

INSTANTIATE_TEST_SUITE_P(Storage, AbstractFolder,
                         testing::Values(storage::registry, storage::memory), [](const auto& row) {
                           return row.param == storage::registry ? "Registry" : "Memory";
                         });

TEST_P(AbstractFolder, StringsComeBackWithoutTrailingZeros) {
  const std::pair<std::wstring, std::wstring> rows[] = {
      {L"", L""},
      {L"D:(A;;0xc0100004;;;SU)", L"D:(A;;0xc0100004;;;SU)"},
      {L"\u00e9\U0001F50C", L"\u00e9\U0001F50C"},
      {std::wstring(3000, L'x'), std::wstring(3000, L'x')},
      {std::wstring(L"a\0b\0\0", 5), std::wstring(L"a\0b", 3)}};
  for (const auto& [written, expected] : rows) {
    EXPECT_TRUE(folder_->write_string(L"text", written));
    EXPECT_EQ(folder_->read_string(L"text"), expected);
  }
}

TEST_P(AbstractFolder, NumbersAreCutOrZeroExtended) {
  const struct {
    std::size_t written;
    std::size_t read;
    std::uint64_t expected;
  } rows[] = {{1, 1, 0x88},         {1, 4, 0x88},       {3, 4, 0x668788},
              {4, 1, 0x88},         {4, 4, 0x85668788}, {4, 8, 0x85668788},
              {5, 8, 0x8485668788}, {8, 4, 0x85668788}, {8, 8, 0x8182838485668788}};
  const std::uint64_t number = 0x8182838485668788;
  for (const auto& row : rows) {
    EXPECT_TRUE(folder_->write_value(L"number", &number, row.written));
    std::uint64_t read = 0;
    EXPECT_TRUE(folder_->read_value(L"number", &read, row.read));
    EXPECT_EQ(read, row.expected) << row.written << " read as " << row.read;
  }
  test::bytes larger(12, 0xEE);
  EXPECT_TRUE(folder_->read_value(L"number", larger.data(), larger.size()));
  EXPECT_EQ(test::bytes(larger.begin() + 8, larger.end()), test::bytes(4, 0));
}

TEST_P(AbstractFolder, BytesAreReadOnlyAtTheirExactSize) {
  const test::bytes written = {9, 8, 7, 6, 5, 4, 3, 2, 1};
  EXPECT_TRUE(folder_->write_value(L"bytes", written.data(), written.size()));
  for (const std::size_t size : {std::size_t{4}, std::size_t{8}, std::size_t{10}}) {
    test::bytes read(size, 0xEE);
    EXPECT_FALSE(folder_->read_value(L"bytes", read.data(), size));
    EXPECT_EQ(read, test::bytes(size, 0xEE));
  }
  test::bytes read(9);
  EXPECT_TRUE(folder_->read_value(L"bytes", read.data(), read.size()));
  EXPECT_EQ(read, written);
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
  test::bytes value(3);
  EXPECT_TRUE(folder_->read_value(L"stream", value.data(), value.size()));
}

TEST_P(AbstractFolder, NamesAreListedAndComparedWithoutCase) {
  folder_->write_string(L"First", L"1");
  folder_->write_string(L"second", L"2");
  folder_->write_string(L"FIRST", L"3");
  const std::wstring longest(16383, L'a');
  EXPECT_TRUE(folder_->write_string(longest, L"5"));
  folder_->open_subfolder(L"Child\\Grandchild")->write_string(L"deep", L"4");
  EXPECT_EQ(sorted(folder_->value_names()), (names{L"First", longest, L"second"}));
  EXPECT_TRUE(folder_->has_value(L"SECOND"));
  EXPECT_FALSE(folder_->has_value(L"third"));
  EXPECT_EQ(folder_->read_string(L"first"), L"3");
  EXPECT_EQ(folder_->subfolder_names(), names{L"Child"});
  EXPECT_EQ(folder_->open_subfolder(L"child")->open_subfolder(L"GRANDCHILD")->read_string(L"Deep"),
            L"4");
}

TEST_P(AbstractFolder, DeletedValuesAndFoldersAreGone) {
  folder_->write_string(L"value", L"1");
  EXPECT_TRUE(folder_->delete_value(L"value"));
  EXPECT_FALSE(folder_->delete_value(L"value"));
  EXPECT_TRUE(folder_->value_names().empty());

  const std::shared_ptr<abstract_folder> child = folder_->open_subfolder(L"child");
  child->open_subfolder(L"grandchild")->write_string(L"value", L"2");
  EXPECT_TRUE(child->delete_folder());
  EXPECT_FALSE(child->delete_folder());
  EXPECT_TRUE(folder_->subfolder_names().empty());
  EXPECT_EQ(folder_->open_subfolder(L"child\\grandchild")->read_string(L"value"), std::nullopt);
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

TEST(FileStorage, ANameIsEitherAValueOrASubfolder) {
  const std::shared_ptr<file_storage> folder = test::memory_folder();
  folder->write_string(L"value", L"text");
  const std::shared_ptr<abstract_folder> child = folder->open_subfolder(L"child");
  EXPECT_FALSE(folder->write_string(L"Child", L"text"));
  EXPECT_FALSE(folder->open_stream(L"child", STGM_WRITE));
  for (const wchar_t* name : {L"VALUE", L"value\\grandchild"}) {
    std::string message;
    try {
      static_cast<void>(folder->open_subfolder(name));
    } catch (const folder_creation_error& error) {
      message = error.what();
    }
    EXPECT_EQ(message, "File with the same name exists");
  }
}

}  // namespace
}  // namespace Tamrin::setman
