#include "failure.h"

#include <string_view>

namespace {

/* The first row that fits decides. A row without text fits every text; one without
   SQLSTATE is for the client library's own words, which end in the system's where a
   connection was never made (no language is set in this program), and for a pooler's. */
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
    {"28P01", "", DB_OTHER, "database-password"},
    {"28", "", DB_OTHER, "database-login"},
    {"3D000", "", DB_OTHER, "database-missing"},
    {"42P01", "", DB_OTHER, "table-missing"},
    {"3F000", "", DB_OTHER, "table-missing"},
    {"42703", "", DB_OTHER, "column-missing"},
    {"42501", "", DB_OTHER, "database-permission"},
    {"25006", "", DB_READ_ONLY, "database-read-only"},
    {"55P03", "", DB_OTHER, "database-locked"},
    {"57014", "", DB_OTHER, "statement-ended"},
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
    {"", "no password supplied", DB_OTHER, "database-password-missing"},
    {"", "timeout expired", DB_SILENT, "database-silent"},
    {"", "no answer from the database", DB_SILENT, "database-silent"},
    {"", "could not translate host name ", DB_OTHER, "database-name-unknown"},
    {"", ": Connection refused", DB_BUSY, "database-down"},
    {"", ": No such file or directory Is the server running", DB_BUSY, "database-down"},
    {"", ": Resource temporarily unavailable", DB_BUSY, "database-silent"},
    {"", ": Connection timed out", DB_SILENT, "database-silent"},
    {"", ": Permission denied Is the server running locally", DB_OTHER, "database-socket"},
    {"", ": No route to host", DB_OTHER, "database-unreachable"},
    {"", ": Network is unreachable", DB_OTHER, "database-unreachable"},
    {"", "closed the connection unexpectedly", DB_LOST, "database-lost"},
    {"", "Connection reset by peer", DB_LOST, "database-lost"},
    {"", "Broken pipe", DB_LOST, "database-lost"},
    {"", "response to SSL negotiation", DB_OTHER, "not-recognised"},  // no database
    {"", " does not match host name ", DB_OTHER, "database-tls-name"},
    {"", "certificate", DB_OTHER, "database-certificate"},
    {"", "SSL", DB_OTHER, "database-certificate"},
    {"", "invalid connection option ", DB_OTHER, "database-conninfo"},
    {"", "missing \"=\" after ", DB_OTHER, "database-conninfo"},
    {"", "invalid URI ", DB_OTHER, "database-conninfo"},
    {"", "invalid integer value ", DB_OTHER, "database-conninfo"},
    {"", "invalid sslmode value", DB_OTHER, "database-conninfo"},
    {"", "invalid port number", DB_OTHER, "database-conninfo"},
    {"", "definition of service ", DB_OTHER, "database-conninfo"},
    {"", "unterminated quoted string in ", DB_OTHER, "database-conninfo"},
};

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

bool bDB_PASSES(DB_KIND eKind)
{
    return eKind == DB_BUSY || eKind == DB_STARTING || eKind == DB_LOST;
}
