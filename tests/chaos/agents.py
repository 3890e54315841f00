"""One agent in a home of its own: started, killed as planned, started again."""

import asyncio
import collections
import json
import os
import pwd
import random
import signal
import time

import faults
from comparer import Kill
from proxy import Proxy

WATCHING = 0.0005  # seconds between two looks at the cursor
TAIL_ONLY = "tail"  # the home whose agent runs without --from-start
PATIENCE = 1.5  # seconds that a kill waits for the save or the request of its plan


def other_user():
    """Permissions mean nothing to root: its agents are another's processes. None for anybody else."""
    if os.geteuid() != 0:
        return None
    nobody = pwd.getpwnam("nobody")
    return nobody.pw_uid, nobody.pw_gid


def moment_of(why):
    """Without the number of the request."""
    return " ".join(word for word in why.split() if not word.isdigit())


class Home:
    """`kills` is shared by all homes of a round; take() gives leave for one more."""

    def __init__(self, folder, seed, slug, program, service, kills, has_journal):
        self.name = folder.name
        self.is_from_start = folder.name != TAIL_ONLY
        self.folder = folder
        self.home = folder / "home"
        self.seed = seed
        self.slug = slug
        self.program = program
        self.key = service.key
        self.kills = kills
        self.user = other_user()
        self.waiting = set()
        self.proxy = Proxy(self.name, int(service.url.rsplit(":", 1)[1]), self.waiting, self.strike)
        self.life = 0
        self.process = None
        self.struck = asyncio.Event()
        self.why = ""
        self.moments = collections.Counter()  # of kills
        self.problems = []
        self.plan = faults.Plan()
        for made in (self.home / ".pelmar", self.home / ".claude" / "projects"):
            made.mkdir(parents=True)
        if not has_journal:  # what cannot be written is not there
            (self.home / ".pelmar" / "cowork-cursor-journal.jsonl").mkdir()
        self.give(self.home / ".pelmar")
        self.log = (folder / "agent.log").open("ab")

    def give(self, path):
        if self.user:
            os.chown(path, *self.user)

    def configure(self):
        config = self.home / ".pelmar" / "config"
        config.unlink(missing_ok=True)
        config.touch(mode=0o600)
        slug = f"agent_slug = {self.slug}\n" if self.slug else ""
        config.write_text(f"[claude-cowork]\napi_url = http://127.0.0.1:{self.proxy.port}/life{self.life}\n"
                          f"api_key = {self.key}\n{slug}")
        self.give(config)

    async def start(self, plan):
        self.life += 1
        self.plan = plan
        self.struck.clear()
        self.why = ""
        self.proxy.begin_life(self.life, plan)
        self.configure()
        user = {"user": self.user[0], "group": self.user[1], "extra_groups": []} if self.user else {}
        from_start = ["--from-start"] if self.is_from_start else []
        self.process = await asyncio.create_subprocess_exec(
            self.program, "--poll", "0.05", *from_start, env={"PELMAR_ROOT": str(self.folder)}, cwd="/",
            stdin=asyncio.subprocess.DEVNULL, stdout=self.log, stderr=self.log, **user)

    async def live(self):
        """Lives and dies until no kill is left."""
        await self.proxy.up()
        while self.kills.take():
            plan = faults.plan_of_life(random.Random(f"{self.seed}/{self.name}/{self.life}"))
            await self.start(plan)
            if plan.kind == "save":
                await asyncio.sleep(plan.after)
                await self.watch_cursor()
            elif plan.kind in ("request", "first"):
                await self.wait_struck(plan.after + PATIENCE)
            else:
                await self.wait_struck(plan.after)
            await self.die("right after the start" if plan.kind == "start" else "at any time")
            await asyncio.sleep(plan.pause)

    async def live_quietly(self):
        """A life without faults, which nothing ends."""
        await self.start(faults.Plan())

    async def wait_struck(self, seconds):
        try:
            await asyncio.wait_for(self.struck.wait(), seconds)
        except asyncio.TimeoutError:
            pass

    async def watch_cursor(self):
        """Kills in the middle of a save, or right behind it."""
        cursor = self.home / ".pelmar" / "cowork-cursor.json"
        before = self.inode(cursor)
        deadline = asyncio.get_running_loop().time() + PATIENCE
        while asyncio.get_running_loop().time() < deadline and not self.struck.is_set():
            if self.inode(cursor) != before or self.inode(cursor.with_suffix(".json.tmp")):
                return self.kill(self.life, "around a save of the cursor")
            await asyncio.sleep(WATCHING)
        return None

    @staticmethod
    def inode(path):
        try:
            return os.stat(path).st_ino
        except OSError:
            return 0

    def strike(self, life, moment, detail):
        """Called wherever a planned kill may fall; whether it fell."""
        if life != self.life or self.struck.is_set() or self.plan.kind == "none":
            return False
        if moment == "never":
            asyncio.get_running_loop().call_later(detail, self.kill, life, "waiting for an answer")
            return False
        if moment == self.plan.kind == "first":
            self.kill(life, "first event of a session")
            return True
        if self.plan.kind != "request" or moment != self.plan.moment or detail < self.plan.request:
            return False
        if moment == "answered":
            time.sleep(self.plan.delay)  # the event loop's clock is too coarse
        self.kill(life, f"request {detail} {moment}")
        return True

    def kill(self, life, why):
        if life == self.life and not self.struck.is_set() and self.process.returncode is None:
            self.process.send_signal(signal.SIGKILL)
            self.why = why
            self.struck.set()

    async def die(self, why):
        self.kill(self.life, why)
        status = await self.process.wait()
        if status != -signal.SIGKILL:
            self.problems.append(f"{self.name}: the agent ended by itself in life {self.life}: {status}")
        self.moments[moment_of(self.why)] += 1
        self.kills.add(Kill(self.name, self.life, f"{self.why}; plan: {self.plan}", self.offsets()))

    def offsets(self):
        """Of the cursor as the kill left it, by the transcript's name."""
        try:
            text = (self.home / ".pelmar" / "cowork-cursor.json").read_text()
        except FileNotFoundError:
            return {}
        try:
            entries = json.loads(text)
            return {self.name_of(path): entry["offset"] for path, entry in entries.items()}
        except (ValueError, AttributeError, TypeError, KeyError) as error:
            self.problems.append(f"{self.name}: the cursor is damaged after life {self.life}: {error!r}")
            return {}

    def name_of(self, path):
        return os.path.relpath(path, self.folder.parent)

    def find_key(self):
        logs = (self.folder / "agent.log", self.home / ".pelmar" / "logs" / "cowork-watcher.activity.jsonl")
        for log in logs:
            if log.exists() and self.key.encode() in log.read_bytes():
                self.problems.append(f"{self.name}: the key is in {log.name}")

    def stop(self):
        if self.process is not None and self.process.returncode is None:
            self.process.kill()
