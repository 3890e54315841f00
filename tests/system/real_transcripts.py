"""Reports the folder that PELMAR_TRANSCRIPTS names and compares what arrived with a second reading.

    real_transcripts.py BUILD-FOLDER      exits 77 (skipped) without the variable
"""

import os
import pathlib
import subprocess
import sys

folder = os.environ.get("PELMAR_TRANSCRIPTS")
if not folder:
    print("Skipped: PELMAR_TRANSCRIPTS names no folder of real transcripts.")
    sys.exit(77)
show_agent = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "show_agent.py"
sys.exit(subprocess.call([sys.executable, "-B", show_agent, folder, "--once", "--build", sys.argv[1]]))
