"""Formats of plate numbers: L is a letter, D a digit, a space a gap.

From the published series of the countries and states. The reader learns from them where look-alikes
(O or 0, I or 1) occur, because only the format determines that.
"""

EUROPE = [
    "LL DDDLL", "LL DDDLL", "LL DDDLL",  # France, Italy, Slovakia, Serbia
    "DLD DDDD", "DLD DDDD", "LLL DDDD", "LL DD LLL",  # Czechia, Greece, Romania, Great Britain
    "L DDD LLL", "LL DDDDD", "LLL DDD", "LLL DDDD", "LLL DDLL",  # Bucharest, Poland, Hungary and others
    "DDDD LLL", "DLLL DDD", "LL DDDD LL", "LL DDDD L", "LL DDD L",  # Spain, Belgium, Bulgaria, Croatia
    "LL DDD LL", "DD LL DD", "DD DD LL", "LL DD LL", "DD LLL D",  # Portugal, Netherlands
    "LLL DDL", "DDD LLL", "LL DDDDDD", "LDD L DDD", "LL DDDDL",  # Estonia, Switzerland, Bosnia, Austria
    "L LL DDDD", "LL LL DDD", "LLL LL DDD", "LLL L DDDD", "L L DDDD",  # Germany
    "D DDDDD", "DLD DDDD", "DLL DDDD", "LLLL DDD",
]
BRAZIL = ["LLL DDDD"] * 5 + ["LLL DLDD"] * 2
UNITED_STATES = [
    "DLLL DDD", "DLLLDDD", "DLLLDDD",  # California
    "LLL DDDD", "LLL DDDD", "LLLDDDD", "LLL DDD", "DDD LLL", "LLL DDL", "LLD DDDD", "LDD LLL", "LDDLLL", "LL DDDDD",
    "LLD LDL", "LLDLDL", "LL DLDL", "LDD DDD", "D DDDDDD", "DDDDDDD", "DDD DDD", "DDD DDDL", "DDDDD LD", "DDDDDLD",
    "DLDDDDD", "DDLDDDL", "DLL DDDD", "DDLLDD", "DDD LDL", "LDD DDDD", "LDDDDDD", "LDDDDD", "LLLDLD", "DDDD LL", "DDDLL",
    "DDLDDL", "DD DDDL", "LLLLDD", "LLDDDL", "DDD LL", "LLDDDD", "DDDDD L", "LLLDD", "LLDDLL", "DDLLLD", "LD DDDD",
]
WEIGHTS = [(EUROPE, 0.30), (BRAZIL, 0.12), (UNITED_STATES, 0.34)]
DIGITS = "0123456789"
LETTERS = "ABCDEFGHIJKLMNOPQRSTUVWXYZ"


def fill(pattern, random):
    return "".join(
        random.choice(LETTERS) if kind == "L" else random.choice(DIGITS) if kind == "D" else kind for kind in pattern
    )


def draw_text(random):
    """Returns groups of characters, without the gaps between them, and whether they follow a format."""
    place = random.random()
    for formats, weight in WEIGHTS:
        if place < weight:
            return fill(random.choice(formats), random).split(" "), True
        place -= weight
    # Any text, as on personal plates: often letters followed by digits.
    length = random.choice([4, 4, 5, 5, 6, 6, 6, 7, 7, 7, 7, 8, 8, 9])
    if random.random() < 0.35:
        letters = random.randint(2, length)
        pattern = "L" * letters + "D" * (length - letters)
    else:
        pattern = "".join(random.choice("LD") for _ in range(length))
    if random.random() < 0.6 and length > 3:
        cut = random.randint(1, length - 1)
        pattern = pattern[:cut] + " " + pattern[cut:]
    return fill(pattern, random).split(" "), False
