/* What went wrong in the database, as data. */
#include "failure.h"

#include <string_view>

namespace {

/* The first row that fits decides. A row without text fits every text; one without
   SQLSTATE is for the client library's own words, and the pooler's. */
constexpr struct {
    std::string_view svState, svText;
    DB_KIND          eKind;
} asctKind[] = {
    {"53300", "", DB_BUSY},
    {"57P", "", DB_STARTING},  // 57P01 to 57P05: it ends the session, or is not there yet
    {"28", "", DB_PASSWORD},
    {"3D000", "", DB_NO_DATABASE},
    {"42P01", "", DB_NO_TABLE},
    {"3F000", "", DB_NO_TABLE},
    {"42703", "", DB_NO_COLUMN},
    {"42501", "", DB_NO_PERMISSION},
    {"25006", "", DB_READ_ONLY},
    {"55P03", "", DB_LOCKED},
    {"57014", "", DB_LOCKED},
    {"23505", "", DB_KEY_TAKEN},
    {"40", "", DB_IN_THE_WAY},
    {"", "unsupported startup parameter", DB_REFUSES_OPTIONS},
    {"", "no more connections allowed", DB_BUSY},
    {"", "too many clients", DB_BUSY},
    {"", "cannot connect to server", DB_STARTING},
    {"", "server login ", DB_STARTING},  // a pooler's, whose server is away
    {"", "the database system is ", DB_STARTING},
    {"", "failed: Connection refused", DB_REFUSED},
    {"", "failed: No such file or directory", DB_REFUSED},
    {"", "failed: Resource temporarily unavailable", DB_REFUSED},
    {"", "session is read-only", DB_READ_ONLY},
    {"", "server is in hot standby", DB_READ_ONLY},
    {"", "no password supplied", DB_PASSWORD},
    {"", "could not translate host name", DB_UNKNOWN_HOST},
    {"", "timeout expired", DB_SILENT},
    {"", "no answer from the database", DB_SILENT},
    {"", "certificate", DB_TLS},
    {"", "SSL", DB_TLS},
    {"", "closed the connection unexpectedly", DB_LOST},
    {"", "Connection reset by peer", DB_LOST},
    {"", "Broken pipe", DB_LOST},
};

}  // namespace

DB_ERROR sctDB_FAILURE(const std::string& sSqlState, const std::string& sText)
{
    for (const auto& row : asctKind) {
        const bool bState = !row.svState.empty();
        if (bState && !sSqlState.starts_with(row.svState)) continue;
        if (!bState && sText.find(row.svText) == std::string::npos) continue;
        return {row.eKind, sSqlState, sText};
    }
    return {DB_OTHER, sSqlState, sText};
}

bool bDB_PASSES(DB_KIND eKind)
{
    return eKind == DB_REFUSED || eKind == DB_STARTING || eKind == DB_BUSY || eKind == DB_LOST;
}
