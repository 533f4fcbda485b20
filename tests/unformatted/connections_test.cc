// Unformatted transfer on the connections around plain sequential files:
// byte-swapped units, stream and FORM='BINARY' files with and without POS=,
// the checks of the start entries, fatal reports, and a file system that
// refuses bytes in the middle of a record.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "gtest/gtest.h"
#include "support/child.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "unformatted/unformatted_statements.h"

using namespace qal;
using namespace qal::test;

namespace {

class Connections : public ::testing::Test {
 protected:
  void TearDown() override {
    for (int unit : {10, 11, 12, 13, 20}) close_unit(unit);
  }
  static Unit* unit(int64_t n) { return __f90_small_unit_pointer_table[n]; }
  ScratchDir dir_;
};

using ByteSwapped = Connections;
using StreamFiles = Connections;
using StartChecks = Connections;
using FileFaults = Connections;

std::string reversed(std::string s) { return std::string(s.rbegin(), s.rend()); }

}  // namespace

// Markers and numbers big-endian, complex and interval items by component,
// _n blocks by their element size; single bytes, never-swapped blocks and
// character data as they are.
TEST_F(ByteSwapped, MarkersAndDataInTheOtherOrder) {
  ASSERT_EQ(Open(10).file("f.dat").form("UNFORMATTED").run(), 0);
  unit(10)->flags2 |= UF2_BYTE_SWAP;
  const float c4[2] = {1.5f, -2.0f};
  const uint64_t quad[2] = {0x0123456789abcdefULL, 0x3fff000011112222ULL};
  const uint64_t c16[4] = {1, 2, 3, 4};
  const int32_t block[3] = {1, 2, 3};
  UnformattedWrite w(10);
  w.start()
      .i1(5)
      .i2(0x0102)
      .i8(0x0102030405060708LL)
      .c4(c4)
      .r16_ref(quad)
      .c16(c16)
      .ia8(c4)
      .bytes(block, 12, 2)
      .bytes(block, 12, 2, SF_ITEM_CLASS_NEVER_SWAPPED)
      .text("text");
  ASSERT_EQ(w.end(), 0);
  EXPECT_EQ(UnformattedWrite(10).start().bytes(block, 4, 2, SF_ITEM_CLASS_UNION).end(),
            ERR_UNION_INCOMPATIBLE);
  close_unit(10);
  const std::string payload =
      std::string(1, 5) + reversed(bytes_of(int16_t{0x0102})) +
      reversed(bytes_of(int64_t{0x0102030405060708LL})) + reversed(bytes_of(c4[0])) +
      reversed(bytes_of(c4[1])) + reversed(bytes_of(quad)) + reversed(bytes_of(c16).substr(0, 16)) +
      reversed(bytes_of(c16).substr(16)) + reversed(bytes_of(c4[0])) + reversed(bytes_of(c4[1])) +
      reversed(bytes_of(block[0])) + reversed(bytes_of(block[1])) + reversed(bytes_of(block[2])) +
      bytes_of(block) + "text";
  ASSERT_EQ(dir_.read("f.dat"), records_file({payload}, true));

  // Back again: each read entry reverses by its size, _16 as one REAL*16,
  // _32 as two; _n by its element size.
  ASSERT_EQ(Open(10).file("f.dat").form("UNFORMATTED").run(), 0);
  unit(10)->flags2 |= UF2_BYTE_SWAP;
  int8_t i1;
  int16_t i2;
  int64_t i8;
  float c4_in[2], ia8_in[2];
  uint64_t quad_in[2], c16_in[4];
  int32_t block_in[3], kept[3];
  char text[4];
  UnformattedRead r(10);
  r.start()
      .value(&i1)
      .value(&i2)
      .value(&i8)
      .bytes(c4_in, 8, 2)
      .value(&quad_in)
      .value(&c16_in)
      .bytes(ia8_in, 8, 2)
      .bytes(block_in, 12, 2)
      .bytes(kept, 12, 2, SF_ITEM_CLASS_NEVER_SWAPPED)
      .bytes(text, 4);
  ASSERT_EQ(r.end(), 0);
  EXPECT_EQ(i1, 5);
  EXPECT_EQ(i2, 0x0102);
  EXPECT_EQ(i8, 0x0102030405060708LL);
  EXPECT_EQ(bytes_of(c4_in), bytes_of(c4));
  EXPECT_EQ(bytes_of(quad_in), bytes_of(quad));
  EXPECT_EQ(bytes_of(c16_in), bytes_of(c16));
  EXPECT_EQ(bytes_of(ia8_in), bytes_of(c4));
  EXPECT_EQ(bytes_of(block_in), bytes_of(block));
  EXPECT_EQ(bytes_of(kept), bytes_of(block));
  EXPECT_EQ(std::string(text, 4), "text");
}

