#include "support/scratch.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace qal::test {

ScratchDir::ScratchDir() {
  char tmpl[] = "/tmp/qal-test-XXXXXX";
  path_ = mkdtemp(tmpl);
  old_cwd_ = std::filesystem::current_path();
  std::filesystem::current_path(path_);
}

ScratchDir::~ScratchDir() {
  std::filesystem::current_path(old_cwd_);
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

std::string ScratchDir::read(const std::string& name) const {
  std::ifstream in(file(name), std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool ScratchDir::exists(const std::string& name) const {
  struct stat st;
  return lstat(file(name).c_str(), &st) == 0;
}

void ScratchDir::write(const std::string& name, const std::string& content) const {
  std::ofstream out(file(name), std::ios::binary);
  out << content;
}

}  // namespace qal::test
