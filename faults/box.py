"""The sandbox that faults are made on, and what changes it."""
import json
import os
import re
import shlex
import shutil
import socket
import subprocess
import sys
import time

BOX = os.path.abspath(sys.argv[1]) if len(sys.argv) > 1 else ""
SANDBOX = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "sandbox", "sandbox")


def read_line(path):
    """"" where there is no such file."""
    if not os.path.exists(path):
        return ""
    with open(path, encoding="utf-8") as file:
        return file.readline().strip()


CONFIG = BOX + "/server/rw/ini/ssh/config"
KNOWN = BOX + "/server/rw/ini/ssh/known_hosts"
INI = BOX + "/vk.ini"
HOME = BOX + "/clients/beta"
JUMP = BOX + "/clients/dm1"
ETC = HOME + "/etc"  # the client's own /etc, where root may give it one
ROOT = os.geteuid() == 0
SSHD = ETC + "/ssh/sshd_config" if ROOT else HOME + "/sshd_config"
JUMP_ETC = JUMP + "/etc"
JUMP_SSHD = JUMP_ETC + "/ssh/sshd_config" if ROOT else JUMP + "/sshd_config"
KEYS = HOME + "/.ssh/authorized_keys"
JUMP_KEYS = JUMP + "/.ssh/authorized_keys"
PROT = BOX + "/server/rw/prot"
SKEL = BOX + "/server/velka/skel"
PACKAGE = BOX + "/server/rw/work/packages/velka-cli_5.1.0-9_amd64.deb"
QTC = HOME + "/velka/bin/qtc"
CLUSTER = read_line(BOX + "/cluster")
DATA = CLUSTER + "/data"
HBA = DATA + "/pg_hba.conf"
NET, PORT = (read_line(BOX + "/net") or " ").split(" ")
ENVIRONMENT = dict(os.environ, TERM="dumb", LC_ALL="C")
CHECK = ["vk_config_client", "-c", "beta", "-C", "r"]
UPDATE = ["vk_config_client", "-c", "beta", "-U", "-F", "-P", os.path.basename(PACKAGE)]
REGISTER = ["vk_config_client", "-c", "beta", "-o", "Linux"]
PROXIED = ["vk_config_client", "-c", "px1", "-C", "r"]
# root without the right to read what it may not
PLAIN = "-dac_override,-dac_read_search"
WITHOUT_RIGHT = ["setpriv", "--bounding-set", PLAIN, "--inh-caps", PLAIN]


class NotMade(Exception):
    """This machine lacks what the fault is made with."""