// A UNION goes to a file in the machine's order only where the unit's
// alignment is the compiler's (code 4), and never to a swapped one.
TEST_F(ByteSwapped, UnionsOnlyWhereTheLayoutIsTheCompilers) {
  ASSERT_EQ(Open(10).file("f.dat").form("UNFORMATTED").run(), 0);
  Unit* u = unit(10);
  const char bytes[4] = {1, 2, 3, 4};
  u->flags2 = (u->flags2 & ~UF2_ALIGNMENT) | (4u << 10);
  EXPECT_EQ(UnformattedWrite(10).start().bytes(bytes, 4, 2, SF_ITEM_CLASS_UNION).end(), 0);
  u->flags2 = (u->flags2 & ~UF2_ALIGNMENT) | (2u << 10);
  EXPECT_EQ(UnformattedWrite(10).start().bytes(bytes, 4, 2, SF_ITEM_CLASS_UNION).end(),
            ERR_UNION_INCOMPATIBLE);
  close_unit(10);
  EXPECT_EQ(dir_.read("f.dat"), records_file({std::string(bytes, 4)}));
  ASSERT_EQ(Open(10).file("f.dat").form("UNFORMATTED").run(), 0);
  char in[4];
  unit(10)->flags2 |= UF2_BYTE_SWAP;
  EXPECT_EQ(UnformattedRead(10).start().bytes(in, 4, 2, SF_ITEM_CLASS_UNION).end(),
            ERR_UNION_INCOMPATIBLE);
}

// Padding takes the entry of the table that the unit's alignment code
// selects, in both directions.
TEST_F(ByteSwapped, PaddingByAlignmentCode) {
  ASSERT_EQ(Open(10).file("f.dat").form("UNFORMATTED").run(), 0);
  const int32_t table[8] = {0, 1, 2, 3, 4, 5, 6, 7};
  unit(10)->flags2 = (unit(10)->flags2 & ~UF2_ALIGNMENT) | (3u << 10);
  ASSERT_EQ(UnformattedWrite(10).start().i1(1).pad(table).i1(2).end(), 0);
  close_unit(10);
  EXPECT_EQ(dir_.read("f.dat"), records_file({std::string("\x01\0\0\0\x02", 5)}));
  ASSERT_EQ(Open(10).file("f.dat").form("UNFORMATTED").run(), 0);
  unit(10)->flags2 = (unit(10)->flags2 & ~UF2_ALIGNMENT) | (3u << 10);
  int8_t a = 0, b = 0;
  ASSERT_EQ(UnformattedRead(10).start().value(&a).pad(table).value(&b).end(), 0);
  EXPECT_EQ(b, 2);
}

