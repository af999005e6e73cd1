// tests/cli/command.h - runs the command as a user would and keeps what it said.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/places.h"

namespace mailtree::cli_test {

struct Result {
  int status;
  std::string out, err;
};

/// A folder of its own for one test, removed at its end.
class Workspace {
 public:
  Workspace() {
    std::string name = (std::filesystem::temp_directory_path() / "mailtree-test-XXXXXX").string();
    m_folder = ::mkdtemp(name.data());
  }
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;
  ~Workspace() {
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
  }

  std::string path(const std::string& name) const { return (m_folder / name).string(); }
  const std::filesystem::path& folder() const { return m_folder; }

  std::string write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary) << bytes;
    return path(name);
  }

 private:
  std::filesystem::path m_folder;
};

inline std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Runs a line of shell in which $mailtree is the command.
inline Result shell(const std::string& line) {
  const Workspace work;
  const std::string whole = "export TZ=UTC mailtree='" + places::mailtreeCommand() + "'; exec > '" +
                            work.path("out") + "' 2> '" + work.path("err") + "'; " + line;
  const int raw = std::system(whole.c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : 128, readFile(work.path("out")), readFile(work.path("err"))};
}

/// `arguments` is a shell line after the command's name, such as "show 'a file.eml' < /dev/null".
inline Result mailtree(const std::string& arguments) { return shell("\"$mailtree\" " + arguments); }

inline std::string sample(const std::string& name) { return places::samples() + "/" + name + ".eml"; }

}  // namespace mailtree::cli_test
