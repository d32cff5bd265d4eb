#include "cause.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "../text/command_line.h"
#include "../text/text.h"

namespace {

constexpr const char* acpSTAGE[] = {"",         "name",   "route", "port",    "greeting",
                                    "host-key", "login",  "shell", "program", "answer",
                                    "copy",     "script", "end"};
static_assert(std::size(acpSTAGE) == STAGES);

constexpr const char* cpADMIT =
    "on {host}, as {user}, type the line that \"{permit}\" prints here; where {user} is the "
    "wrong user, correct User in {config}; journalctl -u ssh there says more";

// clang-format off
constexpr CAUSE asctCause[] = {
    // ---- ssh on this server
    {"config-unreadable", STAGE_NAME, SSH_SAYS, "Can't open user config file",
     "ssh cannot read its configuration {config}", "see [access {mode}] in vk.ini; ls -l {config}"},
    {"config-not-ours", STAGE_NAME, SSH_SAYS, "Bad owner or permissions on",
     "others may write to ssh's configuration, so ssh refuses it", "chown root {file} && chmod go-w {file}"},
    {"config-bad-option", STAGE_NAME, SSH_SAYS, "Bad configuration option|bad configuration options|Unsupported option|missing argument|no argument after keyword|extra arguments at end of line",
     "ssh does not understand a line of its configuration", "sed -i '{line}s/^/#/' {file}"},
    {"no-remote-access", STAGE_NAME, WE_SAY, "means that there is no remote access",
     "{host} is registered without remote access (mode VIRTUAL)", "update {host} by hand, or give it another access mode"},
    {"mode-not-configured", STAGE_NAME, WE_SAY, "is not configured; add a section|is not configured; did you mean",
     "the access mode of {host} has no section in vk.ini", "add [access MODE] to vk.ini, or give {host} another access mode"},
    {"name-service-down", STAGE_NAME, SSH_SAYS, "Temporary failure in name resolution",
     "the name service does not answer", "getent hosts {name}"},
    {"host-unknown", STAGE_NAME, SSH_SAYS, "Could not resolve hostname|hostname contains invalid characters|is not a host name",
     "no name service here knows {name}", "enter its address into the name service or the hosts file; to try: getent hosts {name}"},
    {"network-unreachable", STAGE_ROUTE, SSH_SAYS, "Network is unreachable",
     "this server has no way into the network of {name}", "ip route get {address}"},
    {"no-route", STAGE_ROUTE, SSH_SAYS, "No route to host",
     "nobody on the way knows where {name} is, or a firewall rejects it", "ping -c 3 {address}"},
    {"no-answer-from-port", STAGE_PORT, SSH_SAYS, "Connection timed out|Operation timed out|timed out",
     "{name} does not answer on port {port}: it is off, or a firewall drops what is sent", "ping -c 3 {address}"},
    {"port-closed", STAGE_PORT, SSH_SAYS, "Connection refused",
     "{name} is up, but nothing listens on port {port}", "on {host}: systemctl start ssh"},
    {"other-service", STAGE_GREETING, SSH_SAYS, "banner line|Bad remote protocol version|invalid protocol identifier|Protocol major versions differ",
     "what listens on port {port} of {name} is no ssh", "set Port for {host} in {config}"},
    {"closed-at-once", STAGE_GREETING, SSH_SAYS, "kex_exchange_identification: Connection closed|kex_exchange_identification: read: Connection reset|Connection reset by peer",
     "{name} closes the connection before it says who it is", "on {host}: journalctl -u ssh -n 20"},
    {"sshd-silent", STAGE_GREETING, SSH_SAYS, "timed out during banner exchange",
     "{name} accepts the connection on port {port} and says nothing", "on {host}: systemctl restart ssh"},
    {"host-key-of-another", STAGE_HOST_KEY, NOBODY, "",
     "{host} shows the host key of {other}; one machine under two names, or a clone", "see where the name leads: getent hosts {name}; a clone: on it, rm /etc/ssh/ssh_host_*; dpkg-reconfigure openssh-server"},
    {"host-key-changed", STAGE_HOST_KEY, SSH_SAYS, "REMOTE HOST IDENTIFICATION HAS CHANGED|Host key for",
     "the host key of {host} has changed: the machine was reinstalled, or another one answers; kept {kept} ({file}:{line}), offered {offered}", "{remove}"},
    {"host-key-revoked", STAGE_HOST_KEY, SSH_SAYS, "REVOKED HOST KEY",
     "the host key of {host} is revoked", ""},
    {"host-key-unknown", STAGE_HOST_KEY, SSH_SAYS, "host key is known for|Host key verification failed",
     "the host key of {host} is not known, and {config} lets none be added; offered {offered}", "ssh -F {config} -o StrictHostKeyChecking=accept-new {host} true"},
    {"no-common-algorithm", STAGE_HOST_KEY, SSH_SAYS, "no matching|Unable to negotiate",
     "{host} and this server have no algorithm in common", "bring the older of the two up to date"},
    {"key-too-open", STAGE_LOGIN, SSH_SAYS, "bad permissions",
     "others may read the key {key}, so ssh does not use it", "chmod 600 {key}"},
    {"key-missing", STAGE_LOGIN, SSH_SAYS, "no such identity",
     "the key {key} that {config} names does not exist", "put it back, or: ssh-keygen -q -t ed25519 -N '' -f {key}, and {permit}"},
    {"key-not-in-agent", STAGE_LOGIN, NOBODY, "",
     "no agent holds the private half of {key}", "start the agent that IdentityAgent in {config} names, and ssh-add the key there"},
    {"key-unreadable", STAGE_LOGIN, SSH_SAYS, "Load key",
     "ssh cannot read the key {key}", "ssh-keygen -y -f {key}"},
    {"too-many-keys", STAGE_LOGIN, SSH_SAYS, "Too many authentication failures",
     "ssh offered so many keys that {host} ended the talk before the right one", "sed -i '1i IdentitiesOnly yes' {config}"},
    {"no-key-login", STAGE_LOGIN, SSH_SAYS, "No supported authentication methods available",
     "{host} admits nobody by a key", "on {host}: sed -i 's/^PubkeyAuthentication .*/PubkeyAuthentication yes/' /etc/ssh/sshd_config && systemctl reload ssh"},
    {"key-encrypted-no-agent", STAGE_LOGIN, NOBODY, "",
     "{host} accepts the key {key}, but it has a passphrase and no agent holds it", "ssh-keygen -p -N '' -f {key}"},
    {"certificate-expired", STAGE_LOGIN, NOBODY, "",
     "the certificate of the key {key} is valid no more ({valid})", "have {key}.pub signed again"},
    {"login-forbidden", STAGE_LOGIN, NOBODY, "",
     "{host} accepts the key, but no login of {user} with it", "on {host}: sed -i 's/^PermitRootLogin .*/PermitRootLogin prohibit-password/' /etc/ssh/sshd_config && systemctl reload ssh"},
    {"os-user-not-accepted", STAGE_LOGIN, NOBODY, "",
     "{host} accepts the key {key}, but not for {user}, whom os_user of its row names", "psql -c \"update clients set os_user = null where name = '{host}'\""},
    {"user-not-accepted", STAGE_LOGIN, NOBODY, "",
     "{host} accepts the key {key} for root, but not for {user}, whom {config} names", "sed -i '/User /s/{user}/root/' {config}"},
    {"key-not-accepted", STAGE_LOGIN, SSH_SAYS, "Permission denied (",
     "{host} does not accept the key {key} for {user}", cpADMIT},
    {"connection-closed", STAGE_LOGIN, SSH_SAYS, "Connection closed by|closed by remote host|Broken pipe",
     "{host} closed the connection", "on {host}: journalctl -u ssh -n 20"},

    // ---- the host in between
    {"jump-name-unknown", STAGE_NAME, JUMP_SAYS, "Could not resolve hostname",
     "no name service here knows the jump host {jump}", "getent hosts {jump}"},
    {"jump-unreachable", STAGE_ROUTE, JUMP_SAYS, "No route to host|Network is unreachable",
     "there is no way to the jump host {jump}", "ping -c 3 {jump}"},
    {"behind-jump-port-closed", STAGE_PORT, JUMP_SAYS, "open failed: connect failed: Connection refused",
     "the jump host {jump} works, but nothing listens on the port of {host}", "on {host}: systemctl start ssh"},
    {"behind-jump-name-unknown", STAGE_NAME, JUMP_SAYS, "open failed: connect failed: Name or service not known|open failed: connect failed: Temporary failure",
     "the jump host {jump} works, but does not know the name of {host}", "on {jump}: getent hosts {host}"},
    {"behind-jump-no-answer", STAGE_PORT, JUMP_SAYS, "open failed: connect failed",
     "the jump host {jump} works, but does not reach {host}", "on {jump}: ping -c 3 {host}"},
    {"jump-forbids-forwarding", STAGE_PORT, JUMP_SAYS, "administratively prohibited|open failed",
     "the jump host {jump} forbids forwarding", "on {jump}: sed -i 's/^AllowTcpForwarding .*/AllowTcpForwarding yes/' /etc/ssh/sshd_config && systemctl reload ssh"},
    {"jump-port-closed", STAGE_PORT, JUMP_SAYS, "Connection refused",
     "the jump host {jump} is up, but nothing listens there", "on {jump}: systemctl start ssh"},
    {"jump-no-answer", STAGE_PORT, JUMP_SAYS, "timed out",
     "the jump host {jump} does not answer", "ping -c 3 {jump}"},
    {"jump-host-key-changed", STAGE_HOST_KEY, JUMP_SAYS, "REMOTE HOST IDENTIFICATION HAS CHANGED|Host key for",
     "the host key of the jump host {jump} has changed: it was reinstalled, or another one answers ({file}:{line})", "{remove}"},
    {"jump-host-key-unknown", STAGE_HOST_KEY, JUMP_SAYS, "host key is known for|Host key verification failed",
     "the host key of the jump host {jump} is not known, and {config} lets none be added", "ssh -F {config} -o StrictHostKeyChecking=accept-new {jump} true"},
    {"jump-key-not-accepted", STAGE_LOGIN, JUMP_SAYS, "Permission denied (|Too many authentication failures",
     "the jump host {jump} does not accept the key", "on {jump}, type the line that \"vk_setup permit\" prints here"},
    {"jump-host-failed", STAGE_PORT, NOBODY, "",
     "the way over the jump host {jump} failed", "ssh -F {config} {jump} true"},

    // ---- the client's login shell
    {"connection-timeout", STAGE_PORT, NOBODY, "",
     "{name} did not answer in time", "ping -c 3 {address}"},
    {"login-hangs", STAGE_LOGIN, NOBODY, "",
     "{host} answers, but did not come to the end of the login in time", "on {host}: journalctl -u ssh -n 20"},
    {"shell-hangs", STAGE_SHELL, NOBODY, "",
     "the login shell of {user} on {host} starts and does not come to the command", "on {host}: sed -i '1i case $- in *i*) ;; *) return ;; esac' ~/.bashrc"},
    {"account-closed", STAGE_SHELL, SHELL_SAYS, "account is currently not available|This account is not available|account is disabled",
     "the login shell of {user} on {host} admits nobody", "on {host}: usermod -s /bin/sh {user}"},
    {"forced-command", STAGE_SHELL, NOBODY, "",
     "{host} ran something else than what was asked for: a command is forced there, or a start-up file ends", "on {host}: look for command= in authorized_keys, ForceCommand in /etc/ssh/sshd_config, and exit in ~/.bashrc"},
    {"start-up-exits", STAGE_SHELL, NOBODY, "",
     "the login shell of {user} on {host} ended with success before the command, as a start-up file with \"exit\" does", "on {host}: sed -i '1i case $- in *i*) ;; *) return ;; esac' ~/.bashrc"},
    {"shell-ends", STAGE_SHELL, NOBODY, "",
     "the login shell of {user} on {host} ended with status {status} and ran no command, as /bin/false does", "on {host}: usermod -s /bin/sh {user}"},

    // ---- the program
    {"command-not-formed", STAGE_PROGRAM, WE_SAY, "the command line for |the gate of |the request to the gate of ",
     "the command for {host} is too long, or holds what cannot be sent there", "shorten or correct what goes into it: name, user, password, package, options"},
    {"directory-missing", STAGE_PROGRAM, NOBODY, "",
     "the directory {dir} of the software is missing on {host}", "install the software on {host}"},
    {"program-missing", STAGE_PROGRAM, NOBODY, "",
     "there is no {program} on {host}", "install the software on {host}"},
    {"program-not-executable", STAGE_PROGRAM, NOBODY, "",
     "{program} on {host} may not be executed", "on {host}: chmod 755 {dir}{program}"},
    {"interpreter-missing", STAGE_PROGRAM, NOBODY, "",
     "what {program} on {host} is run by is missing", "on {host}: head -1 {dir}{program}"},
    {"program-killed", STAGE_PROGRAM, NOBODY, "",
     "{program} on {host} was ended by signal {signal}", "on {host}: journalctl -n 20"},
    {"program-failed", STAGE_ANSWER, NOBODY, "",
     "{program} on {host} ended with status {status} and says why", ""},
    {"program-failed-silently", STAGE_ANSWER, NOBODY, "",
     "{program} on {host} ended with status {status} and without a word", "on {host}: {program} -h"},
    {"program-hangs", STAGE_ANSWER, NOBODY, "",
     "{program} on {host} runs and says nothing", "on {host}: {program} -h"},
    {"program-endless", STAGE_ANSWER, NOBODY, "",
     "{program} on {host} comes to no end", "on {host}: {program} -h"},
    {"connection-lost", STAGE_ANSWER, NOBODY, "",
     "the connection to {host} broke while {program} ran", "on {host}: journalctl -u ssh -n 20"},
    {"no-version", STAGE_ANSWER, NOBODY, "",
     "{program} on {host} ended with success, but its report has no version", "install the software on {host}"},
    {"session-broken", STAGE_ANSWER, NOBODY, "",
     "the client's own communication reports an error", ""},

    // ---- copies
    {"package-missing", STAGE_COPY, WE_SAY, "cannot read \"",
     "the package cannot be read on this server", "ls -l {file}"},
    {"package-unreadable", STAGE_COPY, SFTP_SAYS, "open local \"",
     "the package is there, but not for the user of this run to read", "chmod a+r {file}"},
    {"no-sftp", STAGE_COPY, SFTP_SAYS, "subsystem request failed",
     "the ssh service of {host} has no sftp", "on {host}: sed -i '1i Subsystem sftp internal-sftp' /etc/ssh/sshd_config && systemctl reload ssh"},
    {"disk-full", STAGE_COPY, WE_SAY, "no space left on",
     "the disk of {host} is full", "on {host}: df -h"},
    {"copy-short", STAGE_COPY, WE_SAY, "arrived with",
     "the file did not arrive whole", "on {host}: df -h"},
    {"start-up-prints", STAGE_COPY, SFTP_SAYS, "Received message too long|remote shell produces no output",
     "a start-up file of {user} on {host} prints something, which no copy can pass", "on {host}: sed -i '1i case $- in *i*) ;; *) return ;; esac' ~/.bashrc"},
    {"disk-read-only", STAGE_COPY, NOBODY, "",
     "the file system of {folder} on {host} takes no changes", "on {host}: mount -o remount,rw $(df --output=target {folder} | tail -n 1)"},
    {"packages-refused", STAGE_COPY, SFTP_SAYS, "takes no packages from the backup server",
     "the administrator of {host} lets this server install nothing", "on {host}: vk_setup set_client {server} --packages signed"},
    {"copy-not-permitted", STAGE_COPY, SFTP_SAYS, "Permission denied",
     "{user} may not write there on {host}", "on {host}: ls -ld {folder}"},
    {"copy-refused", STAGE_COPY, SFTP_SAYS, "Failure",
     "{host} cannot write into {folder}, and its disk has room", "on {host}: ls -ld {folder}"},
    {"copy-failed", STAGE_COPY, NOBODY, "",
     "the copy to {host} failed", ""},

    // ---- the update script
    {"package-empty", STAGE_SCRIPT, NOBODY, "",
     "the update script on {host} failed, and the package on this server is empty", "fetch it again; ls -l {file}"},
    {"package-cut", STAGE_SCRIPT, SCRIPT_SAYS, "unexpected end of file|not a Debian format archive|not an rpm package|cpio: read failed|cpio: Bad magic",
     "the installer on {host} finds that the package is not whole", "fetch it again; ls -l {file}"},
    {"package-unsigned", STAGE_SCRIPT, SCRIPT_SAYS, "has no signature, and this client",
     "{host} installs signed packages only, and this one has no signature", "where it is made: gpg --detach-sign PACKAGE; the signature lies beside the package on this server"},
    {"package-key-unknown", STAGE_SCRIPT, SCRIPT_SAYS, "with a key that is not among|no key that signs them|no key file in",
     "{host} does not have the public key that signs the package", "on {host}, its administrator puts it into the folder that the words name"},
    {"installer-locked", STAGE_SCRIPT, SCRIPT_SAYS, "lock",
     "another installation is under way on {host}", "wait for its end; on {host}: fuser -v /var/lib/dpkg/lock-frontend"},
    {"update-script-missing", STAGE_SCRIPT, NOBODY, "",
     "the update script did not reach {host}", "put it into the folder skel of gv_ro on this server"},
    {"script-failed", STAGE_SCRIPT, NOBODY, "",
     "the update script on {host} ended with status {status} and says why", ""},
    {"script-failed-silently", STAGE_SCRIPT, NOBODY, "",
     "the update script on {host} ended with status {status} and without a word", ""},
    {"restart-needed", STAGE_END, NOBODY, "",
     "the update is installed; {host} has to be restarted", "restart {host}"},

    // ---- the database
    {"database-password-file", STAGE_NONE, DATABASE_SAYS, "no password supplied",
     "others may read the password file {file}, so it is not used, and the database wants a password", "chmod 600 {file}"},
    {"database-password-missing", STAGE_NONE, NOBODY, "",
     "the database wants a password, and {file} has none for it", "enter it there: host:port:database:user:password"},
    {"database-password", STAGE_NONE, DATABASE_SAYS, "authentication failed",
     "the database does not accept the user with this password", "correct conninfo in vk.ini or the password file"},
    {"database-full", STAGE_NONE, DATABASE_SAYS, "too many clients|remaining connection slots|too many connections",
     "the database has no connection left", "raise max_connections, or end what holds them"},
    {"database-tls-name", STAGE_NONE, DATABASE_SAYS, "does not match host name",
     "the database's certificate is for another name than conninfo in vk.ini uses", "name the host in conninfo as the certificate does"},
    {"database-certificate", STAGE_NONE, DATABASE_SAYS, "certificate|SSL error",
     "the database's certificate does not prove that it is the right one", "correct sslrootcert, sslmode or host of conninfo in vk.ini"},
    {"database-conninfo", STAGE_NONE, DATABASE_SAYS, "invalid connection option|missing \"=\" after|invalid URI|invalid integer value|invalid sslmode|unterminated quoted string",
     "conninfo in vk.ini is mistyped", "correct conninfo in vk.ini"},
    {"table-missing", STAGE_NONE, DATABASE_SAYS, "relation \"",
     "a table is missing in the database", "vk_setup server"},
    {"column-missing", STAGE_NONE, DATABASE_SAYS, "column ",
     "a column is missing in the database", "vk_setup server"},
    {"database-missing", STAGE_NONE, DATABASE_SAYS, "does not exist",
     "there is no such database or user", "vk_setup server"},
    {"database-locked", STAGE_NONE, DATABASE_SAYS, "lock timeout|statement timeout|deadlock|no answer from the database",
     "the database does not come to an answer: something holds a lock", "psql -c \"select pid, query from pg_stat_activity where state <> 'idle'\""},
    {"database-read-only", STAGE_NONE, DATABASE_SAYS, "read-only transaction",
     "the database takes no changes", "name the server that does in conninfo of vk.ini"},
    {"database-permission", STAGE_NONE, DATABASE_SAYS, "permission denied",
     "the database's user may not do that", "grant it what it needs"},
    {"database-name-unknown", STAGE_NONE, DATABASE_SAYS, "could not translate host name",
     "no name service here knows the database's host", "correct host in conninfo of vk.ini"},
    {"database-socket", STAGE_NONE, DATABASE_SAYS, "failed: Permission denied",
     "the user of this run may not use the database's socket", "run it as root, or correct host in conninfo of vk.ini"},
    {"database-down", STAGE_NONE, DATABASE_SAYS, "connection to server|could not connect|server closed the connection|the database system is|terminating connection|timeout expired",
     "the database does not answer", "systemctl start postgresql"},
    {"database-failed", STAGE_NONE, NOBODY, "",
     "the database refused a statement", ""},
    {"server-row-missing", STAGE_NONE, NOBODY, "",
     "the database has no row with client_id 0 and a known operating system", "vk_setup server"},

    // ---- the run
    {"interrupted", STAGE_NONE, NOBODY, "",
     "a signal ended the run", ""},
    {"not-registered", STAGE_NONE, NOBODY, "",
     "{host} is not registered", "vk_config_client -c {host} -o Linux"},
    {"parameters-missing", STAGE_NONE, NOBODY, "",
     "the command line lacks something, or a value of it cannot be taken", "vk_config_client -h"},
    {"client-not-given", STAGE_NONE, NOBODY, "",
     "no client is given", "name it with -c; vk_config_client -h"},
    {"system-not-given", STAGE_NONE, NOBODY, "",
     "{host} needs an operating system, and none is given", "vk_config_client -c {host} -o Linux"},
    {"package-not-given", STAGE_NONE, NOBODY, "",
     "no package for {host} is given", "name it with -P; vk_config_client -h"},
    {"hosts-file", STAGE_NONE, NOBODY, "",
     "the hosts file cannot be written", ""},
    {"address-unusable", STAGE_NONE, NOBODY, "",
     "the address of {host} cannot stand in the hosts file", "give one word with -a, or via_nameserver"},
    {"backup-failed", STAGE_ANSWER, NOBODY, "",
     "the test backup of {host} failed", ""},
    {"backup-cannot-return", STAGE_ANSWER, NOBODY, "",
     "the data of {host} does not find its way to {server}", "on {host}: getent hosts {server}"},
};
// clang-format on

constexpr bool bIDS_DIFFER()
{
    for (size_t u = 0; u < std::size(asctCause); u++)
        for (size_t v = 0; v < u; v++)
            if (std::string_view(asctCause[u].cpId) == asctCause[v].cpId) return false;
    return true;
}
static_assert(bIDS_DIFFER());

bool bSHOWS(std::string_view svWords, std::string_view svText)
{
    const auto asvWords = asvPIECES(svWords, '|');
    return std::any_of(asvWords.begin(), asvWords.end(), [&](std::string_view sv) {
        return svText.find(sv) != std::string_view::npos;
    });
}

/* Places that are no words of a command line, but a command. */
bool bWHOLE_COMMAND(std::string_view svPlace)
{
    return svPlace == "remove" || svPlace == "permit";
}

/* What follows svText stands between quotes. */
bool bQUOTED(std::string_view svText)
{
    return std::count(svText.begin(), svText.end(), '"') % 2 != 0 ||
           std::count(svText.begin(), svText.end(), '\'') % 2 != 0;
}

/* Between quotes of the text a value that needs some of its own is left to the reader. The
   others are made such that no place is found in them where the text is filled again. */
std::string sCURE_WORD(const PLACES::value_type& place, bool bQuoted)
{
    if (bWHOLE_COMMAND(place.first)) return place.second;
    std::string sWord = sSHELL_WORD(SHELL_POSIX, place.second);
    if (bQuoted && sWord != place.second) return "...";
    for (size_t u = 0; (u = sWord.find('{', u)) != sWord.npos; u += 3) sWord.insert(u + 1, "''");
    return sWord;
}

template<typename VALUE_OF>
std::string sWITH_VALUES(const std::string_view svAll, const PLACES& places, VALUE_OF sValueOf)
{
    std::string      s;
    std::string_view svText = svAll;
    while (!svText.empty()) {
        const size_t uOpen = svText.find('{');
        const size_t uClose = uOpen == svText.npos ? uOpen : svText.find('}', uOpen);
        if (uClose == svText.npos) break;
        s += svText.substr(0, uOpen);
        const auto place = places.find(std::string(svText.substr(uOpen + 1, uClose - uOpen - 1)));
        if (place != places.end())
            s += sValueOf(*place, svAll.substr(0, svAll.size() - svText.size() + uOpen));
        else
            s += svText.substr(uOpen, uClose - uOpen + 1);
        svText.remove_prefix(uClose + 1);
    }
    return s.append(svText);
}

}  // namespace