TEST_F(StreamFiles, NoMarkersAndPositionsBothWays) {
  ASSERT_EQ(Open(10).file("s.dat").form("UNFORMATTED").access("STREAM").run(), 0);
  ASSERT_EQ(UnformattedWrite(10).start().i4(0x64636261).end(), 0);
  // Past the end on a write: the gap holds zeros.
  ASSERT_EQ(UnformattedWrite(10).start_at(9).i2(0x6665).end(), 0);
  ASSERT_EQ(UnformattedWrite(10).start_at(2).i1('X').end(), 0);
  EXPECT_EQ(UnformattedWrite(10).start_at(0).i1('X').end(), ERR_BAD_POS);
  char two[2], six[6];
  ASSERT_EQ(UnformattedRead(10).start_at(9).value(&two).end(), 0);
  EXPECT_EQ(std::string(two, 2), "ef");
  ASSERT_EQ(UnformattedRead(10).start_at(1).bytes(six, 6).end(), 0);
  EXPECT_EQ(std::string(six, 6), std::string("aXcd\0\0", 6));
  // Reads stop only at the file's end; POS= may name the byte behind it,
  // not one further.
  int64_t i;
  EXPECT_EQ(UnformattedRead(10).start().value(&i).end(), ERR_END_OF_FILE);
  EXPECT_EQ(UnformattedRead(10).start_at(11).value(&two).end(), ERR_END_OF_FILE);
  EXPECT_EQ(UnformattedRead(10).start_at(12).end(), ERR_BAD_POS);
  close_unit(10);
  EXPECT_EQ(dir_.read("s.dat"), std::string("aXcd\0\0\0\0ef", 10));

  // A read larger than the buffer comes straight into the item.
  std::string big(300000, '\0');
  for (size_t k = 0; k < big.size(); ++k) big[k] = static_cast<char>(k * 7);
  dir_.write("big.dat", big);
  ASSERT_EQ(Open(11).file("big.dat").form("UNFORMATTED").access("STREAM").run(), 0);
  std::string in(big.size(), '\0');
  char first;
  ASSERT_EQ(UnformattedRead(11).start().value(&first).bytes(&in[1], 299999).end(), 0);
  in[0] = first;
  EXPECT_TRUE(in == big);
}

// FORM='BINARY' of the old dialect: sequential, no markers.
TEST_F(StreamFiles, BinaryFormHasNoMarkers) {
  ASSERT_EQ(Open(10).f77().file("b.dat").form("BINARY").run(), 0);
  ASSERT_EQ(UnformattedWrite(10).start().i2(0x3231).end(), 0);
  ASSERT_EQ(UnformattedWrite(10).start().end(), 0);
  ASSERT_EQ(UnformattedWrite(10).start().text("345").end(), 0);
  close_unit(10);
  EXPECT_EQ(dir_.read("b.dat"), "12345");
  ASSERT_EQ(Open(10).f77().file("b.dat").form("BINARY").run(), 0);
  char three[3];
  ASSERT_EQ(UnformattedRead(10).start().bytes(three, 3).end(), 0);
  ASSERT_EQ(UnformattedRead(10).start().value(&three[0]).value(&three[1]).end(), 0);
  EXPECT_EQ(std::string(three, 2), "45");
  EXPECT_EQ(UnformattedRead(10).start().value(&three[0]).end(), ERR_END_OF_FILE);
}

TEST_F(StartChecks, ConnectionsThatRefuseTheStatement) {
  int32_t i;
  ASSERT_EQ(Open(10).file("t.txt").run(), 0);
  EXPECT_EQ(UnformattedWrite(10).start().end(), ERR_UNFORMATTED_ON_FORMATTED);
  EXPECT_EQ(UnformattedRead(10).start().end(), ERR_UNFORMATTED_ON_FORMATTED);
  ASSERT_EQ(Open(11).file("d.dat").form("UNFORMATTED").access("DIRECT").recl(8).run(), 0);
  EXPECT_EQ(UnformattedWrite(11).start().end(), ERR_SEQUENTIAL_ON_DIRECT);
  EXPECT_EQ(UnformattedRead(11).start().end(), ERR_SEQUENTIAL_ON_DIRECT);
  dir_.write("r.dat", records_file({"abcd"}));
  ASSERT_EQ(Open(12).file("r.dat").form("UNFORMATTED").action("READ").run(), 0);
  EXPECT_EQ(UnformattedWrite(12).start().end(), ERR_WRITING_NOT_ALLOWED);
  ASSERT_EQ(Open(13).file("w.dat").form("UNFORMATTED").action("WRITE").run(), 0);
  EXPECT_EQ(UnformattedRead(13).start().end(), ERR_READING_NOT_ALLOWED);
  // The default units are formatted; with POS= they are refused first.
  EXPECT_EQ(UnformattedWrite(-1, kReturnAll | SF_DEFAULT_UNIT).start().end(),
            ERR_UNFORMATTED_ON_FORMATTED);
  EXPECT_EQ(UnformattedRead(-1, kReturnAll | SF_DEFAULT_UNIT).start_at(1).end(),
            ERR_STREAM_DEFAULT_UNIT);
  // POS= needs a stream unit that is connected already.
  EXPECT_EQ(UnformattedWrite(12).start_at(1).end(), ERR_WRITING_NOT_ALLOWED);
  EXPECT_EQ(UnformattedRead(12).start_at(1).end(), ERR_STREAM_ON_RECORD_UNIT);
  EXPECT_EQ(UnformattedWrite(30).start_at(1).end(), ERR_STREAM_UNCONNECTED);
  EXPECT_FALSE(dir_.exists("fort.30"));
  // An unconnected unit is connected to fort.N for unformatted records.
  ASSERT_EQ(UnformattedWrite(20).start().i4(7).end(), 0);
  close_unit(20);
  EXPECT_EQ(dir_.read("fort.20"), records_file({bytes_of(int32_t{7})}));
  ASSERT_EQ(UnformattedRead(20).start().value(&i).end(), 0);
  EXPECT_EQ(i, 7);
  // Each failure released its unit: the units still serve.
  ASSERT_EQ(UnformattedRead(12).start().value(&i).end(), 0);
  EXPECT_EQ(bytes_of(i), "abcd");
}

