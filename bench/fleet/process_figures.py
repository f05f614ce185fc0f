"""What processes take of the machine, by the kernel's own figures."""
import pathlib
import re
import statistics


class Cost:
    """A look at a process: CPU of all its threads so far, threads, memory."""

    def __init__(self, pid):
        process = pathlib.Path(f"/proc/{pid}")
        tasks = list((process / "task").iterdir())
        self.threads = len(tasks)
        # Nanoseconds on a processor. A thread may end meanwhile.
        self.cpu_ns = sum(int(text.split()[0]) for text in map(_read, tasks) if text)
        memory = dict(re.findall(r"^(\w+): +(\d+) kB", _read(process, "smaps_rollup"), re.MULTILINE))
        self.private_kb = int(memory["Private_Clean"]) + int(memory["Private_Dirty"])
        self.resident_kb = int(memory["Rss"])


def _read(directory, name="schedstat"):
    try:
        return (directory / name).read_text()
    except (FileNotFoundError, ProcessLookupError):
        return ""


def figures(before, after, seconds):
    """Of processes of one kind; CPU in milliseconds per second."""
    cpu = [(last.cpu_ns - first.cpu_ns) / 1e6 / seconds for first, last in zip(before, after)]
    return {"count": len(after),
            "cpu_ms_per_s": _spread(cpu),
            "threads": _spread([cost.threads for cost in after]),
            "private_kb": _spread([cost.private_kb for cost in after]),
            "resident_kb": _spread([cost.resident_kb for cost in after])}


def _spread(values):
    return {"median": round(statistics.median(values), 2), "most": round(max(values), 2),
            "sum": round(sum(values), 1)}
