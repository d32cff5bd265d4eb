/* General operations of the service library: configuration values, day protocol,
   info output, time, text, patterns, versions, files, local commands. One header
   per implementation file; this one has them all. */
#pragma once

#include "base/descriptor.h"
#include "cm_lang.h"
#include "cm_trace.h"
#include "config/variables.h"
#include "lines/appending.h"
#include "lines/secret.h"
#include "lines/standard_error.h"
#include "log/protocol.h"
#include "text/command_line.h"
#include "text/pattern.h"
#include "text/text.h"
#include "text/text_operations.h"
#include "text/time_text.h"
#include "unix/file.h"
#include "unix/local_command.h"
