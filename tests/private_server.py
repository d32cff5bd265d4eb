"""What ./dev test soak, kill_points and faults_of_system share: a private server with its
clients, and the look at what runs left behind there."""
import contextlib, os, pathlib, re, subprocess, tempfile, time

SANDBOX = pathlib.Path(__file__).resolve().parent.parent / "sandbox" / "sandbox"


@contextlib.contextmanager
def private_server(clients):
    """Brings one up and takes it down; gives its folder."""
    with tempfile.TemporaryDirectory(prefix="vk-long-test.") as folder:
        box = pathlib.Path(folder) / "box"
        subprocess.run([SANDBOX, "up", box, "--clients", " ".join(clients), "--rows", "--quick",
                        "--parent", str(os.getpid())], check=True)
        try:
            yield box
        finally:
            subprocess.run([SANDBOX, "down", box])


class Server:
    def __init__(self, box):
        self.box = box
        self.environment = dict(line.split("=", 1) for line in subprocess.run(
            ["bash", "-c", f". {box}/env && env"], capture_output=True, text=True, check=True,
            env={"PATH": os.environ["PATH"]}).stdout.splitlines() if "=" in line)
        (box / "tmp").mkdir()
        self.environment["TMPDIR"] = str(box / "tmp")

    def psql(self, text):
        return subprocess.run(["psql", "-qXAtc", text], env=self.environment, capture_output=True,
                              text=True).stdout.strip()

    def at_once(self, number):
        """So many clients of a run over many."""
        ini = self.box / "vk.ini"
        ini.write_text(ini.read_text().replace("parallel = 1\n", f"parallel = {number}\n"))

    def package(self, name, size):
        (self.box / "server/rw/work/packages" / name).write_bytes(os.urandom(size))

    def processes(self, marks=("",)):
        """Command lines of runs, of their connections and of clients' commands that still live,
        with one of the marks in their environment."""
        left = []
        for folder in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                words = (folder / "cmdline").read_bytes().replace(b"\0", b" ").decode(errors="replace")
                environment = (folder / "environ").read_bytes().decode(errors="replace")
                of_run = re.match(r"(\S*/)?(vk_config_client|ssh|sftp)[: ]", words) or "\0VK_CLIENT=" in environment
                if of_run and str(self.box) in environment and any(mark + "\0" in environment for mark in marks):
                    left.append(words)
            except OSError:
                pass  # it has ended meanwhile
        return left

    def left_behind(self, clients):
        time.sleep(32)  # an orphaned connection ends by itself within half a minute
        left = self.processes()
        left += [str(lock) for lock in self.box.glob("server/rw/sema/*")
                 if subprocess.run(["flock", "-n", lock, "true"]).returncode != 0]
        subprocess.run(["vk_config_client", "-C", "r", *clients], env=self.environment, timeout=150,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        left += [str(p) for p in self.box.glob("clients/*/velka/**/*.part*")]
        left += [str(p) for folder in ("tmp", "run") for p in self.box.glob(folder + "/vk-*")]
        sessions = self.psql("select count(*) from pg_stat_activity where application_name = 'vk_config_client'")
        left += [f"{sessions} sessions of the database"] if sessions != "0" else []
        orphans = self.psql("select count(*) from interfaces where client_id not in (select client_id from clients)")
        return left + ([f"{orphans} orphaned interfaces"] if orphans != "0" else [])

    def report(self, count, wrong, clients):
        """Prints what was done and what went wrong; gives the exit status."""
        for what, number in sorted(count.items()):
            print(f"{number:6} {what}")
        left = self.left_behind(clients)
        for line in wrong + [f"left behind: {line}" for line in left]:
            print("WRONG " + line)
        print(f"{len(wrong)} wrong, {len(left)} left behind")
        return 1 if wrong or left else 0
