"""Draws the texts of plates: with the formats of reference/reader/formats.tsv, or free ones.

The reader learns from the formats where look-alikes (O or 0, I or 1) occur, because only the format determines that.
"""
import itertools
import math
import os
import re

DIGITS = "0123456789"
LETTERS = "ABCDEFGHIJKLMNOPQRSTUVWXYZ"

TABLE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "formats.tsv")
ELEMENT = re.compile(r"(?:\[([0-9A-Z]+)\]|\(([0-9A-Z|]+)\)|([0-9A-Z]))(\?)?")


def _read_table():
    """Returns the formats, each a list of (choices, is optional), and their cumulated weights."""
    names, rows, countries, vehicles = {}, [], {}, {}
    with open(TABLE, encoding="utf-8") as lines:
        for line in lines:
            fields = line.rstrip("\n").split("\t")
            if line.startswith("@"):
                names[fields[0][1:]] = fields[1]
            elif line.startswith("="):
                vehicles[fields[0][1:]] = float(fields[1])
            elif len(fields) == 6 and not line.startswith("#"):
                pattern = re.sub(r"{(\w+)}", lambda name: names[name.group(1)], fields[3])
                elements = [
                    (characters or words.split("|") if characters or words else {"L": LETTERS, "D": DIGITS}.get(one, one), optional)
                    for characters, words, one, optional in ELEMENT.findall(pattern)
                ]
                rows.append((fields[0], float(fields[2]), elements))
                countries[fields[0]] = countries.get(fields[0], 0) + float(fields[2])
    # The root, so that the formats of small countries are learned, too.
    weights = [math.sqrt(vehicles.get(country, 1)) * weight / countries[country] for country, weight, _ in rows]
    return [elements for _, _, elements in rows], list(itertools.accumulate(weights))


FORMATS, CUMULATED = _read_table()


def _draw_format(random):
    elements = random.choices(FORMATS, cum_weights=CUMULATED)[0]
    return "".join(random.choice(choices) for choices, optional in elements if not optional or random.random() < 0.5)


def _draw_free(random):
    """Returns any text, as on personal plates: often letters followed by digits."""
    length = random.choice([4, 4, 5, 5, 6, 6, 6, 7, 7, 7, 7, 8, 8, 8, 9, 9, 10, 10, 11, 12])
    if random.random() < 0.35:
        letters = random.randint(2, length)
        kinds = [LETTERS] * letters + [DIGITS] * (length - letters)
    else:
        kinds = random.choices([LETTERS, DIGITS], k=length)
    return "".join(map(random.choice, kinds))


def draw_text(random):
    """Returns groups of characters, without the gaps between them, and whether they follow a format."""
    follows_format = random.random() < 0.75
    text = _draw_format(random) if follows_format else _draw_free(random)
    groups = [text[0]]
    for before, character in zip(text, text[1:]):
        if random.random() < (0.4 if before.isdigit() != character.isdigit() else 0.05):
            groups.append(character)
        else:
            groups[-1] += character
    return groups, follows_format


def split_rows(random, groups):
    """Returns the groups of the upper and of the lower row of a plate with two rows; of one row if it is too short."""
    text = "".join(groups)
    if len(text) < 4:
        return [groups]
    cut = len(groups[0])
    if len(groups) == 1 or cut < 2 or len(text) - cut < 2 or random.random() < 0.3:
        cut = random.randint(2, len(text) - 2)
    return [[text[:cut]], [text[cut:]]]
