// Unformatted sequential records: the bytes of the file for every item
// entry, lists shorter and longer than their records, records of every
// size around the unit's buffers on regular files and pipes, torn and
// foreign files, and the turn from reading to writing.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "support/child.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "unformatted/unformatted_statements.h"

using namespace qal;
using namespace qal::test;

namespace {

class Unformatted : public ::testing::Test {
 protected:
  void TearDown() override {
    for (int unit : {10, 11, 12, 13}) close_unit(unit);
  }
  // Unit `unit` on `name`, sequential unformatted; `buffer` is a FILEOPT
  // block size (0: the file's own).
  void open(int64_t unit, const std::string& name, int buffer = 0, const char* status = nullptr) {
    Open o(unit);
    o.file(name).form("UNFORMATTED");
    if (status) o.status(status);
    std::string option = "BUFFER=" + std::to_string(buffer);
    if (buffer) o.fileopt(option.c_str());
    ASSERT_EQ(o.run(), 0);
  }
  ScratchDir dir_;
};

using RecordLayout = Unformatted;
using RecordSizes = Unformatted;
using DamagedFiles = Unformatted;
using ReadThenWrite = Unformatted;

// A record's payload split into items the way a compiled list might:
// scalars of 1 to 32 bytes and blocks of any size.
struct Split {
  std::vector<size_t> pieces;
};

Split random_split(size_t n, std::mt19937_64& rng) {
  static const size_t kScalars[] = {1, 2, 4, 8, 16, 32};
  Split s;
  while (n > 0) {
    size_t k;
    if (rng() % 3 == 0) {
      k = 1 + rng() % (rng() % 4 == 0 ? n : 300);
    } else {
      k = kScalars[rng() % 6];
    }
    if (k > n) k = n;
    s.pieces.push_back(k);
    n -= k;
  }
  return s;
}

// Writes `payload` as one record through scalar entries and _n blocks.
int write_record(int64_t unit, const std::string& payload, std::mt19937_64& rng) {
  UnformattedWrite w(unit);
  w.start();
  size_t at = 0;
  for (size_t k : random_split(payload.size(), rng).pieces) {
    const char* p = payload.data() + at;
    switch (k) {
      case 1:
        w.i1(static_cast<int8_t>(*p));
        break;
      case 2: {
        int16_t v;
        memcpy(&v, p, 2);
        w.i2(v);
        break;
      }
      case 4: {
        float v;
        memcpy(&v, p, 4);
        w.r4(v);
        break;
      }
      case 8: {
        int64_t v;
        memcpy(&v, p, 8);
        w.i8(v);
        break;
      }
      case 16:
        w.r16_ref(p);
        break;
      case 32:
        w.c16(p);
        break;
      default:
        w.bytes(p, static_cast<int64_t>(k));
    }
    at += k;
  }
  return w.end();
}

// Reads one record of `n` bytes back through a random split.
std::string read_record(int64_t unit, size_t n, std::mt19937_64& rng, int* status) {
  std::string got(n, '\0');
  UnformattedRead r(unit);
  r.start();
  size_t at = 0;
  for (size_t k : random_split(n, rng).pieces) {
    if (k == 1 || k == 2 || k == 4 || k == 8 || k == 16 || k == 32)
      r.item(&got[at], static_cast<int>(k));
    else
      r.bytes(&got[at], static_cast<int64_t>(k));
    at += k;
  }
  *status = r.end();
  return got;
}

std::string random_bytes(size_t n, std::mt19937_64& rng) {
  std::string s(n, '\0');
  for (char& c : s) c = static_cast<char>(rng());
  return s;
}

// Sizes that put record ends and starts on every byte around the edges of
// a 1024-byte buffer and its 65472-byte secondary block, and beyond both.
std::vector<size_t> edge_sizes(std::mt19937_64& rng) {
  std::vector<size_t> sizes;
  for (size_t k = 1000; k <= 1020; ++k) sizes.push_back(k);
  for (size_t k = 0; k < 12; ++k) sizes.push_back(k);
  for (size_t k = 65460; k < 65480; k += 3) sizes.push_back(k);
  sizes.push_back(1024 + 65472 - 8);
  sizes.push_back(1024 + 65472 + 1);
  sizes.push_back(200000 + rng() % 1000);
  sizes.push_back(3 * 65472 + 5);
  for (int i = 0; i < 40; ++i) sizes.push_back(rng() % 3000);
  return sizes;
}

}  // namespace

