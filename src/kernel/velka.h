/* Product header: the remote-command record and the tool's shared globals. */
#pragma once

#include "../common/remote/cm_remote.h"

/* Scratch text into which str_chain joins statements. */
extern char tmp_sc[34500];
/* Value of the configuration variable gv_rw_work; gszRo is declared only. */
extern char gszRo[512];
extern char gszRw[512];
/* The tool's trace context. */
extern str_log strLog;
/* Source revision, version tag, build time and build machine. */
extern const char gszGitId[];
