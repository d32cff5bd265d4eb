#include "cause.h"

#include <cstdlib>
#include <iterator>

#include "../text/command_line.h"

namespace {

constexpr const char* acpSTAGE[] = {"",         "server",   "name",   "route", "port",
                                    "greeting", "host-key", "login",  "shell", "program",
                                    "answer",   "copy",     "script", "end"};
static_assert(std::size(acpSTAGE) == STAGES);

// clang-format off
constexpr CAUSE asctCause[] = {
    // ---- this server
    {"server-cannot-run", STAGE_SERVER, "this server cannot run {program}: {why}", "on this server: see whether {program} is installed and may be run, and what limits the run has (ulimit -a)"},
    {"ssh-killed", STAGE_SERVER, "{program} on this server was ended by signal {signal}", "on this server: journalctl -k shows whether memory ran out"},
    {"work-file", STAGE_SERVER, "this server cannot write the work file {file}: {why}", "on this server: see mode, owner and room of its folder (ls -ld, df -h)"},
    {"lock-file", STAGE_SERVER, "this server cannot make the lock of the update", "on this server: see mode, owner and room of the folder that the words name (ls -ld, df -h)"},
    {"no-remote-access", STAGE_SERVER, "{host} is registered without remote access (mode VIRTUAL)", "on {host}: update by hand; or give it another access mode"},
    {"mode-not-configured", STAGE_SERVER, "the access mode {mode} of {host} has no usable section in vk.ini", "on this server: see [access {mode}] in vk.ini, or give {host} another access mode"},
    {"config-unreadable", STAGE_SERVER, "ssh cannot read its configuration {config}", "on this server: see [access {mode}] in vk.ini, and ls -l {config}"},
    {"config-not-ours", STAGE_SERVER, "others may write to ssh's configuration {file}, so ssh refuses it", "on this server, let only its owner write there", "chown root {file} && chmod go-w {file}"},
    {"config-bad-option", STAGE_SERVER, "ssh does not understand line {line} of {file}", "on this server: correct that line"},
    {"bind-address", STAGE_SERVER, "ssh cannot use the address of this server that its configuration names (BindAddress, BindInterface)", "on this server: ip address shows what it has; ssh -G -F {config} {host} shows what is configured"},
    {"command-not-formed", STAGE_SERVER, "the command for {host} is too long, or contains what cannot be sent", "on this server: shorten or correct its parts: name, user, password, package, options"},
    {"package-missing", STAGE_SERVER, "this server cannot read the file to copy, {file}: {why}", "on this server: ls -l {file}"},
    {"package-unreadable", STAGE_SERVER, "{file} is there, but the user of this run may not read it", "on this server, let the user of this run read it", "chmod a+r {file}"},
    {"hosts-file", STAGE_SERVER, "the hosts file of this server cannot be written", "on this server: see its mode and its file system"},
    // ---- the way to a host
    {"name-service-down", STAGE_NAME, "no name service answered the query for {name}", "on this server: getent hosts {name}; see nameserver in /etc/resolv.conf"},
    {"host-unknown", STAGE_NAME, "this server cannot resolve the name {name}", "on this server: enter its address into the name service or the hosts file; getent hosts {name} shows what is known"},
    {"network-unreachable", STAGE_ROUTE, "this server has no route to {address}, the address of {name}", "on this server: ip route get {address}"},
    {"no-route", STAGE_ROUTE, "{address}, the address of {name}, cannot be reached: no route, no such machine in its network, or a firewall rejects", "on this server: ip route get {address}; ping -c 3 {address}"},
    {"no-answer-from-port", STAGE_PORT, "nothing answers at {address} port {port} for {host}: the machine is off, or packets are dropped", "on this server: ping -c 3 {address}"},
    {"port-closed", STAGE_PORT, "{address} refuses connections on port {port}: no ssh service listens there for {host}, or a firewall rejects", "on {host}: systemctl status ssh, and ss -ltn for the port that it listens on; on this server: Port of {host} in {config}"},
    {"other-service", STAGE_GREETING, "what answers at {address} port {port} is not ssh", "on this server: see Port and HostName of {host} in {config}"},
    {"sshd-busy", STAGE_GREETING, "the ssh service of {host} accepts no more connections now: too many have not logged in yet (MaxStartups)", "try again later; on {host}: sshd -T shows maxstartups, journalctl -u ssh who connects"},
    {"closed-at-once", STAGE_GREETING, "what listens at {address} port {port} closes the connection without a greeting", "on {host}: journalctl -u ssh -n 20"},
    {"sshd-silent", STAGE_GREETING, "what listens at {address} port {port} accepts the connection but sends no greeting", "on {host}: systemctl status ssh, and journalctl -u ssh -n 20"},
    {"host-key-of-another", STAGE_HOST_KEY, "{host} shows the host key of {other}: one machine under two names, or a clone", "on this server: getent hosts {name} shows where the name leads; a clone needs host keys of its own"},
    {"host-key-changed", STAGE_HOST_KEY, "the host key of {host} is not the one that is kept: the machine was reinstalled, or another one answers; kept {kept} ({file}:{line}), offered {offered}", "where {offered} is what ssh-keygen -lf shows of its key on {host}, type on this server: {remove}"},
    {"host-key-revoked", STAGE_HOST_KEY, "the host key of {host} is revoked on this server", "on {host}: make a new host key"},
    {"host-key-unknown", STAGE_HOST_KEY, "the host key of {host} is not known, and the configuration of ssh allows no new one; offered {offered}", "where {offered} is what ssh-keygen -lf shows of its key on {host}, type on this server: ssh -F {config} -o StrictHostKeyChecking=accept-new {host} true"},
    {"no-common-algorithm", STAGE_HOST_KEY, "{host} and this server have no {what} in common; it offers {offer}", "bring the older of the two up to date, or allow one of these for {host} in {config} on this server"},
    // ---- the login
    {"key-too-open", STAGE_LOGIN, "others may read the key {key}, so ssh does not use it", "on this server, let only its owner read it", "chmod 600 {key}"},
    {"key-missing", STAGE_LOGIN, "the key {key} that ssh's configuration names does not exist", "on this server: put it back, or name another key for {host} in {config}"},
    {"key-unreadable", STAGE_LOGIN, "ssh cannot use the key {key}", "on this server: ssh-keygen -y -f {key} shows what is wrong with it"},
    {"key-not-in-agent", STAGE_LOGIN, "no agent has the private key of {key}", "on this server: start the agent that IdentityAgent in {config} names, and add the key to it with ssh-add"},
    {"key-encrypted-no-agent", STAGE_LOGIN, "{host} accepts the key {key}, but it has a passphrase and no agent holds it", "on this server: add it to the agent that IdentityAgent in {config} names, or take its passphrase away: ssh-keygen -p -f {key}"},
    {"certificate-expired", STAGE_LOGIN, "the certificate of the key {key} is not valid now ({valid})", "on this server: have {key}.pub signed again"},
    {"no-key-offered", STAGE_LOGIN, "ssh has no key to offer to {host}", "on this server: ssh -G -F {config} {host} shows identityfile, identitiesonly, pubkeyauthentication and pubkeyacceptedalgorithms"},
    {"too-many-keys", STAGE_LOGIN, "ssh offered so many keys that {host} ended the login before the right one", "on this server: name only the right key for {host} in {config} (IdentityFile with IdentitiesOnly yes)"},
    {"no-key-login", STAGE_LOGIN, "{host} accepts no key for {user}, only {methods}", "on {host}: sshd -T -C user={user},host=,addr= shows pubkeyauthentication and authenticationmethods"},
    {"second-factor", STAGE_LOGIN, "{host} accepts the key {key} for {user}, but also requires {methods}", "on {host}: sshd -T -C user={user},host=,addr= shows authenticationmethods"},
    {"login-forbidden", STAGE_LOGIN, "{host} accepts the key {key}, but refuses the login of {user} with it", "on {host}: sshd -T -C user={user},host=,addr= shows permitrootlogin (root needs yes or prohibit-password); journalctl -u ssh -n 20 says more"},
    {"key-not-accepted", STAGE_LOGIN, "{host} does not accept the key {key} for {user}{named}", "on {host}: journalctl -u ssh -n 20 says why: the key is not in authorized_keys (the line that \"{permit}\" prints here admits it), the file or a folder above it is open to others, or the user is not let in (sshd -T -C user={user},host=,addr=){root}"},
    {"login-hangs", STAGE_LOGIN, "the login to {host} did not finish in time", "on {host}: journalctl -u ssh -n 20"},
    {"connection-closed", STAGE_REACHED, "{host} closed the connection before the command began", "on {host}: journalctl -u ssh -n 20"},
    // ---- the way over another host
    {"behind-jump-port-closed", STAGE_PORT, "the jump host {jump} works, but {address} refuses its connection to port {port}", "on {host}: systemctl status ssh, and ss -ltn for the port that it listens on"},
    {"behind-jump-name-unknown", STAGE_NAME, "the jump host {jump} works, but cannot resolve the name {address}", "on {jump}: getent hosts {address}"},
    {"behind-jump-no-answer", STAGE_PORT, "the jump host {jump} works, but gets no connection to {address} port {port}", "on {jump}: ping -c 3 {address}"},
    {"jump-forbids-forwarding", STAGE_PORT, "the jump host {jump} does not forward to {address} port {port}: forbidden there", "on {jump}: sshd -T -C user={user},host=,addr= shows allowtcpforwarding, permitopen and disableforwarding; see options of the key in authorized_keys, too"},
    {"proxy-command-failed", STAGE_PORT, "the ProxyCommand or ProxyJump of ssh's configuration for {host} made no connection", "on this server: ssh -G -F {config} {host} shows it as proxycommand or proxyjump"},
    // ---- the client's login shell
    {"account-closed", STAGE_SHELL, "the login shell of {user} on {host} allows no login", "on {host}: getent passwd {user} shows it; usermod -s gives another"},
    {"password-expired", STAGE_SHELL, "the password of {user} on {host} has expired and must be changed", "on {host}: chage -l {user}"},
    {"forced-command", STAGE_SHELL, "on {host} the key runs a command of its own (command= in authorized_keys)", "on {host}: see command= in front of the key in authorized_keys"},
    {"session-refused", STAGE_SHELL, "{host} lets {user} in, but refuses the session", "on {host}: sshd -T -C user={user},host=,addr= shows maxsessions; journalctl -u ssh -n 20 says more"},
    {"command-not-begun", STAGE_SHELL, "{host} lets {user} in, but what was started there ended with status {status}, and the command never began", "on {host}: look at the login shell (getent passwd {user}), its start-up files, and forcecommand (sshd -T -C user={user},host=,addr=)"},
    {"shell-hangs", STAGE_SHELL, "{host} lets {user} in, but the command did not begin in time", "on {host}: look at the start-up files of {user}'s login shell, and at forcecommand (sshd -T -C user={user},host=,addr=)"},
    // ---- the program
    {"program-missing", STAGE_PROGRAM, "there is no {program} on {host}, neither in {dir} nor in its search path", "on {host}: install the software"},
    {"program-is-folder", STAGE_PROGRAM, "{dir}{program} on {host} is a folder", "on {host}: install the software again"},
    {"program-not-executable", STAGE_PROGRAM, "{program} on {host} may not be executed: its mode, or its file system (noexec), forbids it", "on {host}: ls -l {dir}{program}; findmnt -T {dir}"},
    {"interpreter-missing", STAGE_PROGRAM, "{program} on {host} needs {answer} to be run, and that is missing or cannot be executed", "on {host}: install {answer}, or the software again"},
    {"wrong-format", STAGE_PROGRAM, "{program} on {host} is not for this kind of machine", "on {host}: file {dir}{program}; uname -m"},
    {"library-missing", STAGE_PROGRAM, "{program} on {host} lacks the library {answer}", "on {host}: ldd {dir}{program}"},
    {"program-killed", STAGE_PROGRAM, "{program} on {host} ended with status {status}, as by signal {signal}", "on {host}: journalctl -n 20"},
    {"program-failed", STAGE_ANSWER, "{program} on {host} ended with status {status} and says why", ""},
    {"program-failed-silently", STAGE_ANSWER, "{program} on {host} ended with status {status} without output", "on {host}: run {program} by hand"},
    {"program-hangs", STAGE_ANSWER, "{program} started on {host}, but gave no output, or did not end, in time", "on {host}: run {program} by hand"},
    {"connection-lost", STAGE_ANSWER, "the connection to {host} broke while {program} ran", "on {host}: journalctl -u ssh -n 20"},
    {"no-version", STAGE_ANSWER, "{program} on {host} ended with success, but its report has no version", "on {host}: run {program} by hand"},
    {"session-broken", STAGE_ANSWER, "the client's own communication reports an error", ""},
    {"copy-hangs", STAGE_COPY, "the copy to {host} made no progress in time", "on {host}: df -h {folder}; journalctl -u ssh -n 20"},
    {"backup-failed", STAGE_ANSWER, "the test backup of {host} failed", ""},
    {"backup-cannot-return", STAGE_ANSWER, "{host} cannot send its data to {server}", "on {host}: getent hosts {server}"},
    // ---- copies
    {"no-sftp", STAGE_COPY, "the ssh service of {host} has no sftp", "on {host}: sshd -T shows subsystem; its line is Subsystem sftp internal-sftp"},
    {"start-up-prints", STAGE_COPY, "what the login of {user} on {host} starts prints text, which breaks every copy", "on {host}: nothing in ~/.bashrc and its like may print where the shell is not interactive; sshd -T shows subsystem"},
    {"disk-full", STAGE_COPY, "the disk of {host} is full", "on {host}: df -h {folder}"},
    {"copy-short", STAGE_COPY, "the file arrived incomplete on {host}", "on {host}: df -h {folder}"},
    {"disk-read-only", STAGE_COPY, "the file system of {folder} on {host} is read-only", "on {host}: findmnt -T {folder}; dmesg shows why it was made so"},
    {"copy-not-permitted", STAGE_COPY, "{user} may not write into {folder} on {host}", "on {host}: ls -ld {folder}"},
    {"copy-refused", STAGE_COPY, "{host} refused to write into {folder}, and does not say why", "on {host}: ls -ld {folder}; df -h {folder}; df -i {folder}"},
    {"packages-refused", STAGE_COPY, "the administrator of {host} does not let this server install packages", "on {host}: vk_setup set_client with --packages signed lets it install signed packages"},
    // ---- the update script
    {"package-empty", STAGE_SCRIPT, "the update script on {host} failed, and the package on this server is empty", "on this server: fetch it again; ls -l {file}"},
    {"package-cut", STAGE_SCRIPT, "the installer on {host} reports that the package is damaged", "on this server: fetch it again; ls -l {file}"},
    {"package-unsigned", STAGE_SCRIPT, "{host} installs signed packages only, and this one has no signature", "where the package is made: sign it (gpg --detach-sign); the signature lies beside the package on this server"},
    {"package-key-unknown", STAGE_SCRIPT, "{host} does not have the public key that signs the package", "on {host}: put that public key into the folder that the words name"},
    {"installer-locked", STAGE_SCRIPT, "another installation is under way on {host}", "on {host}: wait for its end; ps ax shows it"},
    {"update-script-missing", STAGE_SCRIPT, "the update script is not on {host}", "on this server: put it into the folder skel of gv_ro"},
    {"script-failed", STAGE_SCRIPT, "the update script on {host} ended with status {status} and says why", ""},
    {"script-failed-silently", STAGE_SCRIPT, "the update script on {host} ended with status {status} without output", ""},
    {"restart-needed", STAGE_END, "the update is installed; {host} has to be restarted", "restart {host}"},
    // ---- the database
    {"database-down", STAGE_NONE, "no database listens on {database} where conninfo looks for it: PostgreSQL does not run, or listens elsewhere", "on {database}: see whether PostgreSQL runs, and where it listens: ss -lxtnp"},
    {"database-no-socket", STAGE_NONE, "the folder in which conninfo looks for the database's socket does not exist", "on this server: correct host in conninfo of vk.ini"},
    {"database-socket", STAGE_NONE, "the user of this run may not use the database's socket", "on this server: run it as root, or correct host in conninfo of vk.ini"},
    {"database-name-unknown", STAGE_NONE, "the name {database} of the database's machine cannot be resolved here", "on this server: correct host in conninfo of vk.ini; getent hosts {database}"},
    {"database-unreachable", STAGE_NONE, "{database}, the machine of the database, cannot be reached from here", "on this server: ping -c 3 {database}"},
    {"database-silent", STAGE_NONE, "{database} did not answer for the database in time", "on {database}: see whether PostgreSQL answers there; on this server: ping -c 3 {database}"},
    {"database-starting", STAGE_NONE, "the database is starting, stopping or recovering", "try again later; on {database}: the log of PostgreSQL says more"},
    {"database-lost", STAGE_NONE, "the connection to the database broke", "on {database}: the log of PostgreSQL says why"},
    {"database-full", STAGE_NONE, "the database has no connection left for this user", "on {database}: see max_connections, and the limits of role and database (psql -c '\\du+')"},
    {"database-password", STAGE_NONE, "the database does not accept the password of its user", "on this server: correct the password in conninfo of vk.ini or in {file}"},
    {"database-password-file", STAGE_NONE, "others may read the password file {file}, so it is not used, and the database wants a password", "on this server, let only its owner read it", "chmod 600 {file}"},
    {"database-password-missing", STAGE_NONE, "the database wants a password, and there is none for it in conninfo, in the environment or in {file}", "on this server: enter it there: host:port:database:user:password"},
    {"database-login", STAGE_NONE, "the database refuses the login of this user", "on {database}: pg_hba.conf and the role decide; the log of PostgreSQL says which"},
    {"database-missing", STAGE_NONE, "there is no database of that name", "on this server: correct dbname in conninfo of vk.ini, or make it: vk_setup server"},
    {"database-tls-name", STAGE_NONE, "the database's certificate is for another name than conninfo in vk.ini uses", "on this server: name the host in conninfo as the certificate does"},
    {"database-certificate", STAGE_NONE, "encryption or certificate of the database's connection fails", "on this server: see sslmode, sslrootcert and host of conninfo in vk.ini"},
    {"database-conninfo", STAGE_NONE, "conninfo in vk.ini is invalid", "on this server: correct conninfo in vk.ini"},
    {"table-missing", STAGE_NONE, "the database lacks the table or schema that a statement names", "on this server: see dbname in conninfo of vk.ini; vk_setup server makes what is missing"},
    {"column-missing", STAGE_NONE, "the database lacks the column that a statement names", "on this server: vk_setup server makes what is missing"},
    {"database-locked", STAGE_NONE, "another session holds what a statement needs", "on {database}: psql -c 'select pid, query from pg_stat_activity' shows who"},
    {"statement-ended", STAGE_NONE, "a statement was ended by its time limit, or by an administrator", "on {database}: psql -c 'select pid, query from pg_stat_activity' shows what else runs"},
    {"database-read-only", STAGE_NONE, "the database is read-only", "on this server: name a writable server in conninfo of vk.ini"},
    {"database-permission", STAGE_NONE, "the database's user lacks a right", "on {database}: grant it what the words name"},
    {"database-constraint", STAGE_NONE, "the values of a statement break a rule of the database", ""},
    {"database-disk-full", STAGE_NONE, "the disk of the database is full", "on {database}: df -h"},
    {"database-failed", STAGE_NONE, "the database refused a statement", "on {database}: the log of PostgreSQL may say more"},
    {"server-row-missing", STAGE_NONE, "the database has no row with client_id 0 and a known operating system", "on this server: vk_setup server"},
    // ---- the run
    {"interrupted", STAGE_REACHED, "a signal ended the run", ""},
    {"not-registered", STAGE_NONE, "{host} is not registered", "on this server: register it with vk_config_client -c {host} and the operating system behind -o"},
    {"address-unusable", STAGE_NONE, "the address of {host} is not valid in the hosts file", "on this server: give one word with -a, or via_nameserver"},
    {"parameters-missing", STAGE_NONE, "the command line lacks a parameter, or a value is invalid", "on this server: vk_config_client -h shows what there is"},
    {"client-not-given", STAGE_NONE, "no client is given", "on this server: name it with -c; vk_config_client -h shows what there is"},
    {"system-not-given", STAGE_NONE, "{host} needs an operating system, and none is given", "on this server: name it with -o"},
    {"package-not-given", STAGE_NONE, "no package for {host} is given", "on this server: name it with -P"},
    {"package-name", STAGE_NONE, "the name of the package contains no readable version", "on this server: give the package as its maker named it"},
    {"update-not-supported", STAGE_NONE, "the package does not support the operating system of {host}", ""},
    {"update-not-needed", STAGE_NONE, "{host} has that version already", "on this server: -F updates it anyway"},
    {"update-running", STAGE_NONE, "another run updates {host} already", "wait for its end"},
    {"not-recognised", STAGE_REACHED, "this failure is not known; the words are all that was reported", ""},
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

/* Places that are no word of a command line: commands themselves, and what may be more. */
bool bPLAIN(std::string_view svPlace)
{
    return svPlace == "remove" || svPlace == "permit" || svPlace == "root" || svPlace == "database";
}

/* svText with its places filled; one without a value stays as it is.
   bTyped  it is typed into a shell, so each value is a word there */
std::string sFILLED(std::string_view svText, const PLACES& places, bool bTyped = false)
{
    std::string s;
    while (true) {
        const size_t uOpen = svText.find('{');
        const size_t uClose = uOpen == svText.npos ? uOpen : svText.find('}', uOpen);
        if (uClose == svText.npos) return s.append(svText);
        const auto place = places.find(std::string(svText.substr(uOpen + 1, uClose - uOpen - 1)));
        s += svText.substr(0, uOpen);
        if (place == places.end())
            s += svText.substr(uOpen, uClose + 1 - uOpen);
        else
            s += bTyped && !bPLAIN(place->first) ? sSHELL_WORD(SHELL_POSIX, place->second)
                                                 : place->second;
        svText.remove_prefix(uClose + 1);
    }
}

}  // namespace

std::span<const CAUSE> actCAUSES()
{
    return asctCause;
}

const CAUSE* pCAUSE(std::string_view svId)
{
    for (const CAUSE& cause : asctCause)
        if (svId == cause.cpId) return &cause;
    return nullptr;
}

const char* cpSTAGE(STAGE eStage)
{
    return eStage == STAGE_REACHED ? "where it was" : acpSTAGE[eStage];
}

/* A jump host fails as any host does: the rows are the same, told of it. */
DIAGNOSIS sctDIAGNOSIS(const FINDING& finding, const PLACES& places)
{
    const std::string_view svId = finding.sCause;
    const bool             bJump = pCAUSE(svId) == nullptr && svId.starts_with(cpJUMP);
    const CAUSE* pCause = pCAUSE(bJump ? svId.substr(std::string_view(cpJUMP).size()) : svId);
    if (pCause == nullptr) std::abort();
    DIAGNOSIS diagnosis;
    diagnosis.sStage = cpSTAGE(pCause->eStage == STAGE_REACHED ? finding.eReached : pCause->eStage);
    diagnosis.sCause = finding.sCause;
    diagnosis.sSentence = (bJump ? sFILLED("the way over the jump host {jump}: ", places) : "") +
                          sFILLED(pCause->cpSentence, places);
    diagnosis.sCure = sFILLED(pCause->cpCure, places, true);
    diagnosis.sCommand = sFILLED(pCause->cpCommand, places, true);
    diagnosis.asWords = finding.asWords;
    return diagnosis;
}
