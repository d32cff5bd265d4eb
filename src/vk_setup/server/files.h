/* Files of the installation: reading, replacing whole, keys of vk.ini, and where
   the product's own files lie. */
#pragma once

#include <sys/types.h>

#include <string>

/* Replaces a file by rename, so that no reader ever sees half of it. Owner and mode
   of an older file are kept; a new one gets uMode.
   Result  1 replaced, 0 not: sReason says why, the older file is as it was */
int iREPLACE_FILE(const std::string& sFile, const std::string& sText, mode_t uMode,
                  std::string& sReason);

/* Sets a key of an INI file (made, mode 0640, where it is missing). Every other line
   stays as it is; the key stands where it stood, else below its commented default,
   else at the head of its section, else in a new section.
   Result  1 set, 0 not: sReason says why */
int iINI_SET(const std::string& sFile, const std::string& sSection, const std::string& sKey,
             const std::string& sValue, std::string& sReason);

/* A file that comes with the product ("sql/schema.sql"): below the share directory of
   the installation that this program belongs to, else in the source tree around it.
   "" when there is none. */
std::string sPRODUCT_FILE(const std::string& sName);

/* The directory part, its last "/" included. */
std::string sFOLDER(const std::string& sFile);
