/* Directories; opening of files; reading and writing of descriptors. Calls that a signal interrupts are
   repeated. */
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <csignal>
#include <string>
#include <string_view>

#include "holder.h"

/* A signal is to end this process: what it interrupts is not done again, and nothing is
   written to those who do not read (errno is EINTR). */
inline volatile std::sig_atomic_t bINTERRUPTED = 0;

/* std::strerror, for what is said here, too. */
const char* cpERRNO(int iErrno);

/* Makes sDirectory and its parents (mode 0750). Result 0: errno says why. */
int iMAKE_DIRECTORY(const std::string& sDirectory);

/* Opens a file, closed on exec, without waiting for anybody. iFlags as of open.
   Result  -1: errno says why, ENOSTR (for cpERRNO) of a pipe in its place */
FD fdOPEN_FILE(const std::string& sFile, int iFlags, mode_t uMode = 0);

/* Takes the lock of an open file, with a pause of 2 ms before each further try.
   Result  false: errno says why not, EWOULDBLOCK where somebody else has it */
bool bLOCKED(int iFd, int iTries);

/* true when the descriptor is what the name, from the open folder on, stands for. */
bool bSTILL_NAMED(int iFd, const std::string& sFile, int iFolder = AT_FDCWD);

/* One read of up to uSize bytes.
   Result  as of read: bytes, 0 at the end, -1 with errno */
ssize_t lREAD(int iFd, char* cpTo, size_t uSize);

/* Appends all that comes, to the end.
   Result  1; 0: errno says why not, EFBIG where it is more than uMax bytes. What came before
           is in the text. */
int iREAD_ALL(int iFd, std::string& sText, size_t uMax);

/* The whole file, likewise. */
int iREAD_FILE(const std::string& sFile, std::string& sText, size_t uMax = size_t{64} << 20);

/* Appends what can be read now, without waiting, up to uMax bytes; the descriptor, which does
   not block, is closed at its end.
   Result  bytes appended */
size_t uREAD_NOW(FD& fd, std::string& sText, size_t uMax);

/* Writes all of it, in one call where the system takes it so: what several processes
   append to one file stays whole.
   Result  1; 0: errno says why not, ENOSPC where the system takes nothing more */
int iWRITE_ALL(int iFd, std::string_view svText);
