/* What went wrong in the database, as data. */
#include "failure.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "../base/holder.h"
#include "../text/text.h"

namespace {

constexpr int iTRY_MS = 3000;

/* The first row that fits decides. A row without text fits every text; one without
   SQLSTATE is for the client library's own words, and for a pooler's. */
constexpr struct {
    std::string_view svState, svText;
    DB_KIND          eKind;
    const char*      cpCause;
} asctKind[] = {
    {"53300", "", DB_BUSY, "database-full"},
    {"53100", "", DB_OTHER, "database-disk-full"},
    {"57P03", "", DB_STARTING, "database-starting"},
    {"57P04", "", DB_STARTING, "database-missing"},
    {"57P", "", DB_STARTING, "database-lost"},
    {"28P01", "", DB_PASSWORD, "database-password"},
    {"28", "", DB_PASSWORD, "database-login"},
    {"3D000", "", DB_NO_DATABASE, "database-missing"},
    {"42P01", "", DB_NO_TABLE, "table-missing"},
    {"3F000", "", DB_NO_TABLE, "table-missing"},
    {"42703", "", DB_NO_COLUMN, "column-missing"},
    {"42501", "", DB_NO_PERMISSION, "database-permission"},
    {"25006", "", DB_READ_ONLY, "database-read-only"},
    {"55P03", "", DB_LOCKED, "database-locked"},
    {"57014", "", DB_LOCKED, "statement-ended"},
    {"23505", "", DB_KEY_TAKEN, "database-constraint"},
    {"22", "", DB_OTHER, "database-constraint"},
    {"23", "", DB_OTHER, "database-constraint"},
    {"40P01", "", DB_IN_THE_WAY, "database-locked"},
    {"40", "", DB_IN_THE_WAY, "database-failed"},
    {"", "unsupported startup parameter", DB_REFUSES_OPTIONS, "database-failed"},
    {"", "no more connections allowed", DB_BUSY, "database-full"},
    {"", "cannot connect to server", DB_STARTING, "not-recognised"},
    {"", "server login ", DB_STARTING, "not-recognised"},  // a pooler's, whose server is away
    {"", "session is read-only", DB_READ_ONLY, "database-read-only"},
    {"", "server is in hot standby", DB_READ_ONLY, "database-read-only"},
    {"", "no password supplied", DB_PASSWORD, "database-password-missing"},
    {"", "timeout expired", DB_SILENT, "database-silent"},
    {"", "no answer from the database", DB_SILENT, "database-silent"},
    {"", " does not match host name ", DB_TLS, "database-tls-name"},
    {"", "certificate", DB_TLS, "database-certificate"},
    {"", "SSL", DB_TLS, "database-certificate"},
    {"", "invalid connection option ", DB_OTHER, "database-conninfo"},
    {"", "missing \"=\" after ", DB_OTHER, "database-conninfo"},
    {"", "invalid URI ", DB_OTHER, "database-conninfo"},
    {"", "invalid integer value ", DB_OTHER, "database-conninfo"},
    {"", "invalid sslmode value", DB_OTHER, "database-conninfo"},
    {"", "invalid port number", DB_OTHER, "database-conninfo"},
    {"", "definition of service ", DB_OTHER, "database-conninfo"},
    {"", "unterminated quoted string in ", DB_OTHER, "database-conninfo"},
    {"", "closed the connection unexpectedly", DB_LOST, "database-lost"},
    {"", "Connection reset by peer", DB_LOST, "database-lost"},
    {"", "Broken pipe", DB_LOST, "database-lost"},
};

/* errno of a connection to an address, 0 when it is made. */
int iCONNECT_ERROR(int iFamily, const sockaddr* pAddress, socklen_t uAddress)
{
    const FD fd(socket(iFamily, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.bOpen()) return errno;
    if (connect(fd.iGet(), pAddress, uAddress) == 0) return 0;
    if (errno != EINPROGRESS) return errno;
    pollfd sctPoll{fd.iGet(), POLLOUT, 0};
    if (poll(&sctPoll, 1, iTRY_MS) <= 0) return ETIMEDOUT;
    int       iError = 0;
    socklen_t uError = sizeof iError;
    getsockopt(fd.iGet(), SOL_SOCKET, SO_ERROR, &iError, &uError);
    return iError;
}

int iSOCKET_ERROR(const std::string& sFolder, const std::string& sPort)
{
    sockaddr_un sctAddress{};
    sctAddress.sun_family = AF_UNIX;
    if (!iTEXT_SET(sctAddress.sun_path, sFolder + "/.s.PGSQL." + sPort)) return ENAMETOOLONG;
    if (sFolder[0] == '/' && access(sFolder.c_str(), F_OK) != 0 && errno == ENOENT) return ENOTDIR;
    return iCONNECT_ERROR(AF_UNIX, reinterpret_cast<sockaddr*>(&sctAddress), sizeof sctAddress);
}

/* The error of the last of a name's addresses; -1: the name cannot be resolved. */
int iNAME_ERROR(const std::string& sHost, const std::string& sPort)
{
    addrinfo  sctHints{};
    addrinfo* pList = nullptr;
    sctHints.ai_socktype = SOCK_STREAM;
    if (getaddrinfo(sHost.c_str(), sPort.c_str(), &sctHints, &pList) != 0) return -1;
    const std::unique_ptr<addrinfo, FREE_BY<freeaddrinfo>> list{pList};
    int                                                    iError = 0;
    for (const addrinfo* p = pList; p != nullptr; p = p->ai_next) {
        iError = iCONNECT_ERROR(p->ai_family, p->ai_addr, p->ai_addrlen);
        if (iError == 0) return 0;
    }
    return iError;
}

}  // namespace

DB_ERROR sctDB_FAILURE(const std::string& sSqlState, const std::string& sText)
{
    for (const auto& row : asctKind) {
        const bool bState = !row.svState.empty();
        if (bState && !sSqlState.starts_with(row.svState)) continue;
        const bool bOwn = sSqlState.empty() || sSqlState.starts_with("08");  // a pooler's
        if (!bState && (!bOwn || sText.find(row.svText) == std::string::npos)) continue;
        return {row.eKind, sSqlState, sText, row.cpCause};
    }
    return {DB_OTHER, sSqlState, sText, sSqlState.empty() ? "not-recognised" : "database-failed"};
}

DB_ERROR sctDB_UNREACHED(const std::string& sHost, const std::string& sPort,
                         const std::string& sText)
{
    const bool bSocket = !sHost.empty() && (sHost[0] == '/' || sHost[0] == '@');
    const int  iError = bSocket ? iSOCKET_ERROR(sHost, sPort) : iNAME_ERROR(sHost, sPort);
    switch (iError) {
        case -1:
            return {DB_UNKNOWN_HOST, "", sText, "database-name-unknown"};
        case ECONNREFUSED:
        case ENOENT:
            return {DB_REFUSED, "", sText, "database-down"};
        case ENOTDIR:
            return {DB_REFUSED, "", sText, "database-no-socket"};
        case EAGAIN:
            return {DB_REFUSED, "", sText, "database-silent"};
        case EACCES:
        case EPERM:
            return {DB_OTHER, "", sText, bSocket ? "database-socket" : "not-recognised"};
        case EHOSTUNREACH:
        case ENETUNREACH:
            return {DB_OTHER, "", sText, "database-unreachable"};
        case ETIMEDOUT:
            return {DB_SILENT, "", sText, "database-silent"};
        default:
            return {DB_OTHER, "", sText, "not-recognised"};
    }
}

bool bDB_PASSES(DB_KIND eKind)
{
    return eKind == DB_REFUSED || eKind == DB_STARTING || eKind == DB_BUSY || eKind == DB_LOST;
}
