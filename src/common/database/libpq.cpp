/* The functions of libpq that the programs call, by their own names. The library, with
   thirty dependencies, is loaded by the first of these calls: a run that needs no
   database does not wait for it. Nothing is linked with it therefore, and the package's
   dependency on it is declared by hand. */
#include <dlfcn.h>
#include <libpq-fe.h>

#include <cstdlib>

#include "../lines/standard_error.h"
#include "../unix/cm_hal_pipe.h"

namespace {

constexpr const char* cpFILE = "libpq.so.5";
constexpr int         iNO_LIBRARY = 2;  // exit code

/* GnuTLS is among them, for looking connections up in a directory; it would set itself up
   here already, which who uses it does, too. */
void* pLOADED()
{
    constexpr const char* cpWAIT = "GNUTLS_NO_IMPLICIT_INIT";
    const bool            bOwn = getenv(cpWAIT) == nullptr;
    if (bOwn) setenv(cpWAIT, "1", 1);
    void* const pLibrary = dlopen(cpFILE, RTLD_LAZY | RTLD_LOCAL);
    if (bOwn) unsetenv(cpWAIT);
    return pLibrary;
}

void* pFUNCTION(const char* cpName)
{
    static void* const pLibrary = pLOADED();
    void* const        pFound = pLibrary != nullptr ? dlsym(pLibrary, cpName) : nullptr;
    if (pFound != nullptr) return pFound;
    const char* cpWhy = dlerror();
    v_STDERR("cannot load \"%s\": %s", cpFILE, cpWhy != nullptr ? cpWhy : cpName);
    v_END_PROCESS(iNO_LIBRARY);
}

}  // namespace

// Hidden, so that the library's own calls stay its own.
#define FROM_LIBPQ(result, name, parameters, arguments)                                  \
    extern "C" [[gnu::visibility("hidden")]] result name parameters                      \
    {                                                                                    \
        static const auto pCall = reinterpret_cast<decltype(&(name))>(pFUNCTION(#name)); \
        return pCall      arguments;                                                     \
    }

// clang-format off
using POLLED = PostgresPollingStatusType;
using TEXT = const char*;
using LIST = const char* const*;
FROM_LIBPQ(void,  PQclear, (PGresult* p), (p))
FROM_LIBPQ(char*, PQcmdTuples, (PGresult* p), (p))
FROM_LIBPQ(PGconn*, PQconnectdbParams, (LIST pp, LIST ppValue, int i), (pp, ppValue, i))
FROM_LIBPQ(POLLED, PQconnectPoll, (PGconn* p), (p))
FROM_LIBPQ(PGconn*, PQconnectStartParams, (LIST pp, LIST ppValue, int i), (pp, ppValue, i))
FROM_LIBPQ(void,  PQconninfoFree, (PQconninfoOption* p), (p))
FROM_LIBPQ(PQconninfoOption*, PQconninfoParse, (TEXT cp, char** pp), (cp, pp))
FROM_LIBPQ(int,   PQconsumeInput, (PGconn* p), (p))
FROM_LIBPQ(char*, PQerrorMessage, (const PGconn* p), (p))
FROM_LIBPQ(PGresult*, PQexecParams, (PGconn* p, TEXT cp, int i, const Oid* pType, LIST pp, const int* pLength, const int* pFormat, int iFormat), (p, cp, i, pType, pp, pLength, pFormat, iFormat))
FROM_LIBPQ(void,  PQfinish, (PGconn* p), (p))
FROM_LIBPQ(int,   PQflush, (PGconn* p), (p))
FROM_LIBPQ(char*, PQfname, (const PGresult* p, int i), (p, i))
FROM_LIBPQ(void,  PQfreemem, (void* p), (p))
FROM_LIBPQ(int,   PQgetlength, (const PGresult* p, int i, int j), (p, i, j))
FROM_LIBPQ(PGresult*, PQgetResult, (PGconn* p), (p))
FROM_LIBPQ(char*, PQgetvalue, (const PGresult* p, int i, int j), (p, i, j))
FROM_LIBPQ(int,   PQgssEncInUse, (PGconn* p), (p))
FROM_LIBPQ(char*, PQhost, (const PGconn* p), (p))
FROM_LIBPQ(int,   PQisBusy, (PGconn* p), (p))
FROM_LIBPQ(int,   PQnfields, (const PGresult* p), (p))
FROM_LIBPQ(PGnotify*, PQnotifies, (PGconn* p), (p))
FROM_LIBPQ(int,   PQntuples, (const PGresult* p), (p))
FROM_LIBPQ(TEXT,  PQparameterStatus, (const PGconn* p, TEXT cp), (p, cp))
FROM_LIBPQ(char*, PQport, (const PGconn* p), (p))
FROM_LIBPQ(char*, PQresultErrorField, (const PGresult* p, int i), (p, i))
FROM_LIBPQ(char*, PQresultErrorMessage, (const PGresult* p), (p))
FROM_LIBPQ(ExecStatusType, PQresultStatus, (const PGresult* p), (p))
FROM_LIBPQ(int,   PQsendQueryParams, (PGconn* p, TEXT cp, int i, const Oid* pType, LIST pp, const int* pLength, const int* pFormat, int iFormat), (p, cp, i, pType, pp, pLength, pFormat, iFormat))
FROM_LIBPQ(PGContextVisibility, PQsetErrorContextVisibility, (PGconn* p, PGContextVisibility e), (p, e))
FROM_LIBPQ(PGVerbosity, PQsetErrorVerbosity, (PGconn* p, PGVerbosity e), (p, e))
FROM_LIBPQ(int,   PQsetnonblocking, (PGconn* p, int i), (p, i))
FROM_LIBPQ(PQnoticeProcessor, PQsetNoticeProcessor, (PGconn* p, PQnoticeProcessor pDo, void* pArg), (p, pDo, pArg))
FROM_LIBPQ(PQnoticeReceiver, PQsetNoticeReceiver, (PGconn* p, PQnoticeReceiver pDo, void* pArg), (p, pDo, pArg))
FROM_LIBPQ(int,   PQsetSingleRowMode, (PGconn* p), (p))
FROM_LIBPQ(int,   PQsocket, (const PGconn* p), (p))
FROM_LIBPQ(int,   PQsslInUse, (PGconn* p), (p))
FROM_LIBPQ(ConnStatusType, PQstatus, (const PGconn* p), (p))
FROM_LIBPQ(PGTransactionStatusType, PQtransactionStatus, (const PGconn* p), (p))
// clang-format on
