// Text between bytes and char arrays.
#include "runtime/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "host/array.h"
#include "runtime/host_errors.h"
#include "runtime/reporting.h"
#include "tests/support/arrays.h"

namespace tb::test {
namespace {

using runtime::CharacterNotNarrow;

struct HostStringDeleter {
  void operator()(char* text) const noexcept { vxFree(text); }
};
using HostString = std::unique_ptr<char, HostStringDeleter>;

std::string everyByte() {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes.push_back(static_cast<char>(byte));
  return bytes;
}

TEST(HostText, KeepsEveryByteBothWays) {
  const vxArrayPtr array = matrix::create(everyByte());
  ASSERT_EQ(vxGetClassID(array.get()), vxCHAR);
  const std::u16string units = matrix::get_ustring(array.get());
  for (std::size_t i = 0; i < 256; ++i) EXPECT_EQ(units[i], i);
  EXPECT_EQ(matrix::get_string(array.get()), everyByte());
}

TEST(HostText, IsARowAndEmptyTextHasNoRow) {
  const vxArrayPtr word = matrix::create("word");
  EXPECT_EQ(vxGetDimensions(word.get())[0], 1U);
  EXPECT_EQ(vxGetDimensions(word.get())[1], 4U);
  for (const vxArrayPtr& empty : {matrix::create(""), runtime::createText(u"")}) {
    EXPECT_EQ(vxGetClassID(empty.get()), vxCHAR);
    EXPECT_EQ(vxGetDimensions(empty.get())[0], 0U);
    EXPECT_EQ(vxGetDimensions(empty.get())[1], 0U);
    EXPECT_EQ(matrix::get_string(empty.get()), "");
  }
}

TEST(HostText, IsReadFromAnyShapeInStorageOrder) {
  const vxArrayPtr matrix2by2 = arrayOf<char16_t>({2, 2}, {u'a', u'b', u'c', u'd'});
  EXPECT_EQ(matrix::get_string(matrix2by2.get()), "abcd");
  EXPECT_STREQ(HostString(vxArrayToString(matrix2by2.get())).get(), "abcd");
}

TEST(HostText, KeepsUnitsBeyondOneByteAsUtf16) {
  const std::u16string name = u"\u00e9\u4e2d\xd83d\xde00\xd800";
  EXPECT_EQ(matrix::get_ustring(runtime::createText(name).get()), name);
}

TEST(HostText, EndsWithNulAndKeepsThoseInside) {
  const vxArrayPtr array = matrix::create(std::string_view("a\0b", 3));
  const HostString text(vxArrayToString(array.get()));
  EXPECT_EQ(std::memcmp(text.get(), "a\0b", 4), 0);
  EXPECT_EQ(matrix::get_string(array.get()), std::string("a\0b", 3));
}

TEST(HostText, IsNullForOtherClasses) {
  for (const vxClassID id : {vxUINT16, vxDOUBLE, vxCELL, vxLOGICAL})
    EXPECT_EQ(vxArrayToString(zeros(id, {1, 3}).get()), nullptr);
}

template <class Read>
void expectNotNarrow(Read read, char16_t unit, std::int64_t position) {
  int reported = 0;
  runtime::setErrorReporter([&](const auto&) { ++reported; });
  try {
    read();
    ADD_FAILURE() << "nothing was raised";
  } catch (const CharacterNotNarrow& error) {
    EXPECT_EQ(error.message().identifier(), "KORVAL:pictoria:host:characterNotNarrow");
    ASSERT_EQ(error.message().arguments().size(), 2U);
    EXPECT_EQ(std::get<std::int64_t>(error.message().arguments()[0]), unit);
    EXPECT_EQ(std::get<std::int64_t>(error.message().arguments()[1]), position);
  }
  runtime::setErrorReporter(nullptr);
  EXPECT_EQ(reported, 1);
}

TEST(HostText, RefusesToNarrowAWideCharacter) {
  const vxArrayPtr array = runtime::createText(u"ab\u0100\u4e2d");
  expectNotNarrow([&] { HostString(vxArrayToString(array.get())); }, 0x100, 3);
  expectNotNarrow([&] { (void)matrix::get_string(array.get()); }, 0x100, 3);
}

}  // namespace
}  // namespace tb::test
