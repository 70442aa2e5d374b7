"""Tests compare-events, at the path in COMPARE_EVENTS, with synthetic truths and events."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.environ.get("COMPARE_EVENTS", "scripts/compare-events")
FRAMES_PER_SECOND = 25
WIDTH, HEIGHT = 100, 20


def left_of(number):
    """Vehicles drive side by side."""
    return 40 + 150 * number


def vehicle(number, plate, first, last):
    def corners(frame):
        left, top = left_of(number), 100 + 10 * (frame - first)
        return [[left, top], [left, top + HEIGHT], [left + WIDTH, top], [left + WIDTH, top + HEIGHT]]

    places = [{"frame": frame, "corners": corners(frame), "readable": True} for frame in range(first, last + 1)]
    return {"plate": plate, "does": f"does {number}", "places": places}


def event(text, readings):
    """`readings` are tuples of a frame and the upper left corner read in it."""
    track = [{"x": x, "y": y, "width": 0, "height": 9, "time": frame * 1000 // FRAMES_PER_SECOND} for frame, x, y in readings]
    frame, x, y = readings[0]
    return {
        "channel": 0,
        "event": "event",
        "time": frame * 1000 // FRAMES_PER_SECOND,
        "arguments": {"lp_wnum": text, "confidence": 90, "lpf_x1": x, "lpf_y1": y, "lpf_x3": x + 90, "lpf_y3": y + 18},
        "track": track,
    }


def event_of(truth, text=None, frames=None):
    """An event for a vehicle as the tracker reports it, a few pixels off."""
    places = {place["frame"]: place["corners"][0] for place in truth["places"]}
    frames = frames or sorted(places)
    return event(text or truth["plate"], [(frame, places[frame][0] + 3, places[frame][1] - 2) for frame in frames])


TEN = [vehicle(number % 7, f"AB{number}23CD", 40 * number, 40 * number + 30) for number in range(10)]


class CompareEvents(unittest.TestCase):
    def compare(self, vehicles, events):
        truth = {"frames_per_second": FRAMES_PER_SECOND, "vehicles": vehicles}
        with tempfile.NamedTemporaryFile("w", suffix=".json", encoding="utf-8") as file:
            json.dump(truth, file)
            file.flush()
            done = subprocess.run(
                [sys.executable, SCRIPT, file.name],
                input="".join(json.dumps(line) + "\n" for line in events),
                stdout=subprocess.PIPE,
                text=True,
                check=False,
            )
        lines = done.stdout.splitlines()
        counts = {}
        for line in lines[1 + len(events) :]:
            words = line.split()
            number = next(i for i, word in enumerate(words) if word.isdigit())
            counts[" ".join(words[:number])] = " ".join(words[number:])
        return done.returncode, lines[1 : 1 + len(events)], counts

    def test_one_correct_event_per_vehicle_passes(self):
        status, shown, counts = self.compare(TEN, [event_of(one) for one in TEN])
        self.assertEqual(status, 0)
        self.assertEqual(counts["vehicles"], "10")
        self.assertEqual(counts["events"], "10")
        self.assertEqual(counts["right texts"], "10")
        self.assertEqual(shown[1].split(), ["1.60", "s", "AB123CD", "AB123CD", "90", "%", "31", "does", "1"])

    def test_one_wrong_text_in_ten_passes_and_is_shown_with_the_truth(self):
        events = [event_of(one) for one in TEN]
        events[4] = event_of(TEN[4], "AB423CO")
        status, shown, counts = self.compare(TEN, events)
        self.assertEqual(status, 0)
        self.assertEqual(counts["right texts"], "9")
        self.assertIn("AB423CO   AB423CD", shown[4])
        self.assertIn("WRONG", shown[4])

    def test_two_wrong_texts_in_ten_fail(self):
        events = [event_of(one) for one in TEN]
        events[4] = event_of(TEN[4], "AB423CO")
        events[7] = event_of(TEN[7], "A8723CD")
        status, _, counts = self.compare(TEN, events)
        self.assertEqual(status, 1)
        self.assertEqual(counts["right texts"], "8")

    def test_a_second_event_of_a_vehicle_fails_regardless_of_its_text(self):
        events = [event_of(one) for one in TEN] + [event_of(TEN[3], "ZZ999ZZ")]
        status, shown, counts = self.compare(TEN, events)
        self.assertEqual(status, 1)
        self.assertEqual(counts["second events"], "1 (AB323CD)")
        self.assertEqual(counts["of no vehicle"], "0")
        self.assertEqual(counts["right texts"], "10")
        self.assertIn("AGAIN", shown[10])

    def test_a_missed_vehicle_is_named(self):
        status, _, counts = self.compare(TEN, [event_of(one) for one in TEN if one is not TEN[6]])
        self.assertEqual(status, 1)
        self.assertEqual(counts["missed"], "1 (AB623CD)")

    def test_an_event_without_a_plate_is_of_no_vehicle(self):
        stranger = event("STOP", [(frame, 900, 50) for frame in range(10)])
        status, shown, counts = self.compare(TEN, [event_of(one) for one in TEN] + [stranger])
        self.assertEqual(status, 0)
        self.assertEqual(counts["of no vehicle"], "1 (STOP)")
        self.assertEqual(counts["events"], "11")
        self.assertIn("of no vehicle", shown[10])

    def test_the_right_text_elsewhere_does_not_match(self):
        elsewhere = event(TEN[2]["plate"], [(frame, 1000, 600) for frame in range(80, 90)])
        status, _, counts = self.compare(TEN, [event_of(one) for one in TEN if one is not TEN[2]] + [elsewhere])
        self.assertEqual(status, 1)
        self.assertEqual(counts["missed"], "1 (AB223CD)")
        self.assertEqual(counts["of no vehicle"], "1 (AB223CD)")

    def test_the_right_text_at_another_time_does_not_match(self):
        late = [(frame + 60, x, y) for frame, x, y in ((80, left_of(2), 100), (81, left_of(2), 110))]
        status, _, counts = self.compare(TEN[:3], [event_of(TEN[0]), event_of(TEN[1]), event("AB223CD", late)])
        self.assertEqual(status, 1)
        self.assertEqual(counts["missed"], "1 (AB223CD)")

    def test_the_majority_of_a_tracks_readings_decides(self):
        both = [vehicle(0, "AA111AA", 0, 20), vehicle(1, "BB222BB", 0, 20)]
        places = [(place["frame"], *place["corners"][0]) for place in both[0]["places"]]
        stray = [(place["frame"], *place["corners"][0]) for place in both[1]["places"][:5]]
        status, _, counts = self.compare(both, [event("AA111AA", stray + places), event_of(both[1])])
        self.assertEqual(status, 0)
        self.assertEqual(counts["right texts"], "2")

    def test_an_event_without_a_track_matches_by_its_position(self):
        alone = event_of(TEN[0])
        alone["track"] = None
        status, _, counts = self.compare(TEN[:1], [alone])
        self.assertEqual(status, 0)
        self.assertEqual(counts["right texts"], "1")

    def test_no_vehicles_fail(self):
        status, _, _ = self.compare([], [])
        self.assertEqual(status, 1)


if __name__ == "__main__":
    unittest.main()
