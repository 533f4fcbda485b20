// INQUIRE by unit and by file: the answers of every kind of connection, of
// unconnected units and of files nobody has connected, the results written
// only when asked, the names that find a connected file, and the refusals.
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>

#include "connect/inquire_answers.h"
#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/child.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"
#include "unformatted/unformatted_statements.h"

using namespace qal;
using namespace qal::test;

namespace {

class Inquire : public ::testing::Test {
 protected:
  void TearDown() override {
    for (int unit : {10, 11, 12}) close_unit(unit);
  }
  ScratchDir dir_;
};

}  // namespace

TEST_F(Inquire, UnitsWithoutConnection) {
  const Answers a = inquire_unit(40);
  EXPECT_EQ(a.status, 0);
  EXPECT_EQ(a.exist, 1);
  EXPECT_EQ(a.opened, 0);
  EXPECT_EQ(a.named, 0);
  EXPECT_EQ(a.number, -1);
  EXPECT_EQ(a.nextrec, -1);
  EXPECT_EQ(a.recl, -1);
  EXPECT_EQ(a.pos, -1);
  EXPECT_EQ(a.size, -1);
  EXPECT_EQ(a.pending, 0);
  EXPECT_EQ(texts(a, {"ACCESS", "ACTION", "DELIM", "BLANK", "FORM", "PAD", "POSITION"}),
            "ACCESS=UNDEFINED ACTION=UNDEFINED DELIM=UNDEFINED BLANK=UNDEFINED FORM=UNDEFINED "
            "PAD=UNDEFINED POSITION=UNDEFINED ");
  EXPECT_EQ(texts(a, {"DIRECT", "FORMATTED", "READ", "READWRITE", "SEQUENTIAL", "UNFORMATTED",
                      "WRITE", "STREAM"}),
            "DIRECT=UNKNOWN FORMATTED=UNKNOWN READ=UNKNOWN READWRITE=UNKNOWN SEQUENTIAL=UNKNOWN "
            "UNFORMATTED=UNKNOWN WRITE=UNKNOWN STREAM=UNKNOWN ");
  EXPECT_EQ(texts(a, {"ASYNCHRONOUS", "DECIMAL", "ROUND", "NAME"}),
            "ASYNCHRONOUS=UNDEFINED DECIMAL=UNDEFINED ROUND=UNDEFINED NAME= ");
  // The inquiry leaves no record behind, small number or large.
  EXPECT_EQ(__f90_small_unit_pointer_table[40], nullptr);
  EXPECT_EQ(inquire_unit(5000).opened, 0);
  EXPECT_EQ(__f90_unit_pointer_table[5000 & UNIT_TABLE_MASK], nullptr);

  // The old dialect says UNKNOWN where the new one says UNDEFINED, but not
  // for the Fortran 2003 results.
  const Answers old = inquire_unit(40, kEverything | IF_ERR_RETURN | IF_F77);
  EXPECT_EQ(texts(old, {"ACCESS", "FORM", "POSITION", "ASYNCHRONOUS", "ROUND"}),
            "ACCESS=UNKNOWN FORM=UNKNOWN POSITION=UNKNOWN ASYNCHRONOUS=UNDEFINED "
            "ROUND=UNDEFINED ");

  // Numbers beyond the largest unit are not an error: they do not exist.
  for (int64_t n : {int64_t{-1}, int64_t{2147483648}, INT64_MIN}) {
    const Answers out = inquire_unit(n);
    EXPECT_EQ(out.status, 0) << n;
    EXPECT_EQ(out.exist, 0) << n;
    EXPECT_EQ(out.opened, 0) << n;
    EXPECT_EQ(out.number, -1) << n;
  }
  EXPECT_EQ(inquire_unit(2147483647).exist, 1);
}

