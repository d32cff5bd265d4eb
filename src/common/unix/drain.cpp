#include "drain.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "../base/descriptor.h"
#include "../base/immortal.h"

namespace {

constexpr size_t uFIRST = size_t{256} * 1024;
constexpr size_t uLAST = size_t{64} * 1024;
constexpr size_t uPIECE = size_t{1} << 20;  // as much as a pipe can hold

std::vector<DRAIN*>& OPEN()
{
    static IMMORTAL<std::vector<DRAIN*>> open;
    return open.Get();
}

}  // namespace

const std::vector<DRAIN*>& DRAINS()
{
    return OPEN();
}

DRAIN::~DRAIN()
{
    std::erase(OPEN(), this);
}

int DRAIN::iOpen()
{
    int aiFd[2];
    if (pipe2(aiFd, O_CLOEXEC) != 0) return 0;
    m_fdRead = FD(aiFd[0]);
    m_fdWrite = FD(aiFd[1]);
    fcntl(m_fdRead.iGet(), F_SETFL, O_NONBLOCK);
    OPEN().push_back(this);
    return 1;
}

std::string DRAIN::sPath()
{
    if (!m_fdRead.bOpen() && !iOpen()) return {};
    std::string sPath =
        "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_fdWrite.iGet());
    return access(sPath.c_str(), W_OK) == 0 ? sPath : std::string();
}

void DRAIN::Take()
{
    std::string sPiece;
    uREAD_NOW(m_fdRead, sPiece, uPIECE);
    const size_t uMore = std::min(uFIRST - m_sFirst.size(), sPiece.size());
    m_sFirst.append(sPiece, 0, uMore);
    m_sLast.append(sPiece, uMore);
    if (m_sLast.size() > 2 * uLAST) m_sLast.erase(0, m_sLast.size() - uLAST);
}

/* A gap falls between two lines. */
std::string DRAIN::sText()
{
    Take();
    if (m_sLast.size() <= uLAST) return m_sFirst + m_sLast;
    const size_t uLine = m_sLast.find('\n', m_sLast.size() - uLAST);
    return m_sFirst.substr(0, m_sFirst.rfind('\n') + 1) +
           (uLine == m_sLast.npos ? "" : m_sLast.substr(uLine + 1));
}

void DRAIN::Forget()
{
    Take();
    m_sFirst.clear();
    m_sLast.clear();
}
