/* The client's report about itself, and what becomes of it in the database. */
#pragma once

#include "vk_config_client.h"

/* The fields of "qtc -h"; a field that the report lacks is empty. */
struct CLIENT_REPORT {
    char szQtcVersion[256];
    char szVersion[256];  // of the installed product
    char szCores[22];
    char szOs[256];
    char szHw[256];
    char szPackage[256];
    char szExType[256];
    char szInstallationDate[256];
    char szUpdateDate[256];
    char szUpdateState[256];
    char szUpdateMessage[256];
    char szServicepackNumber[256];
    char szServicepackPackage[256];
    char szServicepackDate[256];
    char szModuleVer[256];
};

/* Takes the output lines of "qtc -h" apart. */
void v_READ_REPORT(t_LL LL_Output, CLIENT_REPORT* pReport);

/* Forms the statement that stores the report; empty when the client's row cannot
   be read. Rewrites the report's dates and its update state into the form in
   which they are stored. */
void v_INVENTORY_STATEMENT(const SCT_ARGS* pArg, CLIENT_REPORT* pReport, char (&szSql)[2048]);

/* Asks the client for version and package that the report lacks, and corrects the
   stored operating system by the reported one; szPlatform follows it. */
void v_INVENTORY_FOLLOW_UP(SCT_ARGS* pArg, const CLIENT_REPORT* pReport);