TEST_F(Inquire, FormattedSequentialConnection) {
  ASSERT_EQ(Open(10).file("data.txt").status("replace").run(), 0);
  Answers a = inquire_unit(10);
  EXPECT_EQ(a.status, 0);
  EXPECT_EQ(a.exist + a.opened + a.named, 3);
  EXPECT_EQ(a.number, 10);
  EXPECT_EQ(a.nextrec, -1);
  EXPECT_EQ(a.recl, 2147483646);
  EXPECT_EQ(a.pos, -1);
  EXPECT_EQ(a.size, 0);
  EXPECT_EQ(a.pending, 0);
  EXPECT_EQ(texts(a, {"ACCESS", "ACTION", "BLANK", "DELIM", "DIRECT", "FORM", "FORMATTED", "NAME",
                      "PAD", "POSITION", "READ", "READWRITE", "SEQUENTIAL", "UNFORMATTED", "WRITE",
                      "ASYNCHRONOUS", "DECIMAL", "ROUND", "STREAM"}),
            "ACCESS=SEQUENTIAL ACTION=READWRITE BLANK=NULL DELIM=NONE DIRECT=NO FORM=FORMATTED "
            "FORMATTED=YES NAME=data.txt PAD=YES POSITION=REWIND READ=YES READWRITE=YES "
            "SEQUENTIAL=YES UNFORMATTED=NO WRITE=YES ASYNCHRONOUS=NO DECIMAL=POINT "
            "ROUND=UNDEFINED STREAM=NO ");

  // SIZE writes out what the unit holds first; after writing, the file is
  // at its end.
  ASSERT_EQ(put("first"), 0);
  ASSERT_EQ(put("second"), 0);
  a = inquire_unit(10);
  EXPECT_EQ(a.size, 13);
  EXPECT_EQ(a["POSITION"], "APPEND");
  EXPECT_EQ(dir_.read("data.txt"), "first\nsecond\n");
  ASSERT_EQ(rewind_unit(10), 0);
  EXPECT_EQ(inquire_unit(10)["POSITION"], "REWIND");
  char line[16];
  ASSERT_EQ(FormattedRead(10, "(A)", SF_ERR_RETURN).all(CharOut{line, sizeof line}), 0);
  EXPECT_EQ(inquire_unit(10)["POSITION"], "ASIS");
}

TEST_F(Inquire, ModesOfFormattedConnections) {
  dir_.write("in.txt", "x\n");
  ASSERT_EQ(Open(10)
                .file("in.txt")
                .action("READ")
                .blank("ZERO")
                .delim("QUOTE")
                .pad("NO")
                .decimal("COMMA")
                .position("APPEND")
                .run(),
            0);
  const Answers a = inquire_unit(10);
  EXPECT_EQ(texts(a, {"ACTION", "READ", "WRITE", "READWRITE", "BLANK", "DELIM", "PAD", "DECIMAL",
                      "POSITION"}),
            "ACTION=READ READ=YES WRITE=NO READWRITE=NO BLANK=ZERO DELIM=QUOTE PAD=NO "
            "DECIMAL=COMMA POSITION=APPEND ");
  ASSERT_EQ(Open(11).file("out.txt").action("WRITE").delim("APOSTROPHE").run(), 0);
  EXPECT_EQ(texts(inquire_unit(11), {"ACTION", "READ", "WRITE", "DELIM"}),
            "ACTION=WRITE READ=NO WRITE=YES DELIM=APOSTROPHE ");

  // ROUND= reads the mode a bit at a time: ZERO and COMPATIBLE answer UP,
  // PROCESSOR_DEFINED answers DOWN.
  const std::map<std::string, std::string> rounds = {
      {"UP", "UP"},           {"DOWN", "DOWN"},     {"ZERO", "UP"},
      {"NEAREST", "NEAREST"}, {"COMPATIBLE", "UP"}, {"PROCESSOR_DEFINED", "DOWN"}};
  for (const auto& [mode, answer] : rounds) {
    ASSERT_EQ(Open(12).file("r.txt").round(mode.c_str()).run(), 0) << mode;
    EXPECT_EQ(inquire_unit(12, IF_ROUND)["ROUND"], answer) << mode;
    close_unit(12);
  }
}

