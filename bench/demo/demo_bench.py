"""The demo server's processor use: tarvo_demo at 30 frames/s, 640x480,
motion detection on every frame and the recorder on, run for a while with
no viewer and then with one (curl reading the live stream).  The processor
time of the supervisor and every role process is read from /proc; the
target is at most 5% of one core for the whole server with no viewer.

usage: demo_bench TARVO_DEMO [SECONDS]"""
import os, re, signal, subprocess, sys, tempfile, time

TICKS = os.sysconf("SC_CLK_TCK")
TARGET = 5.0


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICKS  # utime, stime


def server_processes(pid):
    with open(f"/proc/{pid}/task/{pid}/children") as listing:
        children = [int(child) for child in listing.read().split()]
    names = {child: open(f"/proc/{child}/comm").read().strip() for child in children}
    return {"supervisor": pid, **{name: child for child, name in names.items()}}


def measure(program, seconds, viewer):
    """Percent of one core per process over the run, and the demo's summary."""
    folder = tempfile.mkdtemp(prefix="tarvo-demo-bench-")
    with open(os.path.join(folder, "demo.ini"), "w") as config:
        config.write("[stream]\nport = 0\n")
    demo = subprocess.Popen([program, "--config=demo.ini", "--run-dir=run"], cwd=folder,
                            stdout=subprocess.PIPE, text=True)
    address = next(re.search(r"http://\S+", line).group(0)
                   for line in demo.stdout if "live view on" in line)
    processes = server_processes(demo.pid)
    watcher = subprocess.Popen(["curl", "-s", "-o", "/dev/null", address + "stream.mjpg"]
                               ) if viewer else None
    before, started = {name: cpu_seconds(pid) for name, pid in processes.items()}, time.time()
    time.sleep(seconds)
    after, elapsed = {name: cpu_seconds(pid) for name, pid in processes.items()}, time.time() - started
    if watcher:
        watcher.terminate()
        watcher.wait()
    demo.send_signal(signal.SIGINT)
    summary = demo.communicate()[0]
    return {name: 100 * (after[name] - before[name]) / elapsed for name in processes}, summary


def main():
    program, seconds = sys.argv[1], float(sys.argv[2]) if len(sys.argv) > 2 else 25
    quiet, quiet_summary = measure(program, seconds, viewer=False)
    watched, watched_summary = measure(program, seconds, viewer=True)
    print(f"tarvo_demo, 30 frames/s 640x480, motion and recorder on, {seconds:.0f} s per column;"
          f" % of one core ({os.cpu_count()} cores here)")
    print(f"{'process':<22}{'no viewer':>10}{'one viewer':>12}")
    for name in quiet:
        print(f"{name:<22}{quiet[name]:>9.2f}%{watched.get(name, 0):>11.2f}%")
    total_quiet, total_watched = sum(quiet.values()), sum(watched.values())
    print(f"{'whole server':<22}{total_quiet:>9.2f}%{total_watched:>11.2f}%")
    print(f"target: at most {TARGET:.0f}% with no viewer: "
          f"{'met' if total_quiet <= TARGET else 'MISSED'} ({total_quiet / TARGET:.2f} of it)")
    for label, summary in (("no viewer", quiet_summary), ("one viewer", watched_summary)):
        line = next((line for line in summary.splitlines() if "whole server" in line), "")
        print(f"the demo's own summary, {label}: {line.strip()}")


main()
