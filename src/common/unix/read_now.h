/* What a child has written. */
#pragma once

#include <string>

#include "../base/holder.h"

/* Appends what can be read now, without waiting, up to uMax bytes; the
   descriptor, which does not block, is closed at its end.
   Result  bytes appended */
size_t uREAD_NOW(FD& fd, std::string& sText, size_t uMax);
