// The shared object's dynamic interface: what it needs at run time, its
// soname and version nodes, and that it exports exactly the names of the
// version script, each under its node.
#include <stdio.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "gtest/gtest.h"

namespace {

std::string run(const std::string& cmd) {
  std::string out;
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return out;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  pclose(p);
  return out;
}

// name -> node, from the version script; duplicates are counted.
std::map<std::string, std::string> script_names(int& duplicates) {
  std::ifstream in(std::string(QAL_SOURCE_DIR) + "/src/libqal.map");
  std::stringstream ss;
  ss << in.rdbuf();
  std::string text = std::regex_replace(ss.str(), std::regex(R"(/\*[\s\S]*?\*/)"), "");
  std::map<std::string, std::string> names;
  duplicates = 0;
  std::regex node(R"((VORQAL_[0-9.]+)\s*\{([^}]*)\})");
  for (std::sregex_iterator it(text.begin(), text.end(), node), end; it != end; ++it) {
    std::string body = (*it)[2];
    body = body.substr(0, body.find("local:"));
    std::regex name(R"(([A-Za-z_][A-Za-z0-9_]*)\s*;)");
    for (std::sregex_iterator n(body.begin(), body.end(), name); n != end; ++n) {
      if (!names.emplace((*n)[1], (*it)[1]).second) duplicates++;
    }
  }
  return names;
}

}  // namespace

TEST(SharedObject, NeedsOnlyLibcAndLibm) {
  if (QAL_SANITIZED) GTEST_SKIP() << "sanitizer runtimes are linked in this build";
  std::string dyn = run(std::string("readelf -d ") + QAL_LIBRARY_FILE);
  std::set<std::string> needed;
  std::regex re(R"(\(NEEDED\)\s+Shared library: \[([^\]]+)\])");
  for (std::sregex_iterator it(dyn.begin(), dyn.end(), re), end; it != end; ++it)
    needed.insert((*it)[1]);
  EXPECT_TRUE(needed.count("libc.so.6"));
  for (const auto& n : needed) EXPECT_TRUE(n == "libc.so.6" || n == "libm.so.6") << n;
  EXPECT_NE(dyn.find("Library soname: [libqal.so.1]"), std::string::npos);
}

TEST(SharedObject, DefinesTheThreeVersionNodesInOrder) {
  std::string v = run(std::string("readelf -V -W ") + QAL_LIBRARY_FILE);
  auto a = v.find("Name: VORQAL_1.1\n"), b = v.find("Name: VORQAL_1.1.1"),
       c = v.find("Name: VORQAL_1.2");
  ASSERT_NE(a, std::string::npos) << v;
  ASSERT_NE(b, std::string::npos);
  ASSERT_NE(c, std::string::npos);
  // Each later node inherits the one before.
  EXPECT_NE(v.find("Parent 1: VORQAL_1.1\n", b), std::string::npos);
  EXPECT_NE(v.find("Parent 1: VORQAL_1.1.1", c), std::string::npos);
}

TEST(SharedObject, ExportsExactlyTheVersionScript) {
  int duplicates = 0;
  auto names = script_names(duplicates);
  EXPECT_EQ(duplicates, 0) << "a name is listed twice in libqal.map";
  ASSERT_GT(names.size(), 50u);

  std::string syms = run(std::string("readelf --dyn-syms -W ") + QAL_LIBRARY_FILE);
  std::map<std::string, std::string> exported;
  std::istringstream lines(syms);
  std::string line;
  std::regex row(
      R"(^\s*\d+:\s+[0-9a-f]+\s+\d+\s+(\w+)\s+(GLOBAL|WEAK)\s+DEFAULT\s+(\w+)\s+([^@\s]+)@@?(\S+))");
  while (std::getline(lines, line)) {
    std::smatch m;
    if (!std::regex_search(line, m, row)) continue;
    if (m[3] == "UND") continue;
    if (m[4] == m[5]) continue;  // the version definition symbols themselves
    exported[m[4]] = m[5];
  }
  for (const auto& [name, node] : names) {
    auto it = exported.find(name);
    if (it == exported.end()) {
      ADD_FAILURE() << name << " is in the version script but not exported";
      continue;
    }
    EXPECT_EQ(it->second, node) << name;
  }
  for (const auto& [name, node] : exported)
    EXPECT_TRUE(names.count(name)) << name << "@" << node << " is exported but not listed";
}
