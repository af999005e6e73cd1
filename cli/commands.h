// cli/commands.h - the verbs. Each adds itself to the command line and stores its action when it is used.
#pragma once

#include <functional>

#include "cli/support/exit_codes.h"

namespace CLI {
class App;
}

namespace mailtree::cli {

/// Set by the verb on the command line; run after parsing.
using Action = std::function<Exit()>;

void addShow(CLI::App& app, Action& action);
void addList(CLI::App& app, Action& action);
void addFind(CLI::App& app, Action& action);
void addWrite(CLI::App& app, Action& action);
void addHeaders(CLI::App& app, Action& action);
void addBody(CLI::App& app, Action& action);
void addAttachments(CLI::App& app, Action& action);
void addExtract(CLI::App& app, Action& action);
void addCompose(CLI::App& app, Action& action);
void addEdit(CLI::App& app, Action& action);
void addReply(CLI::App& app, Action& action);
void addForward(CLI::App& app, Action& action);
void addResend(CLI::App& app, Action& action);
void addSend(CLI::App& app, Action& action);
void addMessages(CLI::App& app, Action& action);
void addReport(CLI::App& app, Action& action);
void addRelated(CLI::App& app, Action& action);
void addMerge(CLI::App& app, Action& action);
void addMht(CLI::App& app, Action& action);
void addXml(CLI::App& app, Action& action);
void addTree(CLI::App& app, Action& action);
void addTidy(CLI::App& app, Action& action);
void addSign(CLI::App& app, Action& action);
void addEncrypt(CLI::App& app, Action& action);
void addDecrypt(CLI::App& app, Action& action);
void addVerify(CLI::App& app, Action& action);
void addCopy(CLI::App& app, Action& action);
void addExport(CLI::App& app, Action& action);
void addCheck(CLI::App& app, Action& action);
void addAes(CLI::App& app, Action& action);
void addHelp(CLI::App& app, Action& action);
void addManual(CLI::App& app, Action& action);

}  // namespace mailtree::cli