TEST_F(Inquire, UnformattedConnections) {
  ASSERT_EQ(Open(10).file("u.bin").form("UNFORMATTED").status("replace").run(), 0);
  ASSERT_EQ(UnformattedWrite(10).start().i4(7).end(), 0);
  Answers a = inquire_unit(10);
  EXPECT_EQ(texts(a, {"FORM", "FORMATTED", "UNFORMATTED", "BLANK", "DECIMAL", "DELIM", "PAD",
                      "ROUND", "POSITION"}),
            "FORM=UNFORMATTED FORMATTED=NO UNFORMATTED=YES BLANK=UNDEFINED DECIMAL=UNDEFINED "
            "DELIM=UNDEFINED PAD=UNDEFINED ROUND=UNDEFINED POSITION=APPEND ");
  EXPECT_EQ(a.recl, 2147483647);
  EXPECT_EQ(a.size, 12);

  // The old dialect leaves the first of BLANK, DECIMAL and DELIM asked
  // for alone and gives the later ones UNDEFINED.
  const uint32_t old = IF_ERR_RETURN | IF_F77;
  a = inquire_unit(10, old | IF_BLANK | IF_DECIMAL | IF_DELIM);
  EXPECT_EQ(texts(a, {"BLANK", "DECIMAL", "DELIM"}), "BLANK=- DECIMAL=UNDEFINED DELIM=UNDEFINED ");
  a = inquire_unit(10, old | IF_DECIMAL | IF_DELIM);
  EXPECT_EQ(texts(a, {"BLANK", "DECIMAL", "DELIM"}), "BLANK=- DECIMAL=- DELIM=UNDEFINED ");
  a = inquire_unit(10, old | IF_DELIM | IF_PAD);
  EXPECT_EQ(texts(a, {"DELIM", "PAD"}), "DELIM=- PAD=UNDEFINED ");

  // A connection made in the old dialect without RECL= reports 0; RECL=
  // in words reports bytes.
  ASSERT_EQ(Open(11).file("b.bin").f77().form("BINARY").run(), 0);
  a = inquire_unit(11);
  EXPECT_EQ(a.recl, 0);
  EXPECT_EQ(a["FORM"], "BINARY");
  ASSERT_EQ(Open(12).file("d.bin").form("UNFORMATTED").access("DIRECT").recl(10, true).run(), 0);
  EXPECT_EQ(inquire_unit(12).recl, 40);
}

TEST_F(Inquire, StreamAndDirectConnections) {
  ASSERT_EQ(Open(10).file("s.bin").form("UNFORMATTED").access("STREAM").status("replace").run(), 0);
  ASSERT_EQ(UnformattedWrite(10).start().text("abcde").end(), 0);
  Answers a = inquire_unit(10);
  EXPECT_EQ(texts(a, {"ACCESS", "SEQUENTIAL", "STREAM", "DIRECT"}),
            "ACCESS=STREAM SEQUENTIAL=NO STREAM=YES DIRECT=NO ");
  EXPECT_EQ(a.pos, 6);
  EXPECT_EQ(a.size, 5);
  EXPECT_EQ(a.nextrec, -1);
  // What a read took ahead of the position does not count.
  char two[2];
  ASSERT_EQ(UnformattedRead(10).start_at(2).bytes(two, 2).end(), 0);
  a = inquire_unit(10);
  EXPECT_EQ(a.pos, 4);
  EXPECT_EQ(a["POSITION"], "ASIS");
  // Stream formatted: the position after a whole line.
  dir_.write("lines.txt", "ab\ncd\n");
  ASSERT_EQ(Open(11).file("lines.txt").access("STREAM").form("FORMATTED").run(), 0);
  char line[4];
  ASSERT_EQ(FormattedRead(11, "(A)", SF_ERR_RETURN).all(CharOut{line, sizeof line}), 0);
  EXPECT_EQ(inquire_unit(11).pos, 4);

  ASSERT_EQ(Open(12).file("d.bin").form("UNFORMATTED").access("DIRECT").recl(8).run(), 0);
  a = inquire_unit(12);
  EXPECT_EQ(texts(a, {"ACCESS", "DIRECT", "SEQUENTIAL", "POSITION"}),
            "ACCESS=DIRECT DIRECT=YES SEQUENTIAL=NO POSITION=UNDEFINED ");
  EXPECT_EQ(a.nextrec, 1);
  EXPECT_EQ(a.recl, 8);
  EXPECT_EQ(a.pos, -1);
}

