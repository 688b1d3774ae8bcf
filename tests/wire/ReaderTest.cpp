#include "wire/Reader.h"

#include <gtest/gtest.h>

#include "tests/wire/WireSupport.h"
#include "wire/Writer.h"

namespace pimbsr::wire::test {
namespace {

TEST(Reader, ReadsNumbersInNetworkByteOrder) {
  Buffer const bytes = hex("01 0203 04050607 f809");
  Reader in(bytes);
  EXPECT_EQ(in.u8(), 0x01);
  EXPECT_EQ(in.u16(), 0x0203);
  EXPECT_EQ(in.u32(), 0x04050607u);
  EXPECT_EQ(in.u16(), 0xf809);
  EXPECT_EQ(in.left(), 0u);
  EXPECT_TRUE(in.ok()) << "reading up to the end is no error";
}

TEST(Reader, GivesZeroForWhatIsCutAndStaysBad) {
  Buffer const bytes = hex("ff ffff");
  Reader in(bytes);
  EXPECT_EQ(in.u32(), 0u);
  EXPECT_FALSE(in.ok());
  EXPECT_EQ(in.u8(), 0) << "a smaller read after a failed one would misread the packet";
  EXPECT_EQ(in.left(), 0u);
  EXPECT_FALSE(in.ok());
}

TEST(Reader, TakesExactlyTheBytesAskedFor) {
  Buffer const bytes = hex("010203");
  Reader in(bytes);
  EXPECT_EQ(in.bytes(2).size(), 2u);
  EXPECT_TRUE(in.bytes(0).empty());
  EXPECT_TRUE(in.ok());
  EXPECT_EQ(in.rest().front(), 3);
  EXPECT_TRUE(in.bytes(2).empty());
  EXPECT_FALSE(in.ok());
}

TEST(Reader, OfNothingHasNothing) {
  Reader in{Bytes{}};
  EXPECT_TRUE(in.ok());
  EXPECT_EQ(in.u8(), 0);
  EXPECT_FALSE(in.ok());
}

TEST(Writer, WritesWhatTheReaderReads) {
  Buffer out = hex("aa");
  Writer writer(out);
  writer.u8(0x01);
  writer.u16(0x0203);
  writer.u32(0x04050607);
  EXPECT_EQ(out, hex("aa 01 0203 04050607")) << "the buffer's former content stays";
  EXPECT_EQ(writer.position(), 8u);
  writer.u16At(2, 0xf00d);
  EXPECT_EQ(out, hex("aa 01 f00d 04050607"));
}

TEST(WriterDeath, OverwritesOnlyWhatIsWritten) {
  Buffer out = hex("0000");
  EXPECT_DEATH(Writer(out).u16At(1, 1), "only what is written can be overwritten");
}

}  // namespace
}  // namespace pimbsr::wire::test
