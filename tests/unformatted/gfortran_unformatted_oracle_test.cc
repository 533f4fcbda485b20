// Unformatted files exchanged with gfortran-compiled programs, which use the
// same record layout for records under 2 GiB.  The same records are written
// by a gfortran program and by the library: the two files must be equal
// byte for byte, each side must read the other's file back value for value,
// and so for stream files with POS=, for big-endian files (gfortran's
// CONVERT='BIG_ENDIAN' against the library's byte-swap options), and for
// records the library sends through a pipe.  Skipped where gfortran is
// missing.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

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

bool have_gfortran() { return system("gfortran --version >/dev/null 2>&1") == 0; }

// Byte records of these sizes: around the block sizes of both libraries'
// buffers, a 64 KiB secondary block, and several MiB.
const std::vector<int> kSizes = {1,    4087,  4088,  4089,  4092,   4096,
                                 8192, 65536, 65540, 70000, 3145731};

// The program: "w FILE" writes the records, "r FILE" reads them and checks
// every value, "s FILE" and "t FILE" do the same on a stream file; "be" in
// the mode asks for CONVERT='BIG_ENDIAN'.  Prints "ok" or what differs.
const char* kProgram = R"(
program oracle
  implicit none
  integer, parameter :: nsizes = 11
  integer :: sizes(nsizes) = [1, 4087, 4088, 4089, 4092, 4096, 8192, 65536, 65540, 70000, 3145731]
  character(len=8) :: mode
  character(len=256) :: fname
  character(len=16) :: conv
  integer :: k, i
  integer(1), allocatable :: b(:), c(:)
  integer(1) :: i1
  integer(2) :: i2
  integer(4) :: i4, ia(150)
  integer(8) :: i8
  real(4) :: r4
  real(8) :: r8, ra(150)
  real(16) :: r16
  complex(4) :: c4
  complex(8) :: c8
  logical :: l4
  character(len=5) :: t
  call get_command_argument(1, mode)
  call get_command_argument(2, fname)
  conv = 'native'
  if (index(mode, 'be') > 0) conv = 'big_endian'
  if (mode(1:1) == 'w') then
    open(10, file=fname, form='unformatted', status='replace', convert=conv)
    write(10)
    write(10) -7_1, 1234_2, -123456_4, 1234567890123_8, 1.5, -2.25d0, 1.0_16/3.0_16, &
              (1.5, -0.5), (0.1d0, 3d0), .true., 'hello'
    do k = 1, nsizes
      allocate(b(sizes(k)))
      do i = 1, sizes(k)
        b(i) = int(mod(i * 7 + k * 13, 256) - 128, 1)
      end do
      write(10) b
      deallocate(b)
    end do
    write(10) (i * 3, i * 0.5d0, i = 1, 150)
    close(10)
  else if (mode(1:1) == 'r') then
    open(10, file=fname, form='unformatted', status='old', convert=conv)
    read(10)
    read(10) i1, i2, i4, i8, r4, r8, r16, c4, c8, l4, t
    if (i1 /= -7 .or. i2 /= 1234 .or. i4 /= -123456 .or. i8 /= 1234567890123_8) call bad(2)
    if (r4 /= 1.5 .or. r8 /= -2.25d0 .or. r16 /= 1.0_16/3.0_16) call bad(2)
    if (c4 /= (1.5, -0.5) .or. c8 /= (0.1d0, 3d0) .or. .not. l4 .or. t /= 'hello') call bad(2)
    do k = 1, nsizes
      allocate(b(sizes(k)), c(sizes(k)))
      do i = 1, sizes(k)
        c(i) = int(mod(i * 7 + k * 13, 256) - 128, 1)
      end do
      read(10) b
      if (any(b /= c)) call bad(2 + k)
      deallocate(b, c)
    end do
    read(10) (ia(i), ra(i), i = 1, 150)
    do i = 1, 150
      if (ia(i) /= i * 3 .or. ra(i) /= i * 0.5d0) call bad(99)
    end do
    read(10, iostat=i)
    if (i >= 0) call bad(100)
  else if (mode(1:1) == 's') then
    open(10, file=fname, form='unformatted', access='stream', status='replace', convert=conv)
    write(10) 1_4, 2.5d0
    write(10, pos=30) 'tail'
    write(10, pos=13) 7_2
    close(10)
  else
    open(10, file=fname, form='unformatted', access='stream', status='old', convert=conv)
    read(10, pos=30) t(1:4)
    read(10, pos=1) i4, r8
    read(10, pos=13) i2
    if (t(1:4) /= 'tail' .or. i4 /= 1 .or. i2 /= 7 .or. r8 /= 2.5d0) call bad(1)
  end if
  print '(a)', 'ok'
contains
  subroutine bad(k)
    integer, intent(in) :: k
    print '(a,i0)', 'bad record ', k
    stop 1
  end subroutine
end program
)";

int8_t pattern(int i, int k) { return static_cast<int8_t>((i * 7 + k * 13) % 256 - 128); }

