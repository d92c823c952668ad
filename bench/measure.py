"""Times the program and a peer on the same job, alternating, and prints medians and ratios.

Each row is one job: both commands start from the same files in the same folder (--folder, the system's folder for
temporary files by default): a fresh sparse image, and for a copy a source full of data. They run --runs times in turn and
are compared by wall time, CPU time (user and system) and peak resident memory.
"""

import argparse
import os
import shlex
import statistics
import subprocess
import tempfile
import time

PROGRAM = "build/release/korventix"
MEBI = 1 << 20


def run(image, size, *words):
    """The program's command line with a drive of `size` bytes."""
    return [PROGRAM, "--drive", f"1={image},size={size}", "--no-wait", "DRIVE=1", "SURE", *words]


def fat_job(kind, label, size):
    """A row: label, bytes of the drive, the program's command, the peer's command."""
    words = ["FAT32", "WINPE"] if kind == 32 else ["WINPE"]
    return (
        f"FAT{kind}, {label}",
        size,
        lambda image, size: run(image, size, *words),
        lambda image, size: ["mkfs.fat", "-F", str(kind), image],
    )


def service_job(kind, tool, label, size):
    """The same for a file system that the program has the system's tool make: the peer is that tool, and a sparse copy."""
    return (
        f"{kind}, {label}",
        size,
        lambda image, size: run(image, size, kind, "BOOTMGR"),
        lambda image, size: ["sh", "-c", f'{tool} "$1" && exec cp --sparse=always "$1" "$2"', "sh", image, other(image)],
    )


def dd(source, target, block, *words):
    return ["dd", f"if={source}", f"of={target}", f"bs={block}", *words]


def other(image):
    """A file beside the image: what is copied to it or from it."""
    return image + ".file"


def f3probe(image, size):
    """A probe of a genuine drive, which f3probe plays itself on a file that it makes and deletes."""
    played = [f"--debug-real-size={size}", f"--debug-fake-size={size}", f"--debug-wrap={(size - 1).bit_length()}"]
    return ["f3probe", "--destructive", *played, "--debug-block-order=9", other(image)]


# Both sides end with the data on the medium where a drive is written, and without a flush where a file is.
FLUSHED = ["conv=notrunc,fdatasync"]
COPY_BYTES = 4 << 30
ERASE_BLOCK = 300 << 10

JOBS = [
    fat_job(16, "2 GB", 2 << 30),
    fat_job(16, "4 GB", (4 << 30) - (16 << 20)),  # mkfs.fat ends a little below 4 GiB
    fat_job(32, "8 GB", 8 << 30),
    fat_job(32, "128 GB", 128 << 30),
    fat_job(32, "2 TB", (2 << 40) - (1 << 30)),  # mkfs.fat ends below 2^32 sectors
    service_job("EXFAT", "mkfs.exfat", "8 GB", 8 << 30),
    service_job("EXFAT", "mkfs.exfat", "64 GB", 64 << 30),
    service_job("EXFAT", "mkfs.exfat", "2 TB", 2 << 40),
    service_job("NTFS", "mkntfs -Q -F", "8 GB", 8 << 30),
    service_job("NTFS", "mkntfs -Q -F", "64 GB", 64 << 30),
    service_job("NTFS", "mkntfs -Q -F", "2 TB", 2 << 40),
    (
        "FILETOUSB, 4 GB",
        COPY_BYTES,
        lambda image, size: run(image, size, "FILETOUSB", f"FILE={other(image)}"),
        lambda image, size: dd(other(image), image, "320K", *FLUSHED),
    ),
    (
        "USBTOFILE, 4 GB",
        COPY_BYTES,
        lambda image, size: run(image, size, "USBTOFILE", f"FILE={other(image)}"),
        lambda image, size: dd(image, other(image), "320K", "conv=notrunc"),
    ),
    (
        "ERASE, 4 GB",
        COPY_BYTES,
        lambda image, size: run(image, size, "ERASE"),
        lambda image, size: dd("/dev/zero", image, ERASE_BLOCK, *FLUSHED, "iflag=count_bytes", f"count={size}"),
    ),
    ("QUICKTEST, 2 TB", 2 << 40, lambda image, size: run(image, size, "QUICKTEST"), f3probe),
]
# In memory: what a file system spends on a quarter of a million blocks with holes between them is nothing of the drive's.
IN_MEMORY = {"QUICKTEST, 2 TB": "/dev/shm"}


def measure(command):
    """Runs a command to its end: wall seconds, CPU seconds. Stops where it fails."""
    start = time.perf_counter()
    child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    wall = time.perf_counter() - start
    if status != 0:
        raise SystemExit(f"failed: {' '.join(command)}")
    return wall, usage.ru_utime + usage.ru_stime


