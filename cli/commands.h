// cli/commands.h - the verbs. Each adds itself to the command line and stores its action when it is used.
#pragma once

#include <functional>

#include "cli/support/exit_codes.h"

namespace mailtree::cli {

class Verb;

/// Set by the verb on the command line; run after parsing.
using Action = std::function<Exit()>;

void addShow(Verb app, Action& action);
void addList(Verb app, Action& action);
void addFind(Verb app, Action& action);
void addWrite(Verb app, Action& action);
void addHeaders(Verb app, Action& action);
void addBody(Verb app, Action& action);
void addAttachments(Verb app, Action& action);
void addExtract(Verb app, Action& action);
void addCompose(Verb app, Action& action);
void addEdit(Verb app, Action& action);
void addReply(Verb app, Action& action);
void addForward(Verb app, Action& action);
void addResend(Verb app, Action& action);
void addSend(Verb app, Action& action);
void addMessages(Verb app, Action& action);
void addReport(Verb app, Action& action);
void addRelated(Verb app, Action& action);
void addMerge(Verb app, Action& action);
void addMht(Verb app, Action& action);
void addXml(Verb app, Action& action);
void addTree(Verb app, Action& action);
void addTidy(Verb app, Action& action);
void addSign(Verb app, Action& action);
void addEncrypt(Verb app, Action& action);
void addDecrypt(Verb app, Action& action);
void addVerify(Verb app, Action& action);
void addCopy(Verb app, Action& action);
void addExport(Verb app, Action& action);
void addCheck(Verb app, Action& action);
void addAes(Verb app, Action& action);
void addHelp(Verb app, Action& action);
void addManual(Verb app, Action& action);

}  // namespace mailtree::cli
