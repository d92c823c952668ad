"""Times the program and a peer on the same job, alternating, and prints medians and ratios.

Each row is one job: both commands start from a fresh sparse image in the same folder (--folder, the system's folder for
temporary files by default), run --runs times in turn, and are compared by wall time, CPU time (user and system) and peak
resident memory.
"""

import argparse
import os
import statistics
import subprocess
import tempfile
import time

PROGRAM = "build/release/korventix"
MEBI = 1 << 20


def prepare(image, size, *words):
    """The program's command line for a preparation of a drive of `size` bytes."""
    return [PROGRAM, "--drive", f"1={image},size={size}", "--no-wait", "DRIVE=1", "SURE", *words]


def fat_job(kind, label, size):
    """A row: label, bytes of the drive, the program's command, the peer's command."""
    words = ["FAT32", "WINPE"] if kind == 32 else ["WINPE"]
    return (
        f"FAT{kind}, {label}",
        size,
        lambda image, size: prepare(image, size, *words),
        lambda image, size: ["mkfs.fat", "-F", str(kind), image],
    )


JOBS = [
    fat_job(16, "2 GB", 2 << 30),
    fat_job(16, "4 GB", (4 << 30) - (16 << 20)),  # mkfs.fat ends a little below 4 GiB
    fat_job(32, "8 GB", 8 << 30),
    fat_job(32, "128 GB", 128 << 30),
    fat_job(32, "2 TB", (2 << 40) - (1 << 30)),  # mkfs.fat ends below 2^32 sectors
]


def measure(command):
    """Runs a command to its end: wall seconds, CPU seconds. Stops where it fails."""
    start = time.perf_counter()
    child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    wall = time.perf_counter() - start
    if status != 0:
        raise SystemExit(f"failed: {' '.join(command)}")
    return wall, usage.ru_utime + usage.ru_stime


def peak_memory(command):
    """Peak resident memory of a command in bytes, by GNU time: a process that this one starts would count its memory."""
    run = subprocess.run(["/usr/bin/time", "-f", "%M", *command], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    return int(run.stderr.split()[-1]) * 1024


def fresh_image(image, size):
    with open(image, "wb") as drive:
        drive.truncate(size)


def median_of(runs):
    return [statistics.median(column) for column in zip(*runs)]


def compare(size, ours, peer, folder, runs):
    """Medians of both commands over `runs` alternating runs, each on an image of its own, and the program's memory."""
    image = os.path.join(folder, "drive.img")
    results = {ours: [], peer: []}
    for _ in range(runs):
        for command in (ours, peer):
            fresh_image(image, size)
            results[command].append(measure(command(image, size)))
            os.unlink(image)
    fresh_image(image, size)
    return median_of(results[ours]), median_of(results[peer]), peak_memory(ours(image, size))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--folder", default=None)
    options = parser.parse_args()
    print(f"{'job':<16}{'peer':<10}{'wall':>9}{'peer':>9}{'ratio':>7}{'CPU':>9}{'peer':>9}{'ratio':>7}{'memory':>10}")
    for label, size, ours, peer in JOBS:
        with tempfile.TemporaryDirectory(dir=options.folder) as folder:
            (wall, cpu), (peer_wall, peer_cpu), memory = compare(size, ours, peer, folder, options.runs)
        name = peer("image", size)[0]
        print(
            f"{label:<16}{name:<10}{wall:>8.3f}s{peer_wall:>8.3f}s{wall / peer_wall:>7.2f}"
            f"{cpu:>8.3f}s{peer_cpu:>8.3f}s{cpu / peer_cpu:>7.2f}{memory / MEBI:>7.1f}MiB"
        )


if __name__ == "__main__":
    main()
