/* Making the connection to the database.

   Parameters   the connection text of vk.ini and the settings that this library relies
                on, all in the start-up message, so that they cost no statement.
                A pooler that refuses session options gets none
   Hosts        each by itself, so that no wait goes past its limit or past a signal,
                and with the SQLSTATE in the message
   Again        a temporary failure is tried again with growing, random pauses, so
                that many runs that found the server full do not come back together */
#include "connect.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <random>
#include <string_view>

#include "../base/immortal.h"
#include "../base/program.h"
#include "../config/config.h"
#include "../config/keys.h"
#include "../lines/secret.h"
#include "../lines/standard_error.h"
#include "../text/text.h"
#include "../unix/cm_hal_pipe.h"

namespace {

/* Seconds for connecting to one host, unless the connection text says. */
constexpr int iCONNECT_TIMEOUT = 10;
/* Milliseconds before another try, from the first to the last. */
constexpr int iFIRST_PAUSE = 40;
constexpr int iLONGEST_PAUSE = 1000;

using CONNINFO = std::unique_ptr<PQconninfoOption, FREE_BY<PQconninfoFree>>;

/* What the connection text or the environment says of the places to connect to. */
struct HOSTS {
    std::vector<std::string> asHost, asAddress, asPort;  // as many, or none
};

/* Keywords and values; of a keyword the last value counts. */
struct PARAMETERS {
    std::vector<std::string> asKeyword, asValue;

