#include "ssh_words.h"

#include "../../text/text.h"

namespace {

struct SSH_WORDS {
    std::string_view svText;
    std::string_view svPrefix;
    bool             bRefused = false;  // trying again may lock the account
};

// A line that holds one of these tells most; the first such line counts.
constexpr SSH_WORDS asctTelling[] = {
    {"Could not resolve hostname", "Host is unknown: "},
    {"hostname contains invalid characters", "Host is unknown: "},
    {"Permission denied", "Error: Authentication failed: ", true},
    {"Too many authentication failures", "Error: Authentication failed: ", true},
    {"No supported authentication methods available", "Error: Authentication failed: ", true},
    {"Connection refused", ""},
    {"Connection timed out", ""},
    {"No route to host", ""},
    {"Network is unreachable", ""},
    {"Host key verification failed", ""},
    {"Operation timed out", ""},
};

// Lines of these say nothing of a failure, or only that some other line did.
constexpr std::string_view asvNoise[] = {
    "Warning: Permanently added",
    "Killed by signal",
    "mux_client",
    "muxclient",
    "Control socket",
    "ControlSocket",
    "Shared connection",
    "Connection closed by UNKNOWN",
};

bool bNOISE(std::string_view svLine)
{
    for (std::string_view svText : asvNoise) {
        if (svLine.find(svText) != std::string_view::npos) return true;
    }
    return svLine.find_first_not_of(" \t\r@") == std::string_view::npos;
}

}  // namespace

std::string sREASON_OF(std::string_view svWords, bool* pbRefused)
{
    *pbRefused = false;
    std::string_view svLast;
    while (!svWords.empty()) {
        const size_t           uEnd = svWords.find('\n');
        const std::string_view svLine = svWords.substr(0, uEnd);
        svWords.remove_prefix(uEnd == std::string_view::npos ? svWords.size() : uEnd + 1);
        if (bNOISE(svLine)) continue;
        svLast = svLine;
        for (const SSH_WORDS& words : asctTelling) {
            if (svLine.find(words.svText) == std::string_view::npos) continue;
            *pbRefused = words.bRefused;
            return std::string(words.svPrefix) + sONE_LINE(svLine.substr(0, svLine.find('\r')));
        }
    }
    return sONE_LINE(svLast.substr(0, svLast.find('\r')));
}
