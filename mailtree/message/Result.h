// message/Result.h - results, for users of the upper floor.
#pragma once

#include "mailtree/base/Result.h"