    void Add(const char* cpKeyword, const std::string& sValue)
    {
        const auto it = std::find(asKeyword.begin(), asKeyword.end(), cpKeyword);
        if (it != asKeyword.end()) {
            asValue.erase(asValue.begin() + (it - asKeyword.begin()));
            asKeyword.erase(it);
        }
        asKeyword.emplace_back(cpKeyword);
        asValue.push_back(sValue);
    }
};

struct PLAN {
    PARAMETERS  parameters;
    HOSTS       hosts;
    size_t      uHosts = 1;
    bool        bLibraryWaits = false;  // only the library knows the hosts
    std::string sOwnOptions;            // session options that the installation asks for
    int         iTimeout = iCONNECT_TIMEOUT;
};

DB_WAITS& WAITS()
{
    static DB_WAITS waits;
    return waits;
}

/* Where the database was looked for last. */
std::string& MACHINE()
{
    static IMMORTAL<std::string> sHost;
    return sHost.Get();
}

/* Seconds as the installation has them, or fewer; 0 is no limit there. */
int iSHORTER(int iSeconds, int iAtMost)
{
    if (iAtMost < 0) return iSeconds;
    return iSeconds <= 0 ? iAtMost : std::min(iSeconds, iAtMost);
}

struct RANDOM {
    std::minstd_rand engine{std::random_device{}()};
};

/* A pooler has refused session options. */
bool& NO_OPTIONS()
{
    static IMMORTAL<bool> none;
    return none.Get();
}

/* A value that the connection text sets, else the environment. */
std::string sSET_IN(const PQconninfoOption* pOption, std::string_view svKeyword,
                    const char* cpVariable)
{
    for (; pOption != nullptr && pOption->keyword != nullptr; pOption++)
        if (svKeyword == pOption->keyword && pOption->val != nullptr) return pOption->val;
    return sENVIRONMENT(cpVariable);
}

std::vector<std::string> asSPLIT(const std::string& sList)
{
    const std::string sClosed = sList + (sList.empty() ? "" : ",");
    const auto        asvPiece = asvPIECES(sClosed, ',');
    return {asvPiece.begin(), asvPiece.end()};
}

/* One port serves all hosts. Lists of different lengths are left to the library,
   which tells them. */
void v_READ_HOSTS(const PQconninfoOption* pOption, PLAN& plan)
{
    HOSTS& hosts = plan.hosts;
    hosts.asHost = asSPLIT(sSET_IN(pOption, "host", "PGHOST"));
    hosts.asAddress = asSPLIT(sSET_IN(pOption, "hostaddr", "PGHOSTADDR"));
    hosts.asPort = asSPLIT(sSET_IN(pOption, "port", "PGPORT"));
    plan.uHosts = std::max<size_t>({hosts.asHost.size(), hosts.asAddress.size(), 1});
    if (hosts.asPort.size() == 1) hosts.asPort.assign(plan.uHosts, hosts.asPort[0]);
    for (const auto* pList : {&hosts.asHost, &hosts.asAddress, &hosts.asPort})
        if (!pList->empty() && pList->size() != plan.uHosts) plan.bLibraryWaits = true;
    if (!sSET_IN(pOption, "service", "PGSERVICE").empty()) plan.bLibraryWaits = true;
}

/* Server settings of the session: the installation's own first, ours win. */
std::string sSESSION_OPTIONS(const std::string& sOwn)
{
    return sOwn + " -c standard_conforming_strings=on -c DateStyle=ISO -c statement_timeout=" +
           std::to_string(iDB_STATEMENT_TIMEOUT()) + "s";
}

/* That the connection text or the environment gave last. */
std::string& LAST_PASSWORD()
{
    static LASTING<std::string> password;
    return password.Get();
}

PLAN sctPLAN()
{
    const std::string sText = sCONFIG_TEXT("database", "conninfo", szCONFIG_CONNINFO);
    /* A text that cannot be parsed is told by the connect itself. */
    const CONNINFO          pInfo{PQconninfoParse(sText.c_str(), nullptr)};
    const PQconninfoOption* pOption = pInfo.get();
    PLAN                    plan;
    LAST_PASSWORD() = sSET_IN(pOption, "password", "PGPASSWORD");
    v_DB_MASK_PASSWORD();
    v_READ_HOSTS(pOption, plan);
    plan.sOwnOptions = sSET_IN(pOption, "options", "PGOPTIONS");
    const std::string sTimeout = sSET_IN(pOption, "connect_timeout", "PGCONNECT_TIMEOUT");
    if (!sTimeout.empty())
        plan.iTimeout = static_cast<int>(std::strtol(sTimeout.c_str(), nullptr, 10));
    plan.iTimeout = iSHORTER(plan.iTimeout, WAITS().iConnect);
    PARAMETERS& all = plan.parameters;
    all.Add("connect_timeout", std::to_string(plan.iTimeout));
    all.Add("application_name", cpPROGRAM_NAME());
    all.Add("keepalives_idle", "30");
    all.Add("keepalives_interval", "10");
    all.Add("keepalives_count", "3");
    all.Add("tcp_user_timeout", "60000");
    if (plan.uHosts > 1) all.Add("target_session_attrs", "read-write");
    if (pOption == nullptr) all.Add("dbname", sText);
    for (; pOption != nullptr && pOption->keyword != nullptr; pOption++)
        if (pOption->val != nullptr && std::string_view("options") != pOption->keyword)
            all.Add(pOption->keyword, pOption->val);
    if (WAITS().iConnect >= 0) all.Add("connect_timeout", std::to_string(plan.iTimeout));
    all.Add("client_encoding", "UTF8");
    if (!NO_OPTIONS()) all.Add("options", sSESSION_OPTIONS(plan.sOwnOptions));
    return plan;
}

/* The environment's session options stand aside while a connect begins that is to
   have none. */
class WITHOUT_PGOPTIONS {
public:
    WITHOUT_PGOPTIONS() : m_sOwn(sENVIRONMENT("PGOPTIONS")) { unsetenv("PGOPTIONS"); }
    ~WITHOUT_PGOPTIONS()
    {
        if (!m_sOwn.empty()) setenv("PGOPTIONS", m_sOwn.c_str(), 1);
    }
    WITHOUT_PGOPTIONS(const WITHOUT_PGOPTIONS&) = delete;
    WITHOUT_PGOPTIONS& operator=(const WITHOUT_PGOPTIONS&) = delete;

private:
    std::string m_sOwn;
};

/* Carries a begun connect to its end. */
void v_FINISH_CONNECT(PGconn* pConn, int iTimeout, std::string& sError)
{
    const long                lDeadline = iTimeout > 0 ? lNOW_MS() + iTimeout * 1000L : 0;
    PostgresPollingStatusType eNext =
        PQstatus(pConn) == CONNECTION_BAD ? PGRES_POLLING_FAILED : PGRES_POLLING_WRITING;
    while (eNext == PGRES_POLLING_READING || eNext == PGRES_POLLING_WRITING) {
        const bool bWrite = eNext == PGRES_POLLING_WRITING;
        if (!iDB_WAIT(pConn, !bWrite, bWrite, lDeadline)) {
            sError = std::string("connection to server at \"") + PQhost(pConn) + "\", port " +
                     PQport(pConn) + " failed: timeout expired";
            return;
        }
        eNext = PQconnectPoll(pConn);
    }
}

/* Takes the SQLSTATE out of a verbose message, "FATAL:  53300: sorry ...", and what
   stands behind it about the server's sources. */
std::string sTAKE_SQLSTATE(std::string& sText)
{
    const size_t uLocation = sText.find("\nLOCATION:");
    if (uLocation != std::string::npos) sText.erase(uLocation);
    for (size_t u = 0; (u = sText.find(":  ", u)) != std::string::npos; u += 3) {
        std::string sState = sText.substr(u + 3, 5);
        const bool  bState = std::all_of(sState.begin(), sState.end(), [](unsigned char uc) {
            return std::isdigit(uc) || std::isupper(uc);
        });
        if (!bState || sText.compare(u + 8, 2, ": ") != 0) continue;
        sText.erase(u + 3, 7);
        return sState;
    }
    return "";
}

/* Host uHost of the plan, or all of them where only the library knows them. */
CONNECTION pTRY_HOST(const PLAN& plan, size_t uHost, DB_ERROR& error)
{
    PARAMETERS all = plan.parameters;
    if (!plan.bLibraryWaits) {
        if (!plan.hosts.asHost.empty()) all.Add("host", plan.hosts.asHost[uHost]);
        if (!plan.hosts.asAddress.empty()) all.Add("hostaddr", plan.hosts.asAddress[uHost]);
        if (!plan.hosts.asPort.empty()) all.Add("port", plan.hosts.asPort[uHost]);
    }
    std::vector<const char*> acpKeyword, acpValue;
    for (const std::string& s : all.asKeyword) acpKeyword.push_back(s.c_str());
    for (const std::string& s : all.asValue) acpValue.push_back(s.c_str());
    acpKeyword.push_back(nullptr);
    acpValue.push_back(nullptr);

    std::string             sText;
    const WITHOUT_PGOPTIONS aside;
    CONNECTION              pConn{(plan.bLibraryWaits ? PQconnectdbParams : PQconnectStartParams)(
        acpKeyword.data(), acpValue.data(), 1)};
    if (!pConn) {
        error = sctDB_FAILURE("", "no memory");
        return nullptr;
    }
    if (!plan.bLibraryWaits) {
        PQsetErrorVerbosity(pConn.get(), PQERRORS_VERBOSE);
        v_FINISH_CONNECT(pConn.get(), plan.iTimeout, sText);
    }
    if (sText.empty() && PQstatus(pConn.get()) == CONNECTION_OK) {
        MACHINE() = PQhost(pConn.get());
        return pConn;
    }
    if (sText.empty()) sText = PQerrorMessage(pConn.get());
    const std::string sState = sTAKE_SQLSTATE(sText);
    MACHINE() = PQhost(pConn.get()) != nullptr ? PQhost(pConn.get()) : "";
    error = sctDB_FAILURE(sState, sCONDENSED(sText));
    // No statement was sent yet: what it refuses are the session's settings.
    if (std::string_view(error.cpCause) == "database-failed" || sState.starts_with("22"))
        error.cpCause =
            sState == "42704" || sState.starts_with("22") ? "database-conninfo" : "not-recognised";
    if (std::string_view(error.cpCause) == "database-down" && MACHINE().starts_with('/') &&
        access(MACHINE().c_str(), F_OK) != 0)
        error.cpCause = "database-no-socket";
    return nullptr;
}

/* The first host that serves. Of several failures one that passes decides, as that
   host may serve in a moment; so does a standby, which may take over. */
CONNECTION pTRY_HOSTS(const PLAN& plan, DB_ERROR& error)
{
    DB_ERROR all;
    for (size_t uHost = 0; uHost < (plan.bLibraryWaits ? 1 : plan.uHosts); uHost++) {
        CONNECTION pConn = pTRY_HOST(plan, uHost, error);
        if (pConn) return pConn;
        if (plan.uHosts > 1 && error.eKind == DB_READ_ONLY) error.eKind = DB_STARTING;
        if (!bDB_PASSES(all.eKind)) {
            all.eKind = error.eKind;
            all.cpCause = error.cpCause;
            all.sSqlState = error.sSqlState;
        }
        all.sText += (all.sText.empty() ? "" : "; ") + error.sText;
    }
    error = all;
    return nullptr;
}

/* One try. A pooler that refuses session options is asked again without them. */
CONNECTION pTRY(DB_ERROR& error)
{
    CONNECTION pConn = pTRY_HOSTS(sctPLAN(), error);
    if (pConn || error.eKind != DB_REFUSES_OPTIONS || NO_OPTIONS()) return pConn;
    NO_OPTIONS() = true;
    const PLAN plan = sctPLAN();
    if (!plan.sOwnOptions.empty())
        v_STDERR_ONCE("options", "session options \"%s\" are not used: %s",
                      plan.sOwnOptions.c_str(), error.sText.c_str());
    return pTRY_HOSTS(plan, error);
}

int iRETRY_TIME()
{
    const int iAtMost = WAITS().iRetry;
    return iAtMost < 0 ? iCONFIG_RETRY_TIME() : std::min(iCONFIG_RETRY_TIME(), iAtMost);
}

/* What passes by itself has not passed in retry_time. */
bool& IN_VAIN()
{
    static IMMORTAL<bool> inVain;
    return inVain.Get();
}

}  // namespace