std::span<const CAUSE> actCAUSES()
{
    return asctCause;
}

const CAUSE& sctCAUSE(std::string_view svId)
{
    for (const CAUSE& cause : asctCause)
        if (svId == cause.cpId) return cause;
    std::abort();
}

const CAUSE* pCAUSE_SHOWN(SPEAKER eSpeaker, std::string_view svText, STAGE eFrom)
{
    for (const CAUSE& cause : asctCause)
        if (cause.eSpeaker == eSpeaker && cause.eStage >= eFrom && bSHOWS(cause.cpWords, svText))
            return &cause;
    return nullptr;
}

const char* cpSTAGE(STAGE eStage)
{
    return acpSTAGE[eStage];
}

std::string sFILLED(std::string_view svText, const PLACES& places)
{
    return sWITH_VALUES(svText, places, [](const PLACES::value_type& place, std::string_view) {
        return place.second;
    });
}

std::string sCURE_FILLED(std::string_view svText, const PLACES& places)
{
    return sWITH_VALUES(svText, places,
                        [](const PLACES::value_type& place, std::string_view svBefore) {
                            return sCURE_WORD(place, bQUOTED(svBefore));
                        });
}

const char* cpPERMIT_COMMAND(std::string_view svMode)
{
    return svMode == "CTRL" ? "vk_setup permit --mode CTRL" : "vk_setup permit";
}

DIAGNOSIS sctDIAGNOSIS(const CAUSE& cause, const PLACES& places)
{
    DIAGNOSIS diagnosis;
    diagnosis.sStage = cpSTAGE(cause.eStage);
    diagnosis.sCause = cause.cpId;
    diagnosis.sSentence = sFILLED(cause.cpSentence, places);
    diagnosis.sCure = sCURE_FILLED(cause.cpCure, places);
    return diagnosis;
}
