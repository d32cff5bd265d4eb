/* The client's report about itself, and how it is stored in the database. */
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

/* What of the last update goes into the row. */
enum UPDATE_PART {
    UPDATE_ALL,   // state, message and date
    UPDATE_DATE,  // the date: state and message are what an update run stored with it
    UPDATE_NONE,  // an update is under way, and its own run tells how it goes
};

/* The statement that stores a report. */
struct INVENTORY {
    char        szSql[2048];
    UPDATE_PART ePart;
};

/* Forms it. While an update of the client is under way (bUpdating, or asked now), its
   state, message and date stay; one that was broken off is no longer under way, and
   takes them from the report. Rewrites the report's dates and its update state into the
   form in which they are stored.
   Result  1; 0 the client's row cannot be read, which is told */
int iPREPARE_INVENTORY(const SCT_ARGS* pArg, CLIENT_REPORT* pReport, bool bUpdating,
                       INVENTORY* pInventory);

/* Stores the report in the client's row; a failure is told. What is longer than its
   column is cut to it. */
void v_STORE_INVENTORY(const SCT_ARGS* pArg, CLIENT_REPORT* pReport, INVENTORY* pInventory);

/* Asks the client for version and package that the report lacks, and corrects the
   stored operating system by the reported one; szPlatform follows it. */
void v_INVENTORY_FOLLOW_UP(SCT_ARGS* pArg, const CLIENT_REPORT* pReport);
