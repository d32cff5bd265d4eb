/* Decides the cause of a failed operation from the words that were read with it, and asks
   the host where that makes it certain. */
#pragma once

#include <string>

#include "../cm_trace.h"
#include "cause.h"
#include "command.h"

/* Why a command has not run, or ended with a status other than 0. Of a program that could
   not be started the host is asked, once and for a few seconds, why.
   sCopied  the file on this server that was copied to the host before */
DIAGNOSIS sctCOMMAND_DIAGNOSIS(const HOST& host, const char* cpCommand, const COMMAND_END& end,
                               const OUTPUT& output, const std::string& sCopied,
                               const str_log& sctLog);

/* Why a copy failed. A host that refuses to write is asked, likewise, whether its disk
   takes changes. */
DIAGNOSIS sctCOPY_DIAGNOSIS(const HOST& host, const std::string& sSource,
                            const std::string& sTarget, const COPY_END& end, const str_log& sctLog);
