/* The keys that vk.ini may hold: one row each. The default file and the man page name
   the same ones. A further key is a row here, and its reader. */
#pragma once

#include <string_view>

enum CONFIG_KIND {
    CONFIG_TEXT,
    CONFIG_LANGUAGE,   // one of asvLANGUAGE
    CONFIG_NUMBER,     // from iMin to iMax
    CONFIG_BRAKE,      // the same, but nothing takes its place where it is none
    CONFIG_DIRECTORY,  // handed out with its separator at the end
};

struct CONFIG_KEY {
    std::string_view svSection;  // "access" and "directories" have a word behind them
    std::string_view svKey;
    CONFIG_KIND      eKind;
    std::string_view svDefault;
    int              iMin = 0;
    int              iMax = 0;
};

inline constexpr int iCONFIG_DAY = 86'400;         // seconds
inline constexpr int iCONFIG_CLIENTS = 9'999'999;  // an identifier has at most 7 digits

inline constexpr char szCONFIG_CONNINFO[] = "host=/run/postgresql dbname=velka user=velka";

/* The value of each is its place in LANGUAGES. */
inline constexpr std::string_view asvLANGUAGE[] = {"en", "es", "de", "by", "fr", "hr", "pt"};

// clang-format off
inline constexpr CONFIG_KEY asctCONFIG_KEY[] = {
    {"general",     "language",                         CONFIG_LANGUAGE,  "en"},
    {"general",     "trace_level",                      CONFIG_NUMBER,    "0", 0, 1'000},
    {"general",     "parallel",                         CONFIG_NUMBER,    "1", 1, 1'000},
    {"variables",   "gv_ro",                            CONFIG_DIRECTORY, "/opt/velka/"},
    {"variables",   "gv_ro_bin",                        CONFIG_DIRECTORY, "/opt/velka/bin/"},
    {"variables",   "gv_rw",                            CONFIG_DIRECTORY, "/var/opt/velka/"},
    {"variables",   "gv_rw_ini",                        CONFIG_DIRECTORY, "/etc/velka/"},
    {"variables",   "gv_rw_work",                       CONFIG_DIRECTORY, "/var/opt/velka/work/"},
    {"variables",   "gv_rw_lgc",                        CONFIG_DIRECTORY, "/var/opt/velka/lgc/"},
    {"variables",   "gv_rw_prot",                       CONFIG_DIRECTORY, "/var/opt/velka/prot/"},
    {"variables",   "gv_daylbl",                        CONFIG_TEXT,      ""},
    {"variables",   "gv_default_interface_prefix",      CONFIG_TEXT,      ""},
    {"variables",   "gv_hosts_file",                    CONFIG_TEXT,      ""},
    {"variables",   "gv_update_wait",                   CONFIG_NUMBER,    "15", 0, iCONFIG_DAY},
    {"variables",   "gv_update_pilot",                  CONFIG_BRAKE,     "0", 0, iCONFIG_CLIENTS},
    {"variables",   "gv_update_stop_after",             CONFIG_BRAKE,     "0", 0, iCONFIG_CLIENTS},
    {"defaults",    "vk_conf_default_interface_prefix", CONFIG_TEXT,      ""},
    {"database",    "conninfo",                         CONFIG_TEXT,      szCONFIG_CONNINFO},
    {"database",    "statement_timeout",                CONFIG_NUMBER,    "60", 0, iCONFIG_DAY},
    {"database",    "retry_time",                       CONFIG_NUMBER,    "10", 0, iCONFIG_DAY},
    {"remote",      "connect_timeout",                  CONFIG_NUMBER,    "15", 1, iCONFIG_DAY},
    {"remote",      "idle_timeout",                     CONFIG_NUMBER,    "1800", 1, iCONFIG_DAY},
    {"remote",      "total_timeout",                    CONFIG_NUMBER,    "14400", 1, 7 * iCONFIG_DAY},
    {"access",      "config",                           CONFIG_TEXT,      ""},
    {"directories", "gv_ro",                            CONFIG_DIRECTORY, "/opt/velka/"},
    {"directories", "gv_ro_bin",                        CONFIG_DIRECTORY, "/opt/velka/bin/"},
    {"directories", "gv_rw",                            CONFIG_DIRECTORY, "/var/opt/velka/"},
    {"directories", "gv_rw_ini",                        CONFIG_DIRECTORY, "/etc/velka/"},
    {"directories", "gv_rw_work",                       CONFIG_DIRECTORY, "/var/opt/velka/work/"},
    {"directories", "gv_rw_lgc",                        CONFIG_DIRECTORY, "/var/opt/velka/lgc/"},
    {"directories", "gv_rw_prot",                       CONFIG_DIRECTORY, "/var/opt/velka/prot/"},
};
// clang-format on

/* The row of a key, null when there is none. "access VKSSH" is a section "access". */
constexpr const CONFIG_KEY* pCONFIG_KEY(std::string_view svSection, std::string_view svKey)
{
    svSection = svSection.substr(0, svSection.find(' '));
    for (const CONFIG_KEY& key : asctCONFIG_KEY)
        if (key.svSection == svSection && key.svKey == svKey) return &key;
    return nullptr;
}
