#include "settings/stream_impl.h"

#include <gtest/gtest.h>

#include "settings/test_support.h"

namespace Tamrin::setman {
namespace {

class Stream : public testing::Test {
 protected:
  unique_stream Open(DWORD mode) { return folder_->open_stream(L"value", mode); }

  static HRESULT Seek(const unique_stream& stream, std::int64_t move, DWORD origin) {
    LARGE_INTEGER distance;
    distance.QuadPart = move;
    return stream.get()->Seek(distance, origin, nullptr);
  }

  static HRESULT Write(const unique_stream& stream, const test::bytes& data) {
    return stream.get()->Write(data.data(), static_cast<ULONG>(data.size()), nullptr);
  }

  static test::bytes Read(const unique_stream& stream, ULONG size, HRESULT expected) {
    test::bytes data(size);
    ULONG read = 0;
    EXPECT_EQ(stream.get()->Read(data.data(), size, &read), expected);
    data.resize(read);
    return data;
  }

  std::shared_ptr<file_storage> folder_ = test::memory_folder();
};

TEST_F(Stream, ReadsUpToTheEndAndNotBeyond) {
  test::write_stream(*folder_, L"value", {1, 2, 3, 4, 5});
  const unique_stream stream = Open(STGM_READ);
  EXPECT_EQ(Read(stream, 3, S_OK), (test::bytes{1, 2, 3}));
  EXPECT_EQ(Read(stream, 3, S_FALSE), (test::bytes{4, 5}));
  EXPECT_EQ(Read(stream, 3, S_FALSE), test::bytes());
  EXPECT_EQ(Seek(stream, 100, STREAM_SEEK_SET), S_OK);
  EXPECT_EQ(Read(stream, 1, S_FALSE), test::bytes());
  EXPECT_EQ(Seek(stream, -2, STREAM_SEEK_END), S_OK);
  EXPECT_EQ(Read(stream, 2, S_OK), (test::bytes{4, 5}));
}

TEST_F(Stream, WritesOverwriteAndFillGapsWithZeros) {
  test::write_stream(*folder_, L"value", {1, 2, 3});
  unique_stream stream = Open(STGM_READWRITE);
  EXPECT_EQ(Seek(stream, 1, STREAM_SEEK_SET), S_OK);
  EXPECT_EQ(Write(stream, {9}), S_OK);
  EXPECT_EQ(Seek(stream, 3, STREAM_SEEK_CUR), S_OK);
  EXPECT_EQ(Write(stream, {8}), S_OK);
  stream.reset();
  EXPECT_EQ(test::read_stream(*folder_, L"value"), (test::bytes{1, 9, 3, 0, 0, 8}));
}

TEST_F(Stream, ImpossiblePositionsAndSizesAreRefused) {
  const unique_stream stream = Open(STGM_READWRITE);
  EXPECT_EQ(Seek(stream, -1, STREAM_SEEK_SET), STG_E_INVALIDFUNCTION);
  EXPECT_EQ(Seek(stream, -1, STREAM_SEEK_END), STG_E_INVALIDFUNCTION);
  EXPECT_EQ(Seek(stream, 0, 3), STG_E_INVALIDFUNCTION);
  EXPECT_EQ(Seek(stream, INT64_MAX, STREAM_SEEK_SET), S_OK);
  EXPECT_EQ(Seek(stream, 1, STREAM_SEEK_CUR), STG_E_INVALIDFUNCTION);
  EXPECT_EQ(Write(stream, {1}), STG_E_MEDIUMFULL);
  ULARGE_INTEGER size;
  size.QuadPart = UINT64_MAX;
  EXPECT_EQ(stream.get()->SetSize(size), STG_E_MEDIUMFULL);
}

TEST_F(Stream, ModesAreKept) {
  EXPECT_FALSE(Open(STGM_WRITE | STGM_TRANSACTED));
  EXPECT_TRUE(folder_->value_names().empty());
  EXPECT_EQ(Read(Open(STGM_WRITE), 1, STG_E_ACCESSDENIED), test::bytes());
  EXPECT_EQ(Write(Open(STGM_READ), {1}), STG_E_ACCESSDENIED);
  folder_->write_string(L"value", L"untouched");
  Open(STGM_READWRITE).reset();
  EXPECT_EQ(folder_->read_string(L"value"), L"untouched");
  Open(STGM_WRITE).reset();
  EXPECT_EQ(test::read_stream(*folder_, L"value"), test::bytes());
}

TEST_F(Stream, OnlyTheLastReleaseOrACommitPublishes) {
  unique_stream stream = Open(STGM_WRITE);
  void* second = nullptr;
  EXPECT_EQ(stream.get()->QueryInterface(IID_ISequentialStream, &second), S_OK);
  EXPECT_EQ(stream.get()->QueryInterface(IID_IStorage, &second), E_NOINTERFACE);
  EXPECT_EQ(second, nullptr);
  stream.get()->AddRef();
  EXPECT_EQ(Write(stream, {1}), S_OK);
  EXPECT_EQ(stream.get()->Release(), 2u);
  EXPECT_EQ(stream.get()->Release(), 1u);
  EXPECT_EQ(test::read_stream(*folder_, L"value"), test::bytes());
  EXPECT_EQ(stream.get()->Commit(STGC_DEFAULT), S_OK);
  EXPECT_EQ(test::read_stream(*folder_, L"value"), test::bytes{1});
  EXPECT_EQ(Write(stream, {2}), S_OK);
  EXPECT_EQ(test::read_stream(*folder_, L"value"), test::bytes{1});
  stream.reset();
  EXPECT_EQ(test::read_stream(*folder_, L"value"), (test::bytes{1, 2}));
}

TEST_F(Stream, OutlivesItsFileAndItsFolder) {
  unique_stream stream = Open(STGM_WRITE);
  EXPECT_TRUE(folder_->delete_value(L"value"));
  folder_.reset();
  EXPECT_EQ(Write(stream, {1}), S_OK);
  stream.reset();
}

}  // namespace
}  // namespace Tamrin::setman
