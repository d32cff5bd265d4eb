/* Files that are replaced as a whole: readers see the old text or the new one, never a
   part. */
#pragma once

#include <string>

/* Writes sText into sFile (mode 0644), by way of sFile.new, which only one run at a time
   writes and the next one takes over from a run that was killed.
   Result  0: it cannot be written, as told on standard error */
int iREPLACE_FILE(const std::string& sFile, const std::string& sText);