def transfers(command):
    """How often a command reads and writes, and the bytes that it moves so: the console's few are among them."""
    child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.waitid(os.P_PID, child.pid, os.WEXITED | os.WNOWAIT)  # while it has not been waited for, its counters stay
    with open(f"/proc/{child.pid}/io") as counters:
        count = {name: int(value) for name, value in (line.split(":") for line in counters)}
    child.wait()
    return count["syscr"], count["rchar"], count["syscw"], count["wchar"]


def print_transfers(label, size, commands, folder):
    image = os.path.join(folder, "drive.img")
    for command in commands:
        fresh_files(label, image, size)
        reads, read_bytes, writes, written = (count / (size >> 30) for count in transfers(command(image, size)))
        print(
            f"    {os.path.basename(command(image, size)[0])}, per GB: {reads:.1f} reads of {read_bytes / 1024:.1f} KiB, "
            f"{writes:.1f} writes of {written / 1024:.1f} KiB in all"
        )


def peak_memory(command):
    """Peak resident memory of a command in bytes, by GNU time: a process that this one starts would count its memory."""
    run = subprocess.run(["/usr/bin/time", "-f", "%M", *command], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    return int(run.stderr.split()[-1]) * 1024


def fresh_files(label, image, size):
    """The files that a run begins with: an empty sparse image; for a copy, what is copied holds data throughout."""
    source = {"FILETOUSB": other(image), "USBTOFILE": image}.get(label.split(",")[0])
    if image != source:
        with open(image, "wb") as drive:
            drive.truncate(size)
    if other(image) != source and os.path.exists(other(image)):
        os.unlink(other(image))
    if source is not None and not os.path.exists(source):
        block = os.urandom(MEBI)
        with open(source, "wb") as file:
            for _ in range(size // MEBI):
                file.write(block)
    os.sync()


def median_of(runs):
    return [statistics.median(column) for column in zip(*runs)]


def compare(label, size, ours, peer, folder, runs):
    """Medians of both commands over `runs` alternating runs, each on an image of its own, and the memory of both."""
    image = os.path.join(folder, "drive.img")
    results = {ours: [], peer: []}
    for _ in range(runs):
        for command in (ours, peer):
            fresh_files(label, image, size)
            results[command].append(measure(command(image, size)))
    memory = []
    for command in (ours, peer):
        fresh_files(label, image, size)
        memory.append(peak_memory(command(image, size)))
    return median_of(results[ours]), median_of(results[peer]), memory


HEADINGS = ["job", "peer", "wall s", "peer's", "ratio", "CPU s", "peer's", "ratio", "memory MiB", "peer's"]


def print_row(cells, markdown):
    if markdown:
        print("| " + " | ".join(cells) + " |")
    else:
        print(f"{cells[0]:<16}{cells[1]:<12}" + "".join(f"{cell:>11}" for cell in cells[2:]))


def print_commands(jobs):
    """What the rows of the table have run, a line each, both sides."""
    for label, size, ours, peer in jobs:
        print(f"\n{label}:\n")
        for command in (ours("drive.img", size), peer("drive.img", size)):
            print("    " + shlex.join([os.path.basename(command[0]), *command[1:]]))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--folder", default=None)
    parser.add_argument("--only", default="", help="jobs whose label contains this text")
    parser.add_argument("--markdown", action="store_true", help="the table as docs/benchmarks.md has it, with the commands")
    options = parser.parse_args()
    jobs = [job for job in JOBS if options.only in job[0]]
    print_row(HEADINGS, options.markdown)
    if options.markdown:
        print_row(["---"] * 2 + ["--:"] * (len(HEADINGS) - 2), True)
    for label, size, ours, peer in jobs:
        with tempfile.TemporaryDirectory(dir=IN_MEMORY.get(label, options.folder)) as folder:
            (wall, cpu), (peer_wall, peer_cpu), memory = compare(label, size, ours, peer, folder, options.runs)
        times = [wall, peer_wall, wall / peer_wall, cpu, peer_cpu, cpu / peer_cpu]
        cells = [f"{number:.{digits}f}" for number, digits in zip(times, [3, 3, 2] * 2)]
        command = peer("image", size)
        name = command[2].split()[0] if command[0] == "sh" else command[0]
        print_row([label, name, *cells, *(f"{peak / MEBI:.1f}" for peak in memory)], options.markdown)
    if options.markdown:
        print_commands(jobs)
    for label, size, ours, peer in [job for job in jobs if job[0] in IN_MEMORY]:
        print(f"\n{label}, transfers:\n")
        with tempfile.TemporaryDirectory(dir=IN_MEMORY[label]) as folder:
            print_transfers(label, size, (ours, peer), folder)


if __name__ == "__main__":
    main()
