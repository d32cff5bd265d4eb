/* Files: existence, search, deletion. */
#pragma once

#include <cstddef>

#include "../cm_trace.h"

/* 1 when the file exists. */
int file_exist(const char* cpPath);

/* i_LL_search over the lines of a text file; iMode is 32. Lines of any length
   are read, control characters dropped, invalid UTF-8 replaced.
   Result  1 hit: cpPattern holds the whole line, cut to uSize-1 bytes; 0 none,
           or the file cannot be read */
int file_search2(const char* cpPath, char* cpPattern, size_t uSize, int iMode);

/* Deletes a file. Result 1 deleted, 0 not (traced). */
int i_FILE_DELETE(const char* cpPath, str_log sctLog);

/* Tells a failed close of a file that the tool wrote, on standard error and in
   the day protocol. iOne is 1. */
void i_check_fclose_errno(int iErrno, int iOne);