TEST_F(RecordLayout, EveryItemEntryThenAnEmptyRecord) {
  open(10, "f.dat");
  const uint64_t quad[2] = {0x0123456789abcdefULL, 0x3fff000011112222ULL};
  const float c4[2] = {1.5f, -2.0f};
  const double c8[2] = {3.25, -0.5};
  const uint64_t c16[4] = {1, 2, 3, 4};
  const int32_t pads[8] = {3, 3, 3, 3, 3, 3, 3, 3};
  UnformattedWrite w(10);
  w.start().i4(1).r8(2.0);
  ASSERT_EQ(w.end(), 0);
  UnformattedWrite all(10);
  all.start()
      .i1(-1)
      .i2(0x1234)
      .i4(-5)
      .i8(0x1122334455667788LL)
      .r4(0.5f)
      .r8(-1.0)
      .r16(quad[0], quad[1])
      .r16_ref(quad)
      .c4(c4)
      .c8(c8)
      .c16(c16)
      .ia8(c4)
      .ia16(c8)
      .ia32(c16)
      .pad(pads)
      .text("xyz");
  ASSERT_EQ(all.end(), 0);
  ASSERT_EQ(UnformattedWrite(10).start().end(), 0);
  close_unit(10);

  // WRITE(u) 1, 2.0D0 is 0C000000 01000000 0000000000000040 0C000000.
  const std::string first("\x0c\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\x40\x0c\0\0\0", 20);
  std::string second = bytes_of(int8_t{-1}) + bytes_of(int16_t{0x1234}) + bytes_of(int32_t{-5}) +
                       bytes_of(int64_t{0x1122334455667788LL}) + bytes_of(0.5f) + bytes_of(-1.0) +
                       bytes_of(quad) + bytes_of(quad) + bytes_of(c4) + bytes_of(c8) +
                       bytes_of(c16) + bytes_of(c4) + bytes_of(c8) + bytes_of(c16) +
                       std::string(3, '\0') + "xyz";
  EXPECT_EQ(dir_.read("f.dat"), first + records_file({second}) + std::string(8, '\0'));

  // Back in again by size; a statement without items passes over its
  // record, one with an item on the empty record is 1010.
  open(10, "f.dat");
  int32_t i = 0;
  double d = 0;
  UnformattedRead r(10);
  ASSERT_EQ(r.start().value(&i).value(&d).end(), 0);
  EXPECT_EQ(i, 1);
  EXPECT_EQ(d, 2.0);
  ASSERT_EQ(UnformattedRead(10).start().end(), 0);
  EXPECT_EQ(UnformattedRead(10).start().value(&i).end(), ERR_RECORD_TOO_LONG);
  EXPECT_EQ(UnformattedRead(10).start().end(), ERR_END_OF_FILE);
}

TEST_F(RecordLayout, ListsShorterAndLongerThanTheRecord) {
  const std::string long_one = std::string(100000, 'z') + "end";
  dir_.write("f.dat", records_file({"abcdef", long_one, "ghij", "k", "lmnopq"}));
  open(10, "f.dat");
  char two[2];
  // The rest of a record is passed over, however long.
  ASSERT_EQ(UnformattedRead(10).start().value(&two).end(), 0);
  EXPECT_EQ(std::string(two, 2), "ab");
  ASSERT_EQ(UnformattedRead(10).start().value(&two).end(), 0);
  EXPECT_EQ(std::string(two, 2), "zz");
  int32_t i = 0, j = 0;
  ASSERT_EQ(UnformattedRead(10).start().value(&i).end(), 0);
  EXPECT_EQ(bytes_of(i), "ghij");
  // The bytes the record has stay in the item that wanted more.
  UnformattedRead longer(10);
  EXPECT_EQ(longer.start().value(&i).end(), ERR_RECORD_TOO_LONG);
  EXPECT_EQ(bytes_of(i)[0], 'k');
  char six[6];
  UnformattedRead next(10);
  EXPECT_EQ(next.start().item(&six[0], 4).item(&six[4], 2).end(), 0);
  EXPECT_EQ(std::string(six, 6), "lmnopq");
  UnformattedRead after(10);
  EXPECT_EQ(after.start().value(&j).end(), ERR_END_OF_FILE);
}