DB_PATIENCE::DB_PATIENCE()
    : m_lUntil(lNOW_MS() + (IN_VAIN() ? 0 : iRETRY_TIME() * 1000L)), m_iPause(iFIRST_PAUSE)
{
}

/* Half to one and a half times the pause, which grows by half each time. */
int DB_PATIENCE::iAnother()
{
    static IMMORTAL<RANDOM>         random;
    std::uniform_int_distribution<> spread(m_iPause / 2, m_iPause * 3 / 2);
    const long                      lLeft = m_lUntil - lNOW_MS();
    m_iPause = std::min(m_iPause * 3 / 2, iLONGEST_PAUSE);
    IN_VAIN() = lLeft <= 0;
    return !IN_VAIN() && iSLEEP_MS(std::min<long>(spread(random.Get().engine), lLeft));
}

void DB_PATIENCE::Restore()
{
    IN_VAIN() = false;
}

CONNECTION pDB_CONNECT(DB_ERROR& error)
{
    DB_PATIENCE patience;
    while (true) {
        CONNECTION pConn = pTRY(error);
        if (pConn || !bDB_PASSES(error.eKind) || !patience.iAnother()) return pConn;
    }
}

CONNECTION pDB_CONNECT_ONCE(DB_ERROR& error)
{
    return pTRY(error);
}