def read(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def edit(path, pattern, text):
    write(path, re.sub(pattern, text, read(path), count=1, flags=re.M))


def of_client(text, client="beta"):
    """Puts a line into the client's part of ssh's configuration, where it counts."""
    edit(CONFIG, r"^Host " + client + "$", "Host " + client + "\n    " + text)


def wait_until(is_so, limit=20):
    end = time.monotonic() + limit
    while not is_so() and time.monotonic() < end:
        time.sleep(0.02)


def listens(address, port):
    with socket.socket() as one_socket:
        return one_socket.connect_ex((address, port)) == 0


def shell(command):
    return subprocess.run(command, shell=True, env=ENVIRONMENT, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=30,
                          check=False)


def sql(text):
    shell("psql -qXc " + json.dumps(text).replace("$", "\\$"))


def own_machine(name):
    """Gives a client an /etc of its own, in which its sshd lives, and programs for what
    a sandbox has no system for."""
    home = f"{BOX}/clients/{name}"
    os.makedirs(home + "/.ssh", 0o700)
    shutil.copy(home + "/authorized_keys", home + "/.ssh/authorized_keys")
    edit(home + "/sshd_config", "^AuthorizedKeysFile .*",
         f"AuthorizedKeysFile {home}/.ssh/authorized_keys")
    edit(home + "/sshd_config", "PATH=", f"PATH={home}/tools:")
    os.mkdir(home + "/tools")
    os.symlink("/usr/lib/openssh/sftp-server", home + "/tools/internal-sftp")
    write(home + "/tools/systemctl",
          "#!/bin/sh\n# start, restart or reload ssh\n"
          f"[ ! -s {BOX}/services/{name}/pid ] || kill -CONT $(cat {BOX}/services/{name}/pid)\n"
          f"{SANDBOX} stop {BOX} {name}; {SANDBOX} start {BOX} {name}\n")
    os.chmod(home + "/tools/systemctl", 0o755)
    if not ROOT:
        return
    shell(f"cp -a /etc {home}/etc; mkdir -p {home}/etc/ssh")
    shutil.copy(home + "/sshd_config", home + "/etc/ssh/sshd_config")
    # What is typed there must never reach this machine's own root.
    edit(home + "/etc/passwd", "^(root:.*):/root:", r"\1:" + home + ":")
    run = f"{BOX}/services/{name}/run"
    text = read(run).replace(f"{home}/sshd_config", "/etc/ssh/sshd_config")
    command = re.search(r"exec (setpriv .*)", text).group(1)
    write(run, "#!/bin/sh\nexec unshare -m --propagation private sh -c '"
          f"mount --bind {home}/etc /etc; [ ! -x {home}/mounts ] || {home}/mounts; "
          "exec \"$0\" \"$@\"' " + command + "\n")


def on_client(name, command):
    """Types a command on a client, as its administrator."""
    home = f"{BOX}/clients/{name}"
    pid = f"{BOX}/services/{name}/pid"
    inside = f"cd {home}; PATH={home}/tools:$PATH; HOME={home}; export PATH HOME; {command}"
    if not ROOT:
        return shell(inside)
    if os.path.exists(pid):
        enter = ["nsenter", "-t", read(pid).strip(), "-m", "--"]
    else:
        enter = ["unshare", "-m", "--propagation", "private", "--"]
        inside = f"mount --bind {home}/etc /etc; {inside}"
    return shell(" ".join(enter) + " sh -c " + shlex.quote(inside))


def mounted(commands):
    """What the client mounts as it starts."""
    os.makedirs(HOME + "/mnt", exist_ok=True)
    write(HOME + "/mounts", "#!/bin/sh\n" + commands + "\n")
    os.chmod(HOME + "/mounts", 0o755)
    restart()


def small_disk(options, more=""):
    """The work folder of the client becomes a file system of its own."""
    mounted(f"mount -t tmpfs -o {options} tmpfs {HOME}/velka/work\n{more}")


def bashrc(text):
    write(HOME + "/.bashrc", text + "\n")


def login_shell(path):
    on_client("beta", f"usermod -s {path} root")


def under(setup, *options, words=CHECK):
    """What is run, behind what is set up for it alone."""
    return list(options) + ["sh", "-c", setup + '; exec "$0" "$@"'] + words


def in_network(setup, address=None):
    """Runs the tool in a network namespace of its own."""
    if address:
        of_client("HostName " + address)
    return under("ip link set lo up; " + setup, "unshare", "-n")


# Neighbours that nobody is: what is sent there gets no answer.
SWALLOWED = "198.51.100.7"
SWALLOW = ("ip link add v0 type veth peer name v1 && ip addr add 198.51.100.1/24 dev v0 && "
           "ip link set v0 up && ip link set v1 up && "
           f"ip neigh add {SWALLOWED} lladdr 02:00:00:00:00:01 dev v0")


def without_programs(*names, more=""):
    """A search path on which these are missing; more puts others there."""
    folder = BOX + "/few"
    shutil.rmtree(folder, ignore_errors=True)
    os.mkdir(folder)
    for name in {"vk_config_client", "sh", "ssh", "sftp", "ssh-keygen"} - set(names):
        os.symlink(shutil.which(name), folder + "/" + name)
    for name in names if more else ():
        write(folder + "/" + name, more)
    return ["env", "PATH=" + folder]


def small_folder(options, words=CHECK):
    """The folder of the run is a file system of its own."""
    folder = BOX + "/small"
    os.makedirs(folder, exist_ok=True)
    return under(f"mount -t tmpfs -o {options} tmpfs {folder}; export TMPDIR={folder}",
                 "unshare", "-m", "--propagation", "private", words=words)


def full_queue():
    """A port that takes no further connection: the system drops what asks for one."""
    server = socket.socket()
    server.bind((NET + ".251", int(PORT)))
    server.listen(0)
    waiting = [socket.socket() for _ in range(3)]
    for one_socket in waiting:
        one_socket.setblocking(False)
        one_socket.connect_ex((NET + ".251", int(PORT)))
    of_client("HostName " + NET + ".251")
    return lambda: [one_socket.close() for one_socket in [server] + waiting]


def postgres(verb, is_so=None):
    write(BOX + "/control", f"{verb} postgres\n")
    is_so = is_so or (lambda said: (said.returncode == 0) == (verb == "start"))
    wait_until(lambda: is_so(shell("psql -qXc ''")))


def role(settings, words="", pgpass=None, name="tool", rights=False):
    """Another role for the tool."""
    sql(f"create role {name} login")
    sql(f"alter role {name} {settings}")
    if rights:
        sql(f"grant all on all tables in schema public to {name}")
    conninfo(re.sub("user=\\w+", "user=" + name, good_conninfo(words)))
    once()
    if pgpass:
        write(BOX + "/pgpass", "*:*:*:tool:right\n")
        os.chmod(BOX + "/pgpass", pgpass)


def once():
    """Nothing is tried again, which changes no cause and takes long."""
    edit(INI, "^conninfo", "retry_time = 0\nconninfo")


def reload():
    """And until new connections meet what was changed."""
    loaded = "psql -qXAtc 'select pg_conf_load_time()'"
    before = shell(loaded).stdout
    sql("select pg_reload_conf()")
    wait_until(lambda: shell(loaded).stdout != before)


def hba(line):
    write(HBA, line + "\n" + read(HBA))
    reload()


def setting(text):
    sql(f"alter system set {text}")
    reload()


def with_password():
    hba("local all tool scram-sha-256")


def on_address(host, options="sslmode=disable"):
    """The database on an address of its own."""
    address = NET + ".252"
    service = BOX + "/services/postgres/run"
    if address not in read(service):
        edit(service, "listen_addresses=", "listen_addresses=" + address)
        postgres("stop")
        postgres("start")
    hba("host all all 127.0.0.0/8 trust")
    once()
    conninfo(re.sub("host=\\S+", f"host={host} hostaddr={address}", good_conninfo(options)))


def with_tls(root, host):
    """With a certificate for db.invalid."""
    if not os.path.exists(BOX + "/tls.crt"):
        for name, of in (("tls", "db.invalid"), ("other", "other.invalid")):
            shell(f"openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN={of} "
                  f"-keyout {BOX}/{name}.pem -out {BOX}/{name}.crt")
        shell(f"cd {DATA}; cp {BOX}/tls.crt server.crt; cp {BOX}/tls.pem server.key; "
              "chmod 600 server.key; chown --reference=PG_VERSION server.crt server.key")
    setting("ssl = on")
    on_address(host, f"sslmode=verify-full sslrootcert={BOX}/{root}.crt")


def in_german():
    """The database server speaks German, in a locale of its own."""
    if not os.path.exists(CLUSTER + "/locale"):
        os.mkdir(CLUSTER + "/locale")
        shell(f"localedef -i de_DE -f UTF-8 --no-archive {CLUSTER}/locale/de_DE.UTF-8")
        edit(BOX + "/services/postgres/run", "^exec",
             f"export LOCPATH={CLUSTER}/locale; exec")
        postgres("stop")
        postgres("start")
    setting("lc_messages = 'de_DE.UTF-8'")
    if b"existiert nicht" not in shell("psql -qXc 'select nothing'").stdout:
        raise NotMade("the database server speaks no German here")


def standby(hot):
    """The database server follows another one that never comes; hot: it answers."""
    setting(f"hot_standby = {hot}")
    once()
    shell(f"touch {DATA}/standby.signal; chown --reference={DATA}/PG_VERSION {DATA}/standby.signal")
    postgres("stop")
    postgres("start", lambda said: said.returncode == 0 if hot == "on" else
             b"not accepting" in said.stdout)

    def undo():
        os.remove(DATA + "/standby.signal")
        postgres("stop")
        postgres("start")
    return undo


def answers(state, text):
    """What listens on the database's port refuses with this, as a pooler does."""
    fields = f"SFATAL\0VFATAL\0C{state}\0M{text}\0\0".encode()
    process = serve(NET + ".249", b"E" + (len(fields) + 4).to_bytes(4, "big") + fields, 4096)
    at_port(NET + ".249", PORT)
    return process.kill


def at_port(host, port, options="sslmode=disable"):
    once()
    conninfo(re.sub("host=\\S+", f"host={host} port={port}", good_conninfo(options)))


def lock():
    edit(INI, "^conninfo", "statement_timeout = 1\nconninfo")
    process = subprocess.Popen(["psql", "-qXc", "begin; lock table clients; select pg_sleep(60)"],
                               env=ENVIRONMENT, stdout=subprocess.DEVNULL)
    wait_until(lambda: b"1" in shell("psql -qXAtc \"select 1 from pg_locks where "
                                     "mode = 'AccessExclusiveLock' and granted\"").stdout)

    def unlock():
        process.terminate()
        sql("select pg_terminate_backend(pid) from pg_stat_activity where query like '%pg_sleep%' "
            "and pid <> pg_backend_pid()")
    return unlock


def stop(name):
    shell(f"{SANDBOX} stop {BOX} {name}")


def restart(name="beta"):
    shell(f"{SANDBOX} stop {BOX} {name}; {SANDBOX} start {BOX} {name}")


def sshd(pattern, text):
    edit(SSHD, pattern, text)
    restart()


def policy(*lines):
    """Lines of the client's sshd."""
    sshd("^Port", "\n".join(lines) + "\nPort")


def match(criteria, *lines):
    sshd(r"\Z", "\nMatch " + "\n    ".join((criteria,) + lines) + "\n")


def with_pam(*lines):
    edit(SSHD, "^UsePAM .*", "UsePAM yes")
    policy(*lines)


def busy():
    """As many logins are under way as may be."""
    sshd("^MaxStartups .*", "MaxStartups 1:100:1")
    address = re.search(r"Host beta\n    HostName (.*)", read(CONFIG)).group(1)
    waiting = socket.create_connection((address, int(PORT)))
    waiting.recv(64)
    return waiting.close


def at_jump(*lines):
    edit(JUMP_SSHD, "^Port", "\n".join(lines) + "\nPort")
    restart("dm1")


def switch(*settings, program="qtc"):
    shell(f"{SANDBOX} set {BOX} beta {program} " + " ".join(json.dumps(s) for s in settings))


def serve(address, answer, first=0):
    """A service that reads so much first, answers so, and closes."""
    code = ("import socket,sys;s=socket.socket();"
            "s.setsockopt(socket.SOL_SOCKET,socket.SO_REUSEADDR,1);"
            f"s.bind(('{address}',{PORT}));s.listen(9)\n"
            f"while True:\n c,_=s.accept();{first} and c.recv({first});"
            f"c.sendall({answer!r});c.close()\n")
    process = subprocess.Popen([sys.executable, "-c", code], stderr=subprocess.DEVNULL)
    wait_until(lambda: listens(address, int(PORT)))
    return process


def listener(answer):
    """A service on an address of its own that answers so and closes."""
    process = serve(NET + ".250", answer)
    of_client("HostName " + NET + ".250")
    return process.kill


def other_key():
    path = BOX + "/other_key"
    if not os.path.exists(path):
        shell(f"ssh-keygen -q -t ed25519 -N '' -f {path}")
    return path


def known(name, key):
    """Keeps another host key for a name than it shows."""
    kept = [line for line in read(KNOWN).splitlines() if not line.startswith(name + " ")]
    kept.append(name + " " + " ".join(read(key + ".pub").split()[:2]))
    write(KNOWN, "\n".join(kept) + "\n")


def host_key_of_another():
    """The name of one client leads to another."""
    address = re.search(r"Host alpha\n    HostName (.*)", read(CONFIG)).group(1)
    of_client("HostName " + address)


def own_key(change):
    """The server's key as a copy that can be spoiled."""
    shutil.copy(BOX + "/keys/client", BOX + "/spoiled")
    os.chmod(BOX + "/spoiled", 0o600)
    edit(CONFIG, "IdentityFile .*", f"IdentityFile {BOX}/spoiled")
    shell(change)


def certificate():
    own_key("true")
    shutil.copy(BOX + "/keys/client.pub", BOX + "/spoiled.pub")
    shell(f"ssh-keygen -q -s {other_key()} -I me -n root -V 20200101:20200102 {BOX}/spoiled.pub")
    write(KEYS, "cert-authority " + read(other_key() + ".pub"))


def jump(name, extra=""):
    of_client("ProxyJump " + name + extra)


def program(name, change):
    path = HOME + "/velka/bin/" + name
    text = read(path)
    os.remove(path)
    write(path, text.replace("base=${0%/velka/bin/*}", "base=" + HOME))
    os.chmod(path, 0o755)
    change(path)


def program_is(content, name="qtc"):
    path = HOME + "/velka/bin/" + name
    os.remove(path)
    with open(path, "wb") as file:
        file.write(content if isinstance(content, bytes) else content.encode())
    os.chmod(path, 0o755)


def says(text, code, name="qtc"):
    """The program prints this and ends so."""
    program_is(f"#!/bin/sh\necho {shlex.quote(text)} >&2\nexit {code}\n", name)


def script_says(text):
    switch("exit=3", "text=" + text, program="vk_execute_update")


def library_missing():
    with open(shutil.which("ssh-keygen"), "rb") as file:
        program_is(re.sub(rb"libcrypto\.so\.\d", b"libcrypto.so.x", file.read()))


def program_is_folder():
    os.remove(QTC)
    os.mkdir(QTC)


def conninfo(text):
    edit(INI, r"^conninfo = .*", "conninfo = " + text)


def good_conninfo(word):
    return re.search(r"^conninfo = (.*)", read(INI), re.M).group(1) + " " + word


def with_agent(*keys, options=""):
    """ssh asks an agent that holds these."""
    sock = BOX + "/agent"
    process = subprocess.Popen(["ssh-agent", "-D", "-a", sock], stdout=subprocess.DEVNULL)
    wait_until(lambda: os.path.exists(sock))
    for key in keys:
        shell(f"SSH_AUTH_SOCK={sock} ssh-add -q {options} {key}")
    edit(CONFIG, "IdentityAgent .*", "IdentityAgent " + sock)

    def undo():
        process.kill()
        process.wait()
        os.remove(sock)
    return undo


def agent():
    """More keys in an agent than the client lets be tried, the right one behind them."""
    policy("MaxAuthTries 2")
    for number in range(3):
        shell(f"ssh-keygen -q -t ed25519 -N '' -f {BOX}/spoiled{number}")
    edit(CONFIG, "IdentitiesOnly yes", "IdentitiesOnly no")
    return with_agent(*(f"{BOX}/spoiled{number}" for number in range(3)))


def refusing_agent():
    """An agent that wants to be confirmed, where nobody is to do it."""
    own_key("true")
    undo = with_agent(BOX + "/spoiled", options="-c")
    shell(f"ssh-keygen -y -f {BOX}/spoiled >{BOX}/spoiled.pub; rm {BOX}/spoiled")
    edit(CONFIG, "IdentityFile .*", f"IdentityFile {BOX}/spoiled.pub")
    return undo


def forget(name):
    write(KNOWN, "".join(line for line in read(KNOWN).splitlines(True)
                         if not line.startswith(name + " ")))


def key_new(name):
    edit(CONFIG, "accept-new", "yes")
    forget(name)


