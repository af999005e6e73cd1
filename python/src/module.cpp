// The module mailtree._mailtree, which the package mailtree shows to its users.
#include "python/src/fork_gate.h"
#include "python/src/mail.h"
#include "python/src/values.h"

PYBIND11_MODULE(_mailtree, module) {
  using namespace mailtree::python;
  py::options options;
  options.disable_function_signatures();  // the stubs have them
  registerErrors();
  addForkGate();
  prepareValues(module);
  addKeys(module);
  MailClass type(module, "Message", py::is_final(),
                 R"(A message: who wrote what to whom, with which files.

A message may be used by any thread, one at a time. Names of fields and types are matched without regard to
case. A change of the content leaves out a signature; encrypted content is changed after decrypt() only.

>>> import mailtree
>>> mail = mailtree.open("samples/attachments.eml")
>>> mail["Subject"] == mail.subject
True
>>> [part.name for part in mail.attachments]
['offer 2026.pdf', 'Preisliste Straßen.csv', 'Küche.png', 'notes.zip']
>>> mail.subject = "The offer"
>>> mail.remove(*mail.attachments[1:])
>>> mail
<mailtree.Message 'The offer' from ..., 1 file>
)");
  addParts(module);
  addMessageReading(type);
  addMessageChanges(type);
  addMessageAnswers(type);
  addMessageSecurity(type);
  addMessageObject(type);
  addMessageFunctions(module);
  addSources(module);
  addWriters(module);
  addExpressions(module);
  addMailboxes(module);
  module.attr("__version__") = MAILTREE_VERSION;
}