void v_DB_MASK_PASSWORD()
{
    v_SECRET(LAST_PASSWORD(), SECRET_OF_DATABASE);
}

void v_DB_WAIT_AT_MOST(const DB_WAITS& sctWaits)
{
    WAITS() = sctWaits;
}

std::string sDB_MACHINE()
{
    const std::string& sHost = MACHINE();
    const bool         bHere = sHost.empty() || sHost[0] == '/' || sHost[0] == '@' ||
                       sHost == "localhost" || sHost == "::1" || sHost.starts_with("127.");
    return bHere ? "this server" : sHost;
}

std::string sDB_PASSWORD_FILE()
{
    const std::string sText = sCONFIG_TEXT("database", "conninfo", szCONFIG_CONNINFO);
    const CONNINFO    pInfo{PQconninfoParse(sText.c_str(), nullptr)};
    const std::string sFile = sSET_IN(pInfo.get(), "passfile", "PGPASSFILE");
    return sFile.empty() ? sENVIRONMENT("HOME") + "/.pgpass" : sFile;
}

int iDB_STATEMENT_TIMEOUT()
{
    return iSHORTER(iCONFIG_STATEMENT_TIMEOUT(), WAITS().iStatement);
}

bool bDB_SEVERAL_HOSTS()
{
    return sctPLAN().uHosts > 1;
}

std::vector<std::string> asDB_SETTINGS_LEFT(PGconn* pConn)
{
    std::vector<std::string> as;
    const auto               sNow = [&](const char* cpName) -> std::string {
        const char* cp = PQparameterStatus(pConn, cpName);
        return cp != nullptr ? cp : "";
    };
    if (sNow("standard_conforming_strings") != "on")
        as.emplace_back("set standard_conforming_strings=on");
    if (!sNow("DateStyle").starts_with("ISO")) as.emplace_back("set DateStyle=ISO");
    return as;
}

int iDB_WAIT(PGconn* pConn, bool bRead, bool bWrite, long lDeadline)
{
    WAIT_RESULT eResult = WAIT_SIGNAL;
    while (eResult == WAIT_SIGNAL) {
        std::vector<WAIT_FD> fds;
        if (bRead) fds.push_back({PQsocket(pConn)});
        if (bWrite) fds.push_back({PQsocket(pConn), true});
        eResult = iWAIT(fds, lDeadline);
    }
    // Where the system cannot wait, the socket is looked at from time to time.
    if (eResult == WAIT_FAILED) return lDeadline == 0 || lNOW_MS() < lDeadline;
    return eResult == WAIT_READY;
}
