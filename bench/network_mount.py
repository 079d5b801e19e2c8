#!/usr/bin/env python3
"""Mounting and unmounting an sftp share through GVfs, as whole processes:
`orla run NetworkShortcut` (mount, then unmount) next to `gio mount` and
`gio mount -u`, the desktop's own tool for the same work, in the same run
and against the same private sshd and headless desktop that
tests/cli/test_linux_network.py starts. Prints the medians, their ratio and
the load average at the end.

    python3 bench/network_mount.py [orla binary] [rounds]
"""

import json
import os
import statistics
import subprocess
import sys
import time
from pathlib import Path

REPO = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(REPO / "tests" / "cli"))
from test_linux_network import Services  # noqa: E402


def timed(args, env):
    start = time.monotonic()
    done = subprocess.run(args, capture_output=True, text=True, env=env, timeout=120)
    elapsed = (time.monotonic() - start) * 1000
    if done.returncode != 0:
        raise SystemExit(f"{args} failed: {done.stdout}{done.stderr}")
    return elapsed


def main():
    orla = Path(sys.argv[1] if len(sys.argv) > 1 else REPO / "build/release/tools/orla/orla").resolve()
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 10
    services = Services()
    try:
        services.start()
        if services.why_not_desktop or services.why_not_sftp:
            raise SystemExit(services.why_not_desktop or services.why_not_sftp)
        env = services.env
        uri = f"sftp://{services.user}@127.0.0.1:{services.port}{services.share}".replace(" ", "%20")
        root = f"sftp://{services.user}@127.0.0.1:{services.port}/"
        mount = json.dumps({"serverURL": uri, "askForPassword": False})
        unmount = json.dumps({"subAction": "unmount", "url": uri})
        figures = {"orla mount": [], "orla unmount": [], "gio mount": [], "gio unmount": []}
        # One round of each first, so that GVfs's daemons are running.
        timed(["gio", "mount", uri], env)
        timed(["gio", "mount", "-u", root], env)
        for _ in range(rounds):
            figures["orla mount"].append(timed([str(orla), "run", "NetworkShortcut", mount], env))
            figures["orla unmount"].append(timed([str(orla), "run", "NetworkShortcut", unmount], env))
            figures["gio mount"].append(timed(["gio", "mount", uri], env))
            figures["gio unmount"].append(timed(["gio", "mount", "-u", root], env))
        medians = {name: statistics.median(values) for name, values in figures.items()}
        for name, value in medians.items():
            print(f"{name:14} median {value:7.1f} ms  (min {min(figures[name]):.1f}, max {max(figures[name]):.1f})")
        print(f"orla / gio: mount {medians['orla mount'] / medians['gio mount']:.2f}, "
              f"unmount {medians['orla unmount'] / medians['gio unmount']:.2f}")
        print("load average: " + " ".join(f"{x:.2f}" for x in os.getloadavg()))
    finally:
        services.stop()


if __name__ == "__main__":
    main()