TEST_F(RecordSizes, RegularFilesAtEveryEdgeOfTheBuffers) {
  std::mt19937_64 rng(17);
  for (int buffer : {64, 0}) {
    const std::vector<size_t> sizes = edge_sizes(rng);
    std::vector<std::string> records;
    for (size_t n : sizes) records.push_back(random_bytes(n, rng));
    open(10, "f.dat", buffer, "REPLACE");
    for (const std::string& r : records) {
      ASSERT_EQ(write_record(10, r, rng), 0);
      // The file is written in whole blocks only; the rest waits.
      struct stat st;
      ASSERT_EQ(fstat(__f90_small_unit_pointer_table[10]->fd, &st), 0);
      if (buffer) {
        ASSERT_EQ(st.st_size % buffer, 0) << r.size();
      }
    }
    close_unit(10);
    ASSERT_EQ(dir_.read("f.dat"), records_file(records)) << "buffer " << buffer;
    open(10, "f.dat", buffer);
    for (const std::string& r : records) {
      int status = 0;
      ASSERT_EQ(read_record(10, r.size(), rng, &status), r);
      ASSERT_EQ(status, 0);
    }
    EXPECT_EQ(UnformattedRead(10).start().end(), ERR_END_OF_FILE);
    close_unit(10);
  }
  // A record starting 0 to 5 bytes before the end of a fresh 1024-byte
  // buffer, its marker split or not, kept in memory to its end or gone to
  // the file before it; then one that goes to the file.
  for (size_t free_bytes = 0; free_bytes <= 5; ++free_bytes)
    for (size_t second : {3000, 70000}) {
      const std::vector<std::string> records{random_bytes(1016 - free_bytes, rng),
                                             random_bytes(second, rng), random_bytes(200000, rng),
                                             "end"};
      open(10, "f.dat", 64, "REPLACE");
      for (const std::string& r : records) ASSERT_EQ(write_record(10, r, rng), 0);
      close_unit(10);
      ASSERT_EQ(dir_.read("f.dat"), records_file(records)) << free_bytes << " " << second;
    }
}