TEST_F(StartChecks, FatalReportsNameTheUnitAndFile) {
  ASSERT_EQ(Open(10).file("f.dat").form("UNFORMATTED").run(), 0);
  ChildResult r = run_in_child([] {
    UnformattedWrite w(10, 0);
    w.start();
    w.statement().record_written = 2147483647;
    w.i1(1);
  });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err, kBanner +
                       " Error 1010:  record too long\n"
                       " Location:  the WRITE statement at line 7 of \"test.f90\"\n"
                       " Unit:  10\n File:  f.dat\n");
  r = run_in_child([] {
    int32_t i;
    UnformattedRead(10, 0).start().value(&i).end();
  });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err, kBanner +
                       " End-of-file:  -1\n"
                       " Location:  the READ statement at line 9 of \"test.f90\"\n"
                       " Unit:  10\n File:  f.dat\n");
}

// A device that takes nothing: the errno comes back, and the unit goes on.
TEST_F(FileFaults, FullDeviceAndFileSizeLimit) {
  ASSERT_EQ(Open(10).file("/dev/full").form("UNFORMATTED").action("WRITE").run(), 0);
  const std::string big(200000, 'x');
  EXPECT_EQ(UnformattedWrite(10).start().text(big).end(), 28);
  EXPECT_EQ(UnformattedWrite(10).start().i4(1).end(), 0);  // still buffered
  EXPECT_EQ(close_unit(10), 28);

  // A file that may not grow past 100000 bytes: the record that crosses
  // the limit fails with its errno, the ones before it stay whole.
  ChildResult r = run_in_child([] {
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{100000, 100000};
    CHILD_CHECK(setrlimit(RLIMIT_FSIZE, &limit) == 0);
    CHILD_CHECK(Open(11).file("g.dat").form("UNFORMATTED").run() == 0);
    const std::string record(30000, 'r');
    for (int k = 0; k < 3; ++k) CHILD_CHECK(UnformattedWrite(11).start().text(record).end() == 0);
    CHILD_CHECK(UnformattedWrite(11).start().text(record).end() == 27);
    CHILD_CHECK(close_unit(11) == 0);
  });
  ASSERT_TRUE(r.exited && r.exit_code == 0) << r.err;
  const std::string record(30000, 'r');
  const std::string file = dir_.read("g.dat");
  const std::string whole = records_file({record, record, record});
  ASSERT_GE(file.size(), whole.size());
  EXPECT_TRUE(file.compare(0, whole.size(), whole) == 0);
  ASSERT_EQ(Open(11).file("g.dat").form("UNFORMATTED").run(), 0);
  std::string in(30000, '\0');
  for (int k = 0; k < 3; ++k) {
    ASSERT_EQ(UnformattedRead(11).start().bytes(&in[0], 30000).end(), 0);
    EXPECT_TRUE(in == record);
  }
}
