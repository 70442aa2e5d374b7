"""Tests evaluate-clips, at the path in EVALUATE_CLIPS, with synthetic truths and events."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.environ.get("EVALUATE_CLIPS", "scripts/evaluate-clips")


def event(text, seconds, track=()):
    return {
        "event": "event",
        "time": round(1000 * seconds),
        "arguments": {"lp_wnum": text},
        "track": [{"x": 0, "y": 0, "time": round(1000 * time)} for time in track] or None,
    }


class EvaluateClips(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)

    def run_script(self, *arguments):
        done = subprocess.run(
            [sys.executable, SCRIPT, str(self.folder), *arguments], capture_output=True, text=True, check=False
        )
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def figures(self, vehicles, events):
        rows = ["clip\tvehicle\tplate\tfirst_s\tlast_s"]
        rows += [f"one\t{number}\t{plate}\t{first}\t{last}" for number, (plate, first, last) in enumerate(vehicles)]
        (self.folder / "truth.tsv").write_text("\n".join(rows) + "\n", encoding="utf-8")
        lines = "".join(json.dumps(line) + "\n" for line in events)
        (self.folder / "events").write_text(lines, encoding="utf-8")
        output = self.run_script(
            "--events", str(self.folder / "events"), "--json", str(self.folder / "json"), "--details", str(self.folder / "details")
        )
        self.assertIn("all", output)
        figures = json.loads((self.folder / "json").read_text(encoding="utf-8"))["all"]
        self.details = (self.folder / "details").read_text(encoding="utf-8")
        return tuple(figures[name] for name in ("vehicles", "exact", "alike", "missed", "twice", "of none"))

    def test_every_kind_of_outcome(self):
        vehicles = [("AB12CDE", 0, 3), ("OI1234", 1, 2), ("XY99ZZZ", 2, 5), ("KK555KK", 0, 9)]
        events = [event("AB12CDE", 1), event("011234", 1.5), event("KK555KK", 3), event("KK55SKK", 5), event("MOT", 2)]
        self.assertEqual(self.figures(vehicles, events), (4, 2, 3, 1, 1, 1))
        self.assertIn("XY99ZZZ missed (2.0 to 5.0 s)", self.details)
        self.assertIn("KK555KK a second time, as KK55SKK\t5.0", self.details)
        self.assertIn("MOT of no vehicle", self.details)
        self.assertIn("OI1234 read as 011234", self.details)

    def test_an_event_belongs_only_to_a_vehicle_in_view(self):
        self.assertEqual(self.figures([("AB12CDE", 10, 12)], [event("AB12CDE", 2)]), (1, 0, 0, 1, 0, 1))
        self.assertEqual(self.figures([("AB12CDE", 10, 12)], [event("AB12CDE", 2, (2, 9.5))]), (1, 1, 1, 0, 0, 0))

    def test_an_event_belongs_to_the_most_similar_plate(self):
        vehicles = [("AB12CDE", 0, 3), ("AB12CDF", 0, 3)]
        self.assertEqual(self.figures(vehicles, [event("AB12CDF", 1), event("AB12CDE", 2)]), (2, 2, 2, 0, 0, 0))

    def test_a_text_of_which_less_than_half_agrees_belongs_to_no_vehicle(self):
        self.assertEqual(self.figures([("AB12CDE", 0, 3)], [event("AB9", 1)]), (1, 0, 0, 1, 0, 1))

    def test_unreadable_plates_do_not_count(self):
        vehicles = [("unreadable", 0, 3), ("R298?TY", 0, 3)]
        self.assertEqual(self.figures(vehicles, [event("R298GTY", 1), event("QQQ1", 2)]), (0, 0, 0, 0, 0, 1))

    def test_the_mean_time_to_the_event(self):
        self.figures([("AB12CDE", 1, 3), ("KK555KK", 0, 3)], [event("AB12CDE", 1.5), event("KK555KK", 1)])
        delays = json.loads((self.folder / "json").read_text(encoding="utf-8"))["all"]["delays"]
        self.assertEqual(sorted(delays), [0.5, 1.0])

    def test_clips_are_played_and_their_errors_reported_with_a_picture(self):
        (self.folder / "truth.tsv").write_text(
            "clip\tplate\tfirst_s\tlast_s\none\tAB12CDE\t0\t3\ntwo\tKK555KK\t0\t3\n", encoding="utf-8"
        )
        for name in ("one.mp4", "two.mkv"):
            (self.folder / name).write_bytes(b"")
        host = self.folder / "host"
        host.write_text(
            "#!/usr/bin/env python3\nimport json, pathlib, sys\n"
            "folder = pathlib.Path(sys.argv[sys.argv.index('--snapshots') + 1])\n"
            "folder.mkdir(parents=True)\n"
            "(folder / 'channel0_0001_000001000ms_AB12CDF.png').write_bytes(b'')\n"
            f"print(json.dumps({event('AB12CDF', 1)!r}))\n",
            encoding="utf-8",
        )
        host.chmod(0o755)
        output = self.run_script("--host", str(host), "--report", str(self.folder / "report"))
        self.assertRegex(output, r"one +1 +0 +0 +0 +0 +0 +1.00\n")
        self.assertRegex(output, r"two +1 +0 +0 +1 +0 +1 +-\n")
        page = (self.folder / "report" / "index.html").read_text(encoding="utf-8")
        self.assertIn("AB12CDE read as AB12CDF", page)
        self.assertIn('src="one/channel0_0001_000001000ms_AB12CDF.png"', page)
        self.assertIn("KK555KK missed", page)


unittest.main()
