// cli/message/shards.h - a part of the messages that the command line names, for one of several machines.
//
//   Parts      The sources are thought of as one sequence, which is cut into equal parts: an mbox by bytes,
//              at the beginnings of messages, a folder between two names, anything else not at all. The
//              parts have each message once, and their order is that of the whole. Nothing is agreed upon:
//              the same sources give the same parts everywhere.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/message/sources.h"
#include "mailtree/message/MessageStream.h"

namespace mailtree::cli {

struct Shard {
  std::uint64_t number = 1, of = 1;  ///< From 1.

  bool isWhole() const noexcept { return of == 1; }
};

/// "3/12"; "auto" is told by the environment of a Slurm array, "auto/12" by that of GNU parallel too.
Result<Shard> shardOf(const std::string& text);

/// The messages of a part; all of them for a whole.
Result<MessageFeed> feedOf(const Shard& shard, const SourceArguments& arguments);

}  // namespace mailtree::cli
