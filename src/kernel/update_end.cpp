/* The one end of an update run. */
#include "update_run.h"

void v_UPDATE_END(UPDATE_RUN* pRun, int iExit)
{
    i_SEMA('-', &pRun->sctSema);
    pRun->pArg->iUpdateEnded = 1;
    TRACE("--- UPDATE_CLIENT, released semaphore %s", pRun->sctSema.szSema);
    ZFINISH(pRun->szMsg, iExit, 'n', pRun->pArg);
}
