// cli/send.cpp - mailtree send: hands a message to the mail program of the host.
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/program.h"

namespace mailtree::cli {
namespace {

struct SendOptions {
  std::string file;
  std::optional<std::string> program;
};

/// Where hosts have a program that takes messages as sendmail does.
constexpr const char* kPrograms[] = {"/usr/sbin/sendmail", "/usr/lib/sendmail"};

std::optional<std::string> installedProgram() {
  for (const char* const path : kPrograms)
    if (::access(path, X_OK) == 0) return path;
  return std::nullopt;
}

std::vector<std::string> argumentsFor(const Envelope& envelope) {
  const std::string sender = envelope.sender.empty() ? "<>" : envelope.sender;
  std::vector<std::string> arguments{"-i", "-f", sender, "--"};
  arguments.insert(arguments.end(), envelope.recipients.begin(), envelope.recipients.end());
  return arguments;
}

Exit send(const SendOptions& options) {
  const std::optional<mailtree::Message> message = openMessage(options.file);
  if (!message) return Exit::unreadable;
  const auto refuse = [&](const Error& error) {
    reportError(options.file, error.message);
    return Exit::negative;
  };
  if (const Result<void> checked = message->check(); !checked) return refuse(checked.error());
  const std::optional<std::string> program = options.program ? options.program : installedProgram();
  if (!program) {
    reportError("there is no sendmail program on this host; name one with --via");
    return Exit::unreadable;
  }
  const Result<std::string> text = message->toString();
  if (!text) return refuse(text.error());
  // The program ends lines with LF and sends CRLF.
  return runProgram(*program, argumentsFor(message->envelope()), withLfForCrlf(*text));
}

}  // namespace

void addSend(Verb app, Action& action) {
  auto options = std::make_shared<SendOptions>();
  const Verb verb = app.addVerb("send", "Hand a message to the mail program of the host");
  verb.addText("FILE", options->file, "Message; - is standard input").required();
  verb.addText("--via", options->program, "Program to hand it to (default: the host's sendmail)");
  verb.setFooter(
      "The program is run as 'sendmail -i -f SENDER -- RECIPIENT...' and gets the message on standard\n"
      "input, without Bcc. Sender and recipients are those of the message, or of its latest resending.\n"
      "Example:\n  mailtree send mail.eml\n  mailtree send mail.eml --via /opt/bin/msmtp");
  verb.whenChosen([options, &action] { action = [options] { return send(*options); }; });
}

}  // namespace mailtree::cli
