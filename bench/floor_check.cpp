/* The least that a check can cost: one connection to the database, the statements of the
   check, and before the last of them the remote command, nothing else.

     floor_check CONNINFO STATEMENTS NAME [COMMAND ARGUMENT...]

   STATEMENTS is a file with one statement a line, as the server logged them for a
   real check; "@NAME@" in it stands for the client's name. */
#include <libpq-fe.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

namespace {

using CONNECTION = std::unique_ptr<PGconn, decltype(&PQfinish)>;
using RESULT = std::unique_ptr<PGresult, decltype(&PQclear)>;

void PUT_NAME(std::string& sSql, const std::string& sName)
{
    static const std::string sPlace = "@NAME@";
    for (size_t u = 0; (u = sSql.find(sPlace, u)) != std::string::npos; u += sName.size())
        sSql.replace(u, sPlace.size(), sName);
}

int iSEND(PGconn* pConn, const std::string& sSql)
{
    const RESULT pResult{
        PQexecParams(pConn, sSql.c_str(), 0, nullptr, nullptr, nullptr, nullptr, 0), PQclear};
    const ExecStatusType eStatus = PQresultStatus(pResult.get());
    return eStatus == PGRES_TUPLES_OK || eStatus == PGRES_COMMAND_OK;
}

int iRUN(char** argv)
{
    pid_t iPid = 0;
    int   iStatus = -1;
    return posix_spawnp(&iPid, argv[0], nullptr, nullptr, argv, environ) == 0 &&
           waitpid(iPid, &iStatus, 0) == iPid && iStatus == 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 4) return 2;
    std::ifstream    statements(argv[2]);
    const CONNECTION pConn{PQconnectdb(argv[1]), PQfinish};
    bool             bGood = statements.good() && PQstatus(pConn.get()) == CONNECTION_OK;
    std::string      sSql;
    while (bGood && std::getline(statements, sSql)) {
        PUT_NAME(sSql, argv[3]);
        if (argc > 4 && statements.peek() == EOF) bGood = iRUN(argv + 4);
        bGood = bGood && iSEND(pConn.get(), sSql);
    }
    if (!bGood) std::fprintf(stderr, "floor_check: %s\n", PQerrorMessage(pConn.get()));
    return bGood ? 0 : 1;
}