TEST_F(Inquire, DefaultUnits) {
  const Answers a = inquire_unit(6);
  EXPECT_EQ(a.opened, 1);
  EXPECT_EQ(a.named, 0);
  EXPECT_EQ(a.number, 6);
  EXPECT_EQ(a["NAME"], "");
  EXPECT_EQ(texts(a, {"ACCESS", "FORM", "WRITE"}), "ACCESS=SEQUENTIAL FORM=FORMATTED WRITE=YES ");
  EXPECT_EQ(inquire_unit(5)["READ"], "YES");
  // An unnamed pipe has no size.
  const ChildResult r = run_in_child([] {
    int p[2];
    CHILD_CHECK(pipe(p) == 0);
    CHILD_CHECK(dup2(p[1], 1) == 1);
    CHILD_CHECK(inquire_unit(6, IF_SIZE | IF_ERR_RETURN).size == -1);
  });
  EXPECT_TRUE(r.exited && r.exit_code == 0) << r.err;
}

TEST_F(Inquire, FilesByName) {
  // A file nobody connected, one that does not exist, a dangling link, and
  // a name whose directory part is a file.
  dir_.write("free.txt", "x");
  Answers a = inquire_file("free.txt   ");
  EXPECT_EQ(a.status, 0);
  EXPECT_EQ(a.exist, 1);
  EXPECT_EQ(a.opened, 0);
  EXPECT_EQ(a.number, -1);
  EXPECT_EQ(a["NAME"], "free.txt");
  EXPECT_EQ(a["ACCESS"], "UNDEFINED");
  a = inquire_file("absent.txt");
  EXPECT_EQ(a.exist, 0);
  EXPECT_EQ(a["NAME"], "absent.txt");
  ASSERT_EQ(symlink("absent.txt", dir_.file("dangling").c_str()), 0);
  a = inquire_file("dangling");
  EXPECT_EQ(a.exist, 1);
  EXPECT_EQ(a.opened, 0);
  EXPECT_EQ(inquire_file("free.txt/x").exist, 0);
  EXPECT_EQ(inquire_file("").exist, 0);
  // A directory exists and is not connected.
  a = inquire_file(dir_.path());
  EXPECT_EQ(a.status, 0);
  EXPECT_EQ(a.exist, 1);
  EXPECT_EQ(a.opened, 0);

  // Any name of a connected file finds its unit, which answers with the
  // name it was connected under.
  ASSERT_EQ(mkdir(dir_.file("sub").c_str(), 0755), 0);
  ASSERT_EQ(Open(10).file("sub/../data.txt").status("replace").run(), 0);
  ASSERT_EQ(symlink("data.txt", dir_.file("link").c_str()), 0);
  ASSERT_EQ(link(dir_.file("data.txt").c_str(), dir_.file("hard").c_str()), 0);
  for (const std::string& name : {std::string("data.txt"), dir_.file("data.txt"),
                                  std::string("./sub/../link  "), std::string("hard")}) {
    a = inquire_file(name);
    EXPECT_EQ(a.status, 0) << name;
    EXPECT_EQ(a.opened, 1) << name;
    EXPECT_EQ(a.number, 10) << name;
    EXPECT_EQ(a["NAME"], "sub/../data.txt") << name;
    EXPECT_EQ(a["FORM"], "FORMATTED") << name;
  }
  // A unit in the large table is found as well.
  ASSERT_EQ(Open(70000).file("big.txt").status("replace").run(), 0);
  EXPECT_EQ(inquire_file("big.txt").number, 70000);
  close_unit(70000);
  EXPECT_EQ(inquire_file("big.txt").opened, 0);
}

