// A scratch directory per test: created empty, made the working directory
// for the test's duration (so fort.N files land there), removed afterwards.
#pragma once

#include <string>

namespace qal::test {

class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  // Content of a file in the directory; empty when it does not exist.
  std::string read(const std::string& name) const;
  bool exists(const std::string& name) const;
  void write(const std::string& name, const std::string& content) const;

 private:
  std::string path_;
  std::string old_cwd_;
};

}  // namespace qal::test
