"""The agent under a real systemd --user: installed, without a profile, killed, upgraded, removed."""

import json
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
import urllib.request

import user_manager
from built import AGENT, BUILD, SOURCE, STATUS, copy_programs, files_below

UNIT = "pelmar-cowork-watcher.service"
LINUX = SOURCE / "packaging" / "linux"
PATIENCE = 60  # seconds


class SupervisedAgent(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        user_manager.mount_own_places()
        cls.root = pathlib.Path(tempfile.mkdtemp(prefix="pelmar-test-"))
        cls.root.chmod(0o755)
        cls.home = cls.root / "home"
        cls.home.mkdir()
        copy_programs(cls.root / "build", twins=True)
        shutil.copy(BUILD / "pelmar-local-service", cls.root / "service")
        shutil.copytree(LINUX, cls.root / "scripts")
        cls.environment = {
            "PATH": "/usr/bin:/bin",
            "HOME": str(cls.home),
            "XDG_RUNTIME_DIR": str(user_manager.RUNTIME),
            "PELMAR_ROOT": str(cls.root),
        }
        # The same unit, without ten seconds between two starts.
        drop_in = cls.home / f".config/systemd/user/{UNIT}.d/soon.conf"
        drop_in.parent.mkdir(parents=True)
        drop_in.write_text("[Service]\nRestartSec=50ms\n")
        (cls.home / ".claude/projects/p").mkdir(parents=True)
        records = cls.home / "Library/Application Support/Claude/claude-code-sessions"
        records.mkdir(parents=True)
        (records / "local_s1.json").write_text('{"cliSessionId": "s1"}')
        cls.own = set(files_below(cls.home))
        user_manager.give(cls.root)
        cls.manager = user_manager.start(cls.environment)
        cls.wait_for(lambda: cls.systemctl("is-system-running").stdout.strip() == "running")

    @classmethod
    def tearDownClass(cls):
        cls.manager.terminate()
        cls.manager.wait()
        shutil.rmtree(cls.root)

    @classmethod
    def systemctl(cls, *arguments):
        return subprocess.run(
            ["systemctl", "--user", *arguments], env=cls.environment, capture_output=True, text=True,
            **user_manager.AS_USER,
        )

    @classmethod
    def wait_for(cls, condition):
        deadline = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > deadline:
                raise AssertionError(cls.systemctl("status", UNIT).stdout)
            time.sleep(0.02)

    def property(self, name):
        return self.systemctl("show", "--value", "-p", name, UNIT).stdout.strip()

    def script(self, name, *arguments):
        subprocess.run(
            [self.root / "scripts" / name, *arguments], env=self.environment, check=True, capture_output=True,
            **user_manager.AS_USER,
        )

    def start_service(self):
        (self.root / "key").write_text("key-of-the-test\n")
        user_manager.give(self.root / "key")
        service = subprocess.Popen(
            [self.root / "service", "--database", self.root / "service.db", "--key-file", self.root / "key"],
            stdout=subprocess.PIPE, text=True, **user_manager.AS_USER,
        )
        self.addCleanup(service.stdout.close)
        self.addCleanup(service.wait)
        self.addCleanup(service.terminate)
        self.url = service.stdout.readline().split()[-1]

    def ask(self, path):
        request = urllib.request.Request(self.url + path, headers={"X-Pel-Key": "key-of-the-test"})
        with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
            return json.load(answer)

    def reported(self):
        """The texts of the user messages that the service holds."""
        texts = []
        for run in self.ask("/api/local/runs")["items"]:
            after = 0
            while after is not None:
                page = self.ask(f"/api/local/runs/{run['run_id']}/steps?after={after}&limit=1000")
                texts += [step["output"]["text"] for step in page["items"]]
                after = page["next"]
        return texts

    def append(self, numbers):
        with open(self.home / ".claude/projects/p/s1.jsonl", "a", encoding="utf-8") as transcript:
            for number in numbers:
                line = {"type": "user", "uuid": str(number), "message": {"content": f"message {number}"}}
                transcript.write(json.dumps(line) + "\n")

    def all_up_to(self, count):
        return {f"message {number}" for number in range(count)} <= set(self.reported())

    def test_life_of_an_installed_agent(self):
        self.start_service()
        self.script("install", self.root / "build")

        # Without a profile it ends with status 1, and systemd never gives up: its default limit of
        # starts would have been reached at five.
        self.wait_for(lambda: int(self.property("NRestarts")) >= 8)
        self.wait_for(lambda: self.property("ExecMainStatus") == "1")

        config = self.home / ".pelmar/config"
        config.parent.mkdir(exist_ok=True)
        config.write_text(
            f"[claude-cowork]\napi_url = {self.url}\napi_key = key-of-the-test\nagent_slug = garden\n"
        )
        user_manager.give(config.parent)
        self.wait_for(lambda: self.ask("/api/local/summary")["heartbeats"] > 0)
        self.assertEqual(self.property("ActiveState"), "active")
        pid = self.property("MainPID")
        process = pathlib.Path(f"/proc/{pid}/status").read_text()
        self.assertRegex(process, r"NoNewPrivs:\s1\n")
        self.assertRegex(process, r"Seccomp:\s2\n")

        # Killed again and again while the session goes on, it loses no event.
        self.append(range(10))
        self.wait_for(lambda: self.all_up_to(1))
        for kill in range(5):
            self.append(range(10 + kill * 10, 20 + kill * 10))
            self.wait_for(lambda: self.property("MainPID") != "0")
            pid = self.property("MainPID")
            os.kill(int(pid), signal.SIGKILL)
            self.wait_for(lambda old=pid: self.property("MainPID") not in (old, "0"))
        self.wait_for(lambda: self.all_up_to(60))

        # Upgraded while the session goes on, it loses none either.
        pid = self.property("MainPID")
        self.append(range(60, 70))
        self.script("install", self.root / "build")
        self.append(range(70, 80))
        self.wait_for(lambda: self.all_up_to(80))
        self.assertNotEqual(self.property("MainPID"), pid)

        status = subprocess.run(
            [self.home / ".local/bin" / STATUS, "--check"], env=self.environment, capture_output=True, text=True,
            **user_manager.AS_USER,
        )
        self.assertIn("the service accepts the key", status.stdout)

        self.script("uninstall")
        self.assertEqual(self.systemctl("is-active", UNIT).stdout.strip(), "inactive")
        left = set(files_below(self.home)) - self.own
        self.assertEqual({path.split("/")[0] for path in left} - {".claude"}, {".pelmar"})
        self.assertFalse((self.home / ".local/bin" / AGENT).exists())


if __name__ == "__main__":
    user_manager.enter()
    unittest.main()
