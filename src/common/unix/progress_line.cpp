/* The progress line of a run over many clients. */
#include "progress_line.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "../text/text.h"
#include "cm_hal_pipe.h"

namespace {

/* Columns of the terminal; the line must not wrap, or it could not be rewritten. */
size_t uCOLUMNS()
{
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col < 20) return 80;
    return size.ws_col;
}

/* Estimated anew when a client is done; between, the time goes down. */
std::string sREMAINING(PROGRESS* pProgress, size_t uDone)
{
    const long lNow = lNOW_MS();
    if (uDone != pProgress->uDone)
        pProgress->lEnd = lNow + (lNow - pProgress->lStart) / static_cast<long>(uDone) *
                                     static_cast<long>(pProgress->uTotal - uDone);
    pProgress->uDone = uDone;
    const long lLeft = (pProgress->lEnd - lNow) / 1000;
    if (uDone == 0 || lLeft <= 0) return "";
    char szText[64];
    x_Snprintf(szText, sizeof szText, ", about %ld:%02ld left", lLeft / 60, lLeft % 60);
    return szText;
}

}  // namespace

void v_PROGRESS_START(PROGRESS* pProgress, size_t uTotal)
{
    pProgress->bTerminal = isatty(STDERR_FILENO) == 1;
    pProgress->lStart = lNOW_MS();
    pProgress->uTotal = uTotal;
}

void v_PROGRESS_SHOW(PROGRESS* pProgress, size_t uDone, size_t uFailed, const std::string& sAtWork)
{
    if (!pProgress->bTerminal) return;
    const std::string sPhase = pProgress->sPhase.empty() ? "" : pProgress->sPhase + ": ";
    const std::string sLine = sPhase + std::to_string(uDone) + "/" +
                              std::to_string(pProgress->uTotal) + " clients, " +
                              std::to_string(uFailed) + " failed" + sREMAINING(pProgress, uDone) +
                              ": " + sONE_LINE(sAtWork);
    const std::string sCut(svTEXT_CUT(sLine, uCOLUMNS() - 1));
    if (sCut == pProgress->sShown) return;
    std::fprintf(stderr, "\r\033[K%s", sCut.c_str());
    std::fflush(stderr);
    pProgress->sShown = sCut;
}

void v_PROGRESS_CLEAR(PROGRESS* pProgress)
{
    if (pProgress->sShown.empty()) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    pProgress->sShown.clear();
}
