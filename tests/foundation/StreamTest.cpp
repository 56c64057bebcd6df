#include "host/foundation/Stream.h"
#include "tests/foundation/AllocationWatch.h"
#include "tests/foundation/Support.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <limits>

namespace {

using namespace std::string_literals;

OutStream EveryKind() {
  OutStream stream;
  stream.Put(static_cast<unsigned char>(0xFE));
  stream.Put(static_cast<signed char>(-2));
  stream.Put(0x01020304U);
  stream.Put(-2);
  stream.Put(std::uint64_t{0x0102030405060708});
  stream.Put(String("ab\0c", 4));
  stream.Put(Path("/x"));
  stream.Put(String());
  stream.PutBytes("raw", 3);
  return stream;
}

const std::string k_EveryKind = "\xFE"
                                "\xFE"
                                "\x04\x03\x02\x01"
                                "\xFE\xFF\xFF\xFF"
                                "\x08\x07\x06\x05\x04\x03\x02\x01"
                                "\x04\0\0\0ab\0c"
                                "\x02\0\0\0/x"
                                "\0\0\0\0"
                                "raw"s;

// Everything that EveryKind holds, with values that tell whether they were read.
struct Values {
  unsigned char Byte = 0x11;
  signed char Signed = 0x22;
  unsigned int Unsigned = 0x33333333;
  int Integer = 0x44444444;
  std::uint64_t Long = 0x5555555555555555;
  String Text = "untouched";
  Path File = "untouched";
  String Empty = "untouched";
  std::string Raw = "???";
};

// Reads what it can; the number of values read.
int Read(InStream& stream, Values& values) {
  int count = 0;
  try {
    stream.Get(values.Byte);
    ++count;
    stream.Get(values.Signed);
    ++count;
    stream.Get(values.Unsigned);
    ++count;
    stream.Get(values.Integer);
    ++count;
    stream.Get(values.Long);
    ++count;
    stream.Get(values.Text);
    ++count;
    stream.Get(values.File);
    ++count;
    stream.Get(values.Empty);
    ++count;
    stream.GetBytes(values.Raw.data(), values.Raw.size());
    ++count;
  } catch (Exception* exception) {
    EXPECT_EQ(exception->Code(), k_ErrorStream);
    delete exception;
  }
  return count;
}

TEST(Stream, ValuesAreLittleEndianOfFixedWidth) {
  EXPECT_EQ(EveryKind().Bytes(), k_EveryKind);
}

TEST(Stream, ValuesAreReadBack) {
  InStream stream(k_EveryKind);
  Values values;
  EXPECT_EQ(Read(stream, values), 9);
  EXPECT_EQ(values.Byte, 0xFE);
  EXPECT_EQ(values.Signed, -2);
  EXPECT_EQ(values.Unsigned, 0x01020304U);
  EXPECT_EQ(values.Integer, -2);
  EXPECT_EQ(values.Long, 0x0102030405060708U);
  EXPECT_EQ(values.Text, String("ab\0c", 4));
  EXPECT_EQ(values.File.Text(), "/x");
  EXPECT_EQ(values.Empty, "");
  EXPECT_EQ(values.Raw, "raw");
  EXPECT_TRUE(stream.AtEnd());
  EXPECT_EQ(stream.Left(), 0U);
}

TEST(Stream, ACutAtAnyByteRaisesAndLeavesTheArgument) {
  static const std::vector<std::size_t> k_Ends = {1, 2, 6, 10, 18, 26, 32, 36, 39};
  const Values untouched;
  for (std::size_t cut = 0; cut < k_EveryKind.size(); ++cut) {
    // A copy of its own size, so that a read beyond the end is seen.
    const std::vector<char> bytes(k_EveryKind.begin(),
                                  k_EveryKind.begin() + static_cast<std::ptrdiff_t>(cut));
    InStream stream(std::string_view(bytes.data(), bytes.size()));
    Values values;
    const auto expected =
        std::count_if(k_Ends.begin(), k_Ends.end(), [cut](std::size_t end) { return end <= cut; });
    ASSERT_EQ(Read(stream, values), expected) << cut;
    const std::size_t start = expected == 0 ? 0 : k_Ends[static_cast<std::size_t>(expected) - 1];
    EXPECT_EQ(stream.Left(), cut - start) << cut;
    EXPECT_EQ(values.Byte == untouched.Byte, expected < 1);
    EXPECT_EQ(values.Signed == untouched.Signed, expected < 2);
    EXPECT_EQ(values.Unsigned == untouched.Unsigned, expected < 3);
    EXPECT_EQ(values.Integer == untouched.Integer, expected < 4);
    EXPECT_EQ(values.Long == untouched.Long, expected < 5);
    EXPECT_EQ(values.Text == untouched.Text, expected < 6);
    EXPECT_EQ(values.File == untouched.File, expected < 7);
    EXPECT_EQ(values.Empty == untouched.Empty, expected < 8);
    EXPECT_EQ(values.Raw, untouched.Raw);
  }
}

TEST(Stream, AnEarlyEndIsToldWithPlaceAndSize) {
  const std::string bytes = "\1\2\3\4\5\6";
  InStream stream(bytes);
  unsigned int number = 0;
  stream.Get(number);
  EXPECT_EQ(RaisedText([&] { stream.Get(number); }), "the stream ends early: 4 bytes wanted at 4, 2 left");
}

TEST(Stream, AHostileLengthAllocatesNothing) {
  const std::string bytes = "\xFF\xFF\xFF\xFFrest"s;
  InStream stream(bytes);
  String text = "untouched";
  StartAllocationWatch();
  const String raised = RaisedText([&] { stream.Get(text); });
  EXPECT_LE(LargestAllocation(), 4096U);
  EXPECT_EQ(raised, "the stream ends early: a text of 4294967295 bytes at 0, 4 left");
  EXPECT_EQ(text, "untouched");
  Path path = "untouched";
  EXPECT_EQ(RaisedText([&] { stream.Get(path); }), raised);
  EXPECT_EQ(path.Text(), "untouched");
  EXPECT_EQ(stream.Left(), 8U);
}

TEST(Stream, ALengthOneTooLargeRaises) {
  const std::string bytes = "\3\0\0\0ab"s;
  InStream stream(bytes);
  String text;
  EXPECT_EQ(RaisedText([&] { stream.Get(text); }), "the stream ends early: a text of 3 bytes at 0, 2 left");
}

TEST(Stream, NoBytesMayBePutAndTaken) {
  OutStream out;
  out.PutBytes(nullptr, 0);
  EXPECT_EQ(out.Bytes(), "");
  InStream in("");
  in.GetBytes(nullptr, 0);
  EXPECT_TRUE(in.AtEnd());
  char byte = 0;
  EXPECT_EQ(RaisedText([&] { in.GetBytes(&byte, 1); }), "the stream ends early: 1 bytes wanted at 0, 0 left");
}

TEST(Stream, AnEndlessCountOfBytesRaises) {
  const std::string bytes = "abc";
  InStream stream(bytes);
  unsigned char byte = 0;
  stream.Get(byte);
  char target = 0;
  EXPECT_EQ(RaisedText([&] { stream.GetBytes(&target, std::numeric_limits<std::size_t>::max()); }),
            "the stream ends early: 18446744073709551615 bytes wanted at 1, 2 left");
}

RC_GTEST_PROP(Stream, EveryValueComesBack,
              (unsigned char a, signed char b, unsigned c, int d, std::uint64_t e)) {
  const std::string text = *Texts(0);
  OutStream out;
  out.Put(a);
  out.Put(b);
  out.Put(c);
  out.Put(d);
  out.Put(e);
  out.Put(String(text));
  out.Put(Path(text));
  InStream in(out.Bytes());
  Values values;
  in.Get(values.Byte);
  in.Get(values.Signed);
  in.Get(values.Unsigned);
  in.Get(values.Integer);
  in.Get(values.Long);
  in.Get(values.Text);
  in.Get(values.File);
  RC_ASSERT(in.AtEnd());
  RC_ASSERT(values.Byte == a);
  RC_ASSERT(values.Signed == b);
  RC_ASSERT(values.Unsigned == c);
  RC_ASSERT(values.Integer == d);
  RC_ASSERT(values.Long == e);
  RC_ASSERT(values.Text == text);
  RC_ASSERT(values.File.Text() == text);
}

} // namespace