// On a pipe nothing can be taken back: a record reaches it only at its end
// entry, head, payload and trailer in order, however long it is.
TEST_F(RecordSizes, PipesGetWholeRecordsAtTheEnd) {
  ASSERT_EQ(mkfifo(dir_.file("pipe").c_str(), 0600), 0);
  const int in = ::open(dir_.file("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(in, 0);
  Open o(11);
  ASSERT_EQ(o.file("pipe").form("UNFORMATTED").action("WRITE").fileopt("BUFFER=64").run(), 0);
  std::mt19937_64 rng(5);
  const std::string big = random_bytes(3 * 65472 + 100, rng);
  UnformattedWrite w(11);
  w.start();
  for (size_t at = 0; at < big.size(); at += 1000)
    w.bytes(big.data() + at, static_cast<int64_t>(std::min<size_t>(1000, big.size() - at)));
  ASSERT_EQ(w.status(), 0);
  pollfd p{in, POLLIN, 0};
  EXPECT_EQ(poll(&p, 1, 0), 0) << "bytes reached the pipe before the record's end";

  std::string received;
  std::thread reader([&] {
    fcntl(in, F_SETFL, 0);
    char chunk[65536];
    for (ssize_t n; (n = read(in, chunk, sizeof chunk)) > 0;) received.append(chunk, n);
  });
  EXPECT_EQ(w.end(), 0);
  std::vector<std::string> records{big};
  for (size_t n : edge_sizes(rng)) {
    records.push_back(random_bytes(n, rng));
    EXPECT_EQ(write_record(11, records.back(), rng), 0);
  }
  close_unit(11);
  reader.join();
  close(in);
  EXPECT_TRUE(received == records_file(records));
}

TEST_F(DamagedFiles, TornMarkersTruncatedPayloadsAndForeignLengths) {
  int32_t i = 0;
  // A marker cut short after 0 to 3 bytes is the end of the file.
  for (int cut = 0; cut < 4; ++cut) {
    dir_.write("f.dat", records_file({"abcd"}) + marker(4).substr(0, cut));
    open(10, "f.dat");
    ASSERT_EQ(UnformattedRead(10).start().value(&i).end(), 0);
    EXPECT_EQ(UnformattedRead(10).start().value(&i).end(), ERR_END_OF_FILE) << cut;
    close_unit(10);
  }
  // A payload cut short: end of file in an item; at the end entry, end of
  // file, or in the old dialect's reads 1010.
  dir_.write("f.dat", marker(8) + "abcdef");
  open(10, "f.dat");
  int64_t wide = 0;
  EXPECT_EQ(UnformattedRead(10).start().value(&wide).end(), ERR_END_OF_FILE);
  close_unit(10);
  open(10, "f.dat");
  EXPECT_EQ(UnformattedRead(10).start().value(&i).end(), ERR_END_OF_FILE);
  close_unit(10);
  open(10, "f.dat");
  EXPECT_EQ(UnformattedRead(10, kReturnAll | SF_F77_READ).start().value(&i).end(),
            ERR_RECORD_TOO_LONG);
  close_unit(10);
  // A record longer than the file's rest, read past its end under the
  // statement's own flag: the marker skip that meets the end is 1010.
  dir_.write("f.dat", marker(2) + "ab" + "x");
  open(10, "f.dat");
  EXPECT_EQ(UnformattedRead(10, kReturnAll | SF_SHORT_FILE_IS_TOO_LONG).start().value(&i).end(),
            ERR_RECORD_TOO_LONG);
  close_unit(10);
  // A negative length sets no limit: items read on until the file ends,
  // and the end entry passes over nothing.
  dir_.write("f.dat", marker(0xfffffff0u) + "abcdefghijkl");
  open(10, "f.dat");
  char eight[8], more[8];
  UnformattedRead r(10);
  ASSERT_EQ(r.start().value(&eight).end(), 0);
  EXPECT_EQ(std::string(eight, 8), "abcdefgh");
  EXPECT_EQ(UnformattedRead(10).start().value(&more).end(), ERR_END_OF_FILE);
}

// A write after reads starts at the record behind the last one read and
// cuts the file there; a stream file keeps what lies behind.
TEST_F(ReadThenWrite, SequentialCutsStreamKeeps) {
  dir_.write("f.dat", records_file({"one.", "two.", "three"}));
  open(10, "f.dat");
  int32_t i = 0;
  ASSERT_EQ(UnformattedRead(10).start().value(&i).end(), 0);
  ASSERT_EQ(UnformattedWrite(10).start().i2(0x4241).end(), 0);
  close_unit(10);
  EXPECT_EQ(dir_.read("f.dat"), records_file({"one.", "AB"}));

  dir_.write("s.dat", "0123456789");
  Open o(11);
  ASSERT_EQ(o.file("s.dat").form("UNFORMATTED").access("STREAM").run(), 0);
  ASSERT_EQ(UnformattedRead(11).start().value(&i).end(), 0);
  ASSERT_EQ(UnformattedWrite(11).start().i2(0x4241).end(), 0);
  close_unit(11);
  EXPECT_EQ(dir_.read("s.dat"), "0123AB6789");
}

// 2147483647 payload bytes are a record; one more is 1010, whichever entry
// brings it (the count is set by hand rather than written out).
TEST_F(RecordLayout, TheLengthLimit) {
  open(10, "f.dat");
  const int32_t pads[8] = {2, 2, 2, 2, 2, 2, 2, 2};
  for (int entry = 0; entry < 3; ++entry) {
    UnformattedWrite w(10);
    w.start();
    w.statement().record_written = 2147483647 - 2;
    w.i2(1);
    EXPECT_EQ(w.status(), 0);
    if (entry == 0) w.i1(1);
    if (entry == 1) w.text("x");
    if (entry == 2) w.pad(pads);
    EXPECT_EQ(w.end(), ERR_RECORD_TOO_LONG) << entry;
  }
  // The failed statements left nothing behind.
  ASSERT_EQ(UnformattedWrite(10).start().i1(7).end(), 0);
  close_unit(10);
  EXPECT_EQ(dir_.read("f.dat"), records_file({"\x07"}));
}
