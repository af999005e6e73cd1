// bench/memory.cpp - resident memory of messages. Each case runs in its own process, which has no free
// memory left from another.
//
//   mailtree_memory CASE PATH    PATH is a message, for short_mails a folder of them
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree::bench {
namespace {

/// A value of /proc/self/status, such as VmRSS, in bytes.
double statusOf(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.starts_with(name + ":")) return 1024.0 * std::stod(line.substr(name.size() + 1));
  return 0;
}

double residentNow() { return statusOf("VmRSS"); }
double residentPeak() { return statusOf("VmHWM"); }
void forgetPeak() { std::ofstream("/proc/self/clear_refs") << 5; }

void print(const std::string& name, const char* what, double value, const char* unit) {
  std::printf("memory/%s/%s %.3f %s\n", name.c_str(), what, value, unit);
}

/// Exits when loading failed: no memory used would look like a good result.
EmailPtr loaded(EmailPtr message) {
  if (message) return message;
  std::cerr << "mailtree_memory: cannot load the message\n";
  std::exit(1);
}

EmailPtr loadFile(const std::string& path, bool discardInput, DataBuffer& bytes) {
  LogNull log;
  SystemCerts certs;
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  if (!bytes.loadFileUtf8(path.c_str(), log)) return loaded(nullptr);
  return loaded(EmailPtr(Email2::createFromMimeDb(*common, bytes, discardInput, /*unwrap=*/true, certs, log,
                                                  /*parseOption=*/false)));
}

EmailPtr loadText(const std::string& path, StringBuffer& text) {
  LogNull log;
  SystemCerts certs;
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  text.text().resize(std::filesystem::file_size(path));
  std::ifstream(path, std::ios::binary)
      .read(text.text().data(), static_cast<std::streamsize>(text.getSize()));
  return loaded(EmailPtr(Email2::createFromMimeText2(*common, text, /*discardInput=*/true, /*unwrap=*/true,
                                                     certs, log, /*parseOption=*/false)));
}

/// Loads a message. The peak includes the input; the memory held includes it unless it was discarded.
template <class Load>
void loadOne(const std::string& name, const std::string& path, Load&& load) {
  const auto size = static_cast<double>(std::filesystem::file_size(path));
  const double before = residentNow();
  const EmailPtr message = load();
  print(name, "peak", (residentPeak() - before) / size, "of_its_size");
  print(name, "held", (residentNow() - before) / size, "of_its_size");
}

void loadMany(const std::string& name, const std::string& folder) {
  std::vector<EmailPtr> messages;
  messages.reserve(100'000);
  double size = 0;
  const double before = residentNow();
  for (const auto& file : std::filesystem::directory_iterator(folder)) {
    DataBuffer input;
    messages.push_back(loadFile(file.path(), /*discardInput=*/true, input));
    size += static_cast<double>(file.file_size());
  }
  const auto count = static_cast<double>(messages.size());
  print(name, "beside_its_bytes", (residentNow() - before - size) / count / 1024, "kB");
}

/// Discards everything.
class NullOutput final : public _svOutput {
 protected:
  bool put(std::string_view, LogBase&) override { return true; }
};

void writeOne(const std::string& name, const std::string& path) {
  DataBuffer input;
  const EmailPtr message = loadFile(path, /*discardInput=*/true, input);
  forgetPeak();
  const double before = residentNow();
  NullOutput sink;
  StringBuffer unused;
  LogNull log;
  ProgressContext progress(nullptr);
  message->assembleMimeBody2(unused, &sink, false, nullptr, progress, log, 0, false, true);
  print(name, "buffer", (residentPeak() - before) / 1024, "kB");
}

bool run(const std::string& name, const std::string& path) {
  DataBuffer bytes;
  StringBuffer text;
  if (name == "load_discarding")
    loadOne(name, path, [&] { return loadFile(path, /*discardInput=*/true, bytes); });
  else if (name == "load_keeping")
    loadOne(name, path, [&] { return loadFile(path, /*discardInput=*/false, bytes); });
  else if (name == "load_text_discarding")
    loadOne(name, path, [&] { return loadText(path, text); });
  else if (name == "short_mails")
    loadMany(name, path);
  else if (name == "write")
    writeOne(name, path);
  else
    return false;
  return true;
}

}  // namespace
}  // namespace mailtree::bench

int main(int argc, char** argv) {
  if (argc == 3 && mailtree::bench::run(argv[1], argv[2])) return 0;
  std::cerr << "usage: mailtree_memory CASE PATH\n";
  return 1;
}
