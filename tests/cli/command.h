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

/// `arguments` is a shell line after the command's name, such as "show 'a file.eml' < /dev/null".
inline Result mailtree(const std::string& arguments, const std::string& environment = "") {
  const Workspace work;
  const std::string line = environment + " TZ=UTC '" MAILTREE_COMMAND "' " + arguments + " > '" +
                           work.path("out") + "' 2> '" + work.path("err") + "'";
  const int raw = std::system(line.c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : 128, readFile(work.path("out")), readFile(work.path("err"))};
}

inline std::string sample(const std::string& name) { return MAILTREE_SAMPLES "/" + name + ".eml"; }

}  // namespace mailtree::cli_test