std::string byte_record(size_t k) {
  std::string r(static_cast<size_t>(kSizes[k - 1]), '\0');
  for (int i = 1; i <= kSizes[k - 1]; ++i) r[i - 1] = static_cast<char>(pattern(i, int(k)));
  return r;
}

const __float128 kThird = __float128(1) / 3;

// The program's records through the library's entries, as a compiler would
// call them for the same WRITE statements.
void write_records(int64_t unit) {
  ASSERT_EQ(UnformattedWrite(unit).start().end(), 0);
  uint64_t third[2];
  memcpy(third, &kThird, 16);
  const float c4[2] = {1.5f, -0.5f};
  const double c8[2] = {0.1, 3.0};
  UnformattedWrite w(unit);
  w.start()
      .i1(-7)
      .i2(1234)
      .i4(-123456)
      .i8(1234567890123LL)
      .r4(1.5f)
      .r8(-2.25)
      .r16(third[0], third[1])
      .c4(c4)
      .c8(c8)
      .i4(1)
      .text("hello");
  ASSERT_EQ(w.end(), 0);
  for (size_t k = 1; k <= kSizes.size(); ++k) {
    const std::string r = byte_record(k);
    ASSERT_EQ(UnformattedWrite(unit).start().text(r).end(), 0) << k;
  }
  UnformattedWrite pairs(unit);
  pairs.start();
  for (int i = 1; i <= 150; ++i) pairs.i4(i * 3).r8(i * 0.5);
  ASSERT_EQ(pairs.end(), 0);
}

// The same records read back and checked; complex items by component, as
// a byte-swapped file needs them.
void read_records(int64_t unit) {
  ASSERT_EQ(UnformattedRead(unit).start().end(), 0);
  int8_t i1;
  int16_t i2;
  int32_t i4, l4;
  int64_t i8;
  float r4, c4[2];
  double r8, c8[2];
  __float128 r16;
  char t[5];
  UnformattedRead r(unit);
  r.start()
      .value(&i1)
      .value(&i2)
      .value(&i4)
      .value(&i8)
      .value(&r4)
      .value(&r8)
      .value(&r16)
      .bytes(c4, 8, 2)
      .bytes(c8, 16, 3)
      .value(&l4)
      .bytes(t, 5);
  ASSERT_EQ(r.end(), 0);
  EXPECT_EQ(i1, -7);
  EXPECT_EQ(i2, 1234);
  EXPECT_EQ(i4, -123456);
  EXPECT_EQ(i8, 1234567890123LL);
  EXPECT_EQ(r4, 1.5f);
  EXPECT_EQ(r8, -2.25);
  EXPECT_TRUE(r16 == kThird);
  EXPECT_EQ(c4[0], 1.5f);
  EXPECT_EQ(c4[1], -0.5f);
  EXPECT_EQ(c8[0], 0.1);
  EXPECT_EQ(c8[1], 3.0);
  EXPECT_EQ(l4, 1);
  EXPECT_EQ(std::string(t, 5), "hello");
  for (size_t k = 1; k <= kSizes.size(); ++k) {
    std::string in(static_cast<size_t>(kSizes[k - 1]), '\0');
    ASSERT_EQ(UnformattedRead(unit).start().bytes(&in[0], kSizes[k - 1]).end(), 0);
    EXPECT_TRUE(in == byte_record(k)) << k;
  }
  UnformattedRead pairs(unit);
  pairs.start();
  std::vector<int32_t> ia(150);
  std::vector<double> ra(150);
  for (int i = 0; i < 150; ++i) pairs.value(&ia[i]).value(&ra[i]);
  ASSERT_EQ(pairs.end(), 0);
  for (int i = 0; i < 150; ++i) {
    EXPECT_EQ(ia[i], (i + 1) * 3);
    EXPECT_EQ(ra[i], (i + 1) * 0.5);
  }
  EXPECT_EQ(UnformattedRead(unit).start().end(), ERR_END_OF_FILE);
}

class GfortranUnformatted : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!have_gfortran()) GTEST_SKIP() << "no gfortran";
    dir_.write("oracle.f90", kProgram);
    ASSERT_EQ(system("gfortran -ffree-line-length-none -o oracle oracle.f90 2>compile.txt"), 0)
        << dir_.read("compile.txt");
  }
  void TearDown() override { close_unit(10); }
  // The program's verdict on a mode and file.
  std::string oracle(const std::string& mode, const std::string& file) {
    const std::string command = "./oracle " + mode + " " + file + " >verdict.txt 2>&1";
    (void)system(command.c_str());
    return dir_.read("verdict.txt");
  }
  ScratchDir dir_;
};

}  // namespace

TEST_F(GfortranUnformatted, SequentialFilesAlikeAndReadBothWays) {
  ASSERT_EQ(oracle("w", "theirs.dat"), "ok\n");
  ASSERT_EQ(Open(10).file("ours.dat").form("UNFORMATTED").run(), 0);
  write_records(10);
  close_unit(10);
  EXPECT_TRUE(dir_.read("ours.dat") == dir_.read("theirs.dat"));
  EXPECT_EQ(oracle("r", "ours.dat"), "ok\n");
  ASSERT_EQ(Open(10).file("theirs.dat").form("UNFORMATTED").run(), 0);
  read_records(10);
}

