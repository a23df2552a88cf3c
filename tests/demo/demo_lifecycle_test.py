"""The demo as a user runs it: a timed run ends cleanly with a recording
ffprobe reads; a killed role process, or a killed supervisor and a restart,
leave nothing under the demo's keys.  argv: tarvo-demo."""
import json, os, select, shutil, signal, subprocess, sys
from demo_run import DemoRun, skip_or_fail


def recorded_frames(demo):
    probe = subprocess.run(
        ["ffprobe", "-v", "error", "-count_frames", "-of", "json", "-show_entries",
         "stream=codec_name,width,height,nb_read_frames", demo.path("recording.mjpeg")],
        capture_output=True, text=True, check=True)
    stream = json.loads(probe.stdout)["streams"][0]
    assert (stream["codec_name"], stream["width"], stream["height"]) == ("mjpeg", 640, 480), stream
    return int(stream["nb_read_frames"])


def timed_run(demo):
    demo.start("--seconds=3")
    summary, status = demo.finish()
    assert status == 0, summary
    recorder_line = next(line for line in summary.splitlines() if "recorder " in line)
    assert f"{recorded_frames(demo)} frames read" in recorder_line, summary
    with open(demo.path("event-001.pgm"), "rb") as picture:
        assert picture.read(15) == b"P5\n640 480\n255\n"
    assert demo.objects_left() == [], demo.objects_left()


def kill_role(demo, role):
    demo.start()
    os.kill(demo.children()["tarvo-" + role], signal.SIGKILL)
    summary, status = demo.finish()
    assert status != 0 and f"because the {role} process ended" in summary, summary
    assert demo.objects_left() == [], demo.objects_left()


def kill_supervisor_and_restart(demo):
    demo.start()
    ending = [os.pidfd_open(child) for child in demo.children().values()]
    demo.process.kill()
    demo.process.wait()
    for child in ending:  # the roles stop when their supervisor dies
        select.select([child], [], [])
    timed_run(demo)


def main():
    if shutil.which("ffprobe") is None:
        skip_or_fail("ffprobe (Debian ffmpeg) is missing")
    for case in (timed_run, "capture", "motion", "streaming", kill_supervisor_and_restart):
        demo = DemoRun(sys.argv[1])
        try:
            case(demo) if callable(case) else kill_role(demo, case)
        finally:
            demo.close()


main()
