"""How the measurements take and show a figure."""

import re
import sys
import time


def until(condition, what, seconds):
    """How long it took."""
    begin = time.monotonic()
    while not condition():
        if time.monotonic() - begin > seconds:
            sys.exit(f"waited in vain for {what}")
        time.sleep(0.0002)
    return time.monotonic() - begin


def resident_kib(process):
    with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
        return int(re.search(r"VmRSS:\s+(\d+)", file.read())[1])


def cpu_seconds(process):
    return time.clock_gettime(~process.pid << 3 | 2)  # the clock of all of its threads


def print_row(what, value, bound, remark):
    shown = f"{value:.2f}" if isinstance(value, float) else f"{value:,}"
    print(f"| {what} | {shown} | {bound}{'' if value <= bound else ', missed'} | {remark} |",
          flush=True)
