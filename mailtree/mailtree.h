// mailtree.h - the library for most programs: messages as values. The tree underneath is email/Email2.h.
#pragma once

#include "mailtree/message/Message.h"
#include "mailtree/mime/html/HtmlEscape.h"  // escapeHtml(), for texts put into HTML
