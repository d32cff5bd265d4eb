/* Named semaphores between processes: lock files below gv_rw ("sema/"), held
   with flock. A semaphore ends with its process, however that dies, and no
   child inherits it, so none is ever left behind. The file holds caller and
   process id for people to read; "-" removes it, and one that a killed run
   left is taken over by the next. */
#pragma once

struct sct_semaphore {
    char szSema[128];     // name
    char szCaller[1024];  // name of the calling program
    bool bCatchSignals;   // not used
    int  iSignal;         // not used
    char szMsg[1032];     // out: why the operation failed, else empty
    int  hSema;           // the library's handle; 0 before the first call
};

/* iOperation  '?'  1 another process holds the semaphore, 0 nobody does
               '+'  1 this process holds it now, 0 another process has it;
                    -1 the lock file cannot be made or locked (szMsg says why)
               '-'  1 given up (szMsg: why its file stays), 0 it was not held
   pSema       the same record for all three. */
int i_SEMA(int iOperation, sct_semaphore* pSema);

/* When the lock file of that name was last taken, held or not: seconds since 1970,
   0 when there is none. */
long l_SEMA_TIME(const sct_semaphore* pSema);
