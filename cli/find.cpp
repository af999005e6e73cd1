// cli/find.cpp - mailtree find: the messages of mailboxes that an expression describes.
#include <unistd.h>

#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/message/store_output.h"
#include "cli/message/streaming.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/progress.h"
#include "cli/views/listing.h"
#include "mailtree/message/Expression.h"

namespace mailtree::cli {
namespace {

struct FindOptions {
  std::string expression, out;
  SourceArguments sources;
  StreamSettings stream;
  ListSettings list;
  KeyOptions keys;
  bool names = false, nulNames = false;

  bool hasNames() const { return names || nulNames; }
};

/// What is kept of a message that was found.
struct Found {
  Listing::Item item;
  std::string bytes;  ///< To be written.
};

class Finder {
 public:
  Finder(const FindOptions& options, const Expression& expression, const Keys& keys)
      : m_options(options),
        m_expression(expression),
        m_keys(keys),
        m_listing(options.list, hasSeveral(options.sources)) {}

  Exit run() {
    if (const Exit wrong = m_listing.check(); wrong != Exit::fine) return wrong;
    if (!m_options.out.empty())
      if (const Exit failed = m_out.open(targetNamed(m_options.out)); failed != Exit::fine) return failed;
    const auto make = [this, lazy = LazyMessage(&m_keys.all)](SourceMessage& message) mutable {
      lazy.assign(message);
      return m_expression.matches(lazy) ? keep(message, lazy) : std::optional<Found>();
    };
    Streaming stream(m_options.sources, streamWith(m_options.keys, m_options.stream));
    const Exit result = stream.run(
        make,
        [this](SourceMessage& message, std::optional<Found>& found) {
          return !found || take(message, *found);
        },
        [this] { finish(); });
    return worse(worse(result, m_result), m_count > 0 ? Exit::fine : Exit::negative);
  }

 private:
  std::optional<Found> keep(SourceMessage& message, LazyMessage& lazy) const {
    Found found;
    if (m_out.isOpen())
      found.bytes = std::move(message.bytes);
    else if (!m_options.hasNames())
      found.item = m_listing.itemOf(lazy);
    return found;
  }

  bool take(const SourceMessage& message, Found& found) {
    ++m_count;
    if (m_options.hasNames()) {
      const std::string name = nameOf(message);
      const bool isShown = !m_options.nulNames && ::isatty(STDOUT_FILENO) == 1;
      printBesideProgress((isShown ? printable(name) : name) + (m_options.nulNames ? '\0' : '\n'));
      return std::cout.good();
    }
    if (!m_out.isOpen()) return m_listing.take(found.item);
    m_result = worse(m_result, m_out.add(found.bytes, message));
    return m_result == Exit::fine;
  }

  void finish() {
    if (m_out.isOpen())
      m_result = worse(m_result, m_out.finish());
    else if (!m_options.hasNames())
      m_result = worse(m_result, m_listing.finish());
  }

  const FindOptions& m_options;
  const Expression& m_expression;
  const Keys& m_keys;
  Listing m_listing;
  StoreOutput m_out;
  std::size_t m_count = 0;
  Exit m_result = Exit::fine;
};

Exit find(const FindOptions& options) {
  const Result<Expression> expression = Expression::parse(options.expression);
  if (!expression) return usageError("find", expression.error().message);
  Keys keys;
  if (const Exit failed = readKeys(options.keys, keys); failed != Exit::fine) return failed;
  return Finder(options, *expression, keys).run();
}

}  // namespace

void addFind(Verb app, Action& action) {
  auto options = std::make_shared<FindOptions>();
  const Verb verb =
      app.addVerb("find", "Find messages in mailboxes and folders; status 1 when there are none");
  verb.addText("EXPRESSION", options->expression, "What is looked for, as one argument").required();
  addSources(verb, options->sources);
  const Option out = verb.addText(
      "--out", options->out,
      "Write the messages there: mbox:FILE, which is appended to, maildir:FOLDER or dir:FOLDER; without "
      "a prefix what is there, else an mbox");
  const Option names =
      verb.addFlag("-l,--names", options->names, "Only the names of the messages, one a line");
  const Option nulNames =
      verb.addFlag("-0,--null", options->nulNames, "The same with a NUL after each, for xargs -0")
          .excludes(names);
  out.excludes(names).excludes(nulNames);
  for (const Option form : addListOptions(verb, options->list))
    form.excludes(out).excludes(names).excludes(nulNames);
  addStreamOptions(verb, options->stream);
  addReadingKeyOptions(verb, options->keys);
  verb.setFooter(
      "Tests: from: to: cc: bcc: subject: body: list: (the text occurs there), header NAME:TEXT, "
      "date:2026-01..2026-03 (in UTC), size:>1M, type:application/pdf, file:*.xlsx, has:attachment, "
      "has:calendar, "
      "is:signed, is:valid, is:encrypted, is:repaired, is:report, is:unread. A word alone is looked for in "
      "subject "
      "and text. They are joined by and (or nothing), or, not and brackets. Texts with blanks are quoted. "
      "Neither letter case nor accents count. Keys serve one thread, so with them there is only one.\n\n"
      "Example:\n  mailtree find 'from:anna and (size:>1M or has:attachment)' inbox.mbox\n"
      "  mailtree find 'subject:\"annual report\" date:2026' Maildir archive.mbox.gz\n"
      "  mailtree find is:signed --out signed.mbox mails\n"
      "  mailtree find -0 is:unread Maildir | xargs -0 mailtree show");
  verb.whenChosen([options, &action] { action = [options] { return find(*options); }; });
}

}  // namespace mailtree::cli
