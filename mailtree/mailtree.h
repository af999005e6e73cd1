// mailtree.h - the library for most programs: messages as values. The tree underneath is email/Email2.h.
#pragma once

#include "mailtree/message/Message.h"
