"""From the append of a line to the arrival of its request, the poll interval left out."""

import os
import random
import time

import homes
from figures import Goal, Row
from processes import watched
from setting import say
from sink import sink

RECORDS, TRANSCRIPTS = 10, 50
LINE = b'{"type":"user","uuid":"%d","sessionId":"s","message":{"content":"How are the tomatoes?"}}\n'


def measure(setting):
    say("latency")
    chance = random.Random(1)
    times = []
    with sink(setting.tools / "bench_sink", "--arrivals") as service:
        home = homes.idle_home(setting.folder / "latency", service.url, RECORDS, TRANSCRIPTS)
        transcript = home.add_session(b"")
        with watched([setting.agent, "--verbose", "--poll", "0"], home.environment()) as agent:
            agent.wait_for(3)
            file = os.open(transcript, os.O_WRONLY | os.O_APPEND)
            for number in range(setting.scale.appends + 1):
                # Behind the save of the cursor, and anywhere within a pass.
                agent.wait_for(agent.passes + 5)
                time.sleep(0.003 * chance.random())
                agent.take()
                appended = time.monotonic_ns()
                os.write(file, LINE % number)
                arrived = service.number(30)
                if number == 0:  # asks for the run first
                    arrived = service.number(30)
                else:
                    times.append((arrived - appended) / 1e6)
            os.close(file)
    return [Row("latency", "append to arrival", "ms", times, goal=Goal(1.5, of_agent=True),
                note=f"without a pause between passes, {RECORDS} records and {TRANSCRIPTS} transcripts")]
