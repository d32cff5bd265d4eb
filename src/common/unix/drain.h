/* A pipe into which a program writes without limit, without waiting for us and
   without use of a disk. Every wait of this process reads it (iWAIT), a few times a
   second at most, so who writes without end is slowed down; the first and the last part
   of what came are kept. */
#pragma once

#include <string>
#include <vector>

#include "../base/holder.h"

struct WAIT_FD;

class DRAIN {
public:
    DRAIN() = default;
    DRAIN(const DRAIN&) = delete;
    DRAIN& operator=(const DRAIN&) = delete;
    ~DRAIN();

    /* Result  the path by which a program of the same user opens it for appending; "": there
               is none, and errno says why */
    std::string sPath();
    /* What came since the last call of Forget; where much was left out, it lacks the middle. */
    std::string sText();
    void        Forget();

    /* Reads what has come, up to a piece. */
    void Take();
    int  iFd() const { return m_fdRead.iGet(); }

private:
    int iOpen();

    FD          m_fdRead;
    FD          m_fdWrite;  // held, so that the path leads somewhere
    std::string m_sFirst;
    std::string m_sLast;
};

/* Those that are open. */
const std::vector<DRAIN*>& DRAINS();