TEST_F(GfortranUnformatted, StreamFilesWithPositions) {
  ASSERT_EQ(oracle("s", "theirs.dat"), "ok\n");
  ASSERT_EQ(Open(10).file("ours.dat").form("UNFORMATTED").access("STREAM").run(), 0);
  ASSERT_EQ(UnformattedWrite(10).start().i4(1).r8(2.5).end(), 0);
  ASSERT_EQ(UnformattedWrite(10).start_at(30).text("tail").end(), 0);
  ASSERT_EQ(UnformattedWrite(10).start_at(13).i2(7).end(), 0);
  close_unit(10);
  EXPECT_EQ(dir_.read("ours.dat"), dir_.read("theirs.dat"));
  EXPECT_EQ(oracle("t", "ours.dat"), "ok\n");
  ASSERT_EQ(Open(10).file("theirs.dat").form("UNFORMATTED").access("STREAM").run(), 0);
  char tail[4];
  int32_t i4;
  int16_t i2;
  double r8;
  ASSERT_EQ(UnformattedRead(10).start_at(30).bytes(tail, 4).end(), 0);
  ASSERT_EQ(UnformattedRead(10).start_at(1).value(&i4).value(&r8).end(), 0);
  ASSERT_EQ(UnformattedRead(10).start_at(13).value(&i2).end(), 0);
  EXPECT_EQ(std::string(tail, 4), "tail");
  EXPECT_EQ(i4, 1);
  EXPECT_EQ(i2, 7);
  EXPECT_EQ(r8, 2.5);
}

// The byte-swap options select the file by name, as a compiled program's
// start-up would pass them (once per process, hence the child).
TEST_F(GfortranUnformatted, BigEndianFilesBothWays) {
  ASSERT_EQ(oracle("wbe", "theirs.dat"), "ok\n");
  ASSERT_EQ(oracle("sbe", "theirs_stream.dat"), "ok\n");
  ChildResult r = run_in_child([] {
    char keep[] = "4:";
    char swap[] = "4:ours.dat,theirs.dat,ours_stream.dat,theirs_stream.dat";
    __f90_set_bsw_files(keep, swap, nullptr);
    CHILD_CHECK(Open(10).file("ours.dat").form("UNFORMATTED").run() == 0);
    write_records(10);
    CHILD_CHECK(close_unit(10) == 0);
    CHILD_CHECK(Open(10).file("theirs.dat").form("UNFORMATTED").run() == 0);
    read_records(10);
    CHILD_CHECK(close_unit(10) == 0);
    CHILD_CHECK(Open(10).file("ours_stream.dat").form("UNFORMATTED").access("STREAM").run() == 0);
    CHILD_CHECK(UnformattedWrite(10).start().i4(1).r8(2.5).end() == 0);
    CHILD_CHECK(UnformattedWrite(10).start_at(30).text("tail").end() == 0);
    CHILD_CHECK(UnformattedWrite(10).start_at(13).i2(7).end() == 0);
    CHILD_CHECK(close_unit(10) == 0);
    CHILD_CHECK(!::testing::Test::HasFailure());
  });
  ASSERT_TRUE(r.exited && r.exit_code == 0) << r.out << r.err;
  EXPECT_TRUE(dir_.read("ours.dat") == dir_.read("theirs.dat"));
  EXPECT_EQ(dir_.read("ours_stream.dat"), dir_.read("theirs_stream.dat"));
  EXPECT_EQ(oracle("rbe", "ours.dat"), "ok\n");
  EXPECT_EQ(oracle("tbe", "ours_stream.dat"), "ok\n");
}

// Records sent through a pipe (kept whole in memory until their end) arrive
// as gfortran writes them to a file, and read back there.  (gfortran itself
// does not read unformatted records from a pipe, so the bytes are caught.)
TEST_F(GfortranUnformatted, RecordsThroughAPipe) {
  ASSERT_EQ(oracle("w", "theirs.dat"), "ok\n");
  ASSERT_EQ(mkfifo(dir_.file("pipe").c_str(), 0600), 0);
  std::string received;
  std::thread reader([&] {
    const int in = ::open("pipe", O_RDONLY);
    char chunk[65536];
    for (ssize_t n; (n = read(in, chunk, sizeof chunk)) > 0;) received.append(chunk, n);
    close(in);
  });
  ASSERT_EQ(Open(10).file("pipe").form("UNFORMATTED").action("WRITE").run(), 0);
  write_records(10);
  close_unit(10);
  reader.join();
  EXPECT_TRUE(received == dir_.read("theirs.dat"));
  dir_.write("piped.dat", received);
  EXPECT_EQ(oracle("r", "piped.dat"), "ok\n");
}
