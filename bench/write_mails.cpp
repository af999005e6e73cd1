// bench/write_mails.cpp - generated mail as files, for measuring other programs.
//
//   mailtree_write_mails short COUNT FOLDER       short mails, one file each
//   mailtree_write_mails attachment BYTES FILE    a message with one file of that size
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "bench/messages.h"

namespace mailtree::bench {
namespace {

bool write(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  return file << bytes && file.flush();
}

bool writeShortMails(std::size_t count, const std::string& folder) {
  std::size_t number = 0;
  for (const std::string& message : shortText(count).messages) {
    char name[32];
    std::snprintf(name, sizeof name, "/%06zu.eml", ++number);
    if (!write(folder + name, message)) return false;
  }
  return true;
}

}  // namespace
}  // namespace mailtree::bench

int main(int argc, char** argv) {
  using namespace mailtree::bench;
  const std::string what = argc == 4 ? argv[1] : "";
  const std::size_t number = argc == 4 ? std::stoul(argv[2]) : 0;
  bool done = false;
  if (what == "short") done = writeShortMails(number, argv[3]);
  if (what == "attachment") done = write(argv[3], withAttachment(number));
  if (!done) std::cerr << "usage: mailtree_write_mails short COUNT FOLDER | attachment BYTES FILE\n";
  return done ? 0 : 1;
}