TEST_F(Inquire, NamesThatCannotBeLookedUp) {
  // Longer than any path: the name is cut, and the lookup's errno comes
  // back.  A loop of links likewise.
  EXPECT_EQ(inquire_file(std::string(6000, 'n')).status, ENAMETOOLONG);
  ASSERT_EQ(symlink("loop", dir_.file("loop").c_str()), 0);
  EXPECT_EQ(inquire_file("loop").status, ELOOP);
  const ChildResult r = run_in_child([] { inquire_file("loop", IF_ACCESS); });
  EXPECT_TRUE(r.aborted());
  EXPECT_NE(r.err.find(" File:  loop\n"), std::string::npos) << r.err;
}

TEST_F(Inquire, TextWithoutPlace) {
  // The first wanted text without a place, in the block's order; a null
  // FILE= before all of them.
  for (const TextResult& t : kTexts) {
    InquireBlock b{};
    b.unit = 10;
    b.iflags = IF_ERR_RETURN | t.flag | IF_STREAM;
    if (t.flag != IF_STREAM) b.stream = {nullptr, 3};
    EXPECT_EQ(__f90_inqu(&b), t.missing) << t.name;
  }
  InquireFileBlock f{};
  f.iflags = IF_ERR_RETURN | IF_ACCESS;
  EXPECT_EQ(__f90_inqf(&f), 1117);
  f.file = "x";
  f.file_length = 1;
  EXPECT_EQ(__f90_inqf(&f), 1111);

  const ChildResult r = run_in_child([] {
    static const Location where{LOC_INQUIRE, 21, kSourceFile};
    InquireBlock b{};
    b.unit = 10;
    b.iflags = IF_NAME;
    b.location = &where;
    __f90_inqu(&b);
  });
  EXPECT_TRUE(r.aborted());
  EXPECT_NE(r.err.find("unassociated NAME specifier"), std::string::npos) << r.err;
}

TEST_F(Inquire, InsideAndBesideATransfer) {
  ASSERT_EQ(Open(10).file("t.txt").status("replace").run(), 0);
  // The thread inside a statement on the unit may inquire about it; as
  // with any statement run inside a WRITE on its unit, the WRITE then ends
  // with 1024.
  FormattedWrite w(10, "(A)", SF_ERR_RETURN);
  w.start();
  EXPECT_EQ(inquire_unit(10, IF_ERR_RETURN | IF_ACCESS)["ACCESS"], "SEQUENTIAL");
  w.item("held");
  // Another thread waits for the statement to end.
  std::atomic<bool> answered{false};
  std::thread other([&] {
    inquire_unit(10, IF_ERR_RETURN | IF_SIZE);
    answered = true;
  });
  usleep(50000);
  EXPECT_FALSE(answered);
  w.end();
  other.join();
  EXPECT_TRUE(answered);
  EXPECT_EQ(w.status(), 1024);
}

TEST_F(Inquire, FlushThatFails) {
  // SIZE= writes out the unit's output first; a failure comes back with
  // the unit released and usable.
  const ChildResult r = run_in_child([] {
    CHILD_CHECK(Open(10).file("/dev/full").run() == 0);
    CHILD_CHECK(put("lost") == 0);
    CHILD_CHECK(inquire_unit(10, IF_ERR_RETURN | IF_SIZE).status == ENOSPC);
    CHILD_CHECK(inquire_unit(10, IF_ERR_RETURN | IF_ACCESS)["ACCESS"] == "SEQUENTIAL");
    // Without IOSTAT= the failure is reported.
    inquire_unit(10, IF_POS | IF_POSITION | IF_SIZE);
  });
  EXPECT_TRUE(r.aborted());
  EXPECT_NE(r.err.find("No space left on device"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find(" File:  /dev/full\n"), std::string::npos) << r.err;
}
