"""Draws licence plates as a camera sees them: first flat and in full detail, then distorted, blurred and degraded.

All random numbers come from the global generators of Python and NumPy, so that a seed reproduces the plates.
"""
import os
import random

import cv2
import numpy as np
from PIL import Image, ImageDraw, ImageFont

import plate_formats

CHARACTERS = plate_formats.DIGITS + plate_formats.LETTERS
UPRIGHT_W = "W upright"
GLYPH_HEIGHT = 44  # pixels, of a capital letter on the flat plate
GLYPH_MARGIN = 4
STRIP_WIDTH, STRIP_HEIGHT = 160, 32  # the reader's input

FONTS = "/usr/share/fonts"
HERE = os.path.dirname(os.path.abspath(__file__))


class Font:
    """The characters of a font as masks; a capital letter is GLYPH_HEIGHT high."""

    def __init__(self, path):
        font = ImageFont.truetype(path, 100)
        box = font.getbbox("H")
        font = ImageFont.truetype(path, int(round(100 * GLYPH_HEIGHT / (box[3] - box[1]))))
        top = font.getbbox("H")[1]
        self.masks = {}
        heights = []
        for character in CHARACTERS:
            box = font.getbbox(character)
            width = box[2] - box[0]
            if width < 2:
                raise ValueError("empty character")
            image = Image.new("L", (width + 2, GLYPH_HEIGHT + 2 * GLYPH_MARGIN), 0)
            ImageDraw.Draw(image).text((1 - box[0], GLYPH_MARGIN - top), character, font=font, fill=255)
            self.masks[character] = np.array(image)
            heights.append(box[3] - box[1])
        # For lettering that is not a plate's.
        for character in plate_formats.LETTERS.lower() + "-/.:":
            box = font.getbbox(character)
            image = Image.new("L", (max(2, box[2] - box[0]) + 2, GLYPH_HEIGHT + 2 * GLYPH_MARGIN), 0)
            ImageDraw.Draw(image).text((1 - box[0], GLYPH_MARGIN - top), character, font=font, fill=255)
            self.masks[character] = np.array(image)
        # Stamped plates have a W with upright sides. Few fonts have one, but many have such an M.
        self.masks[UPRIGHT_W] = np.ascontiguousarray(np.flipud(self.masks["M"]))
        # Rejects old-style digits, and fonts that lack letters.
        if min(heights) < GLYPH_HEIGHT * 0.8 or np.array_equal(self.masks["A"], self.masks["B"]):
            raise ValueError("font is not suitable for plates")


def load_fonts():
    """Returns the fonts of fonts.txt, each repeated according to its weight."""
    fonts = []
    with open(os.path.join(HERE, "fonts.txt"), encoding="utf-8") as lines:
        for line in lines:
            if line.startswith("#"):
                continue
            _, weight, path = line.rstrip("\n").split(" ", 2)
            try:
                fonts += [Font(os.path.join(FONTS, path))] * int(weight)
            except (OSError, ValueError):
                continue
    if len(fonts) < 100:
        raise SystemExit("most of the fonts of fonts.txt are missing; install its packages")
    return fonts


def uniform(low, high):
    return random.uniform(low, high)


def chance(probability):
    return random.random() < probability


def blend(canvas, x, y, mask, value):
    """Draws a mask (0 to 1) in one grey value. Draws nothing and returns False if it does not fit."""
    part = canvas[y : y + mask.shape[0], x : x + mask.shape[1]] if x >= 0 and y >= 0 else canvas[:0]
    if part.shape != mask.shape:
        return False
    part[:] = part * (1 - mask) + value * mask
    return True


def small_text(canvas, font, x, y, height, width, value):
    """Draws a line of lettering that is not the plate's number."""
    scale = height / GLYPH_HEIGHT
    end = x + width
    for _ in range(random.randint(4, 16)):
        glyph = font.masks[random.choice(plate_formats.LETTERS)]
        size = (max(1, int(glyph.shape[1] * scale)), max(2, int(glyph.shape[0] * scale)))
        mask = cv2.resize(glyph, size, interpolation=cv2.INTER_AREA).astype(np.float32) / 255
        if not blend(canvas, int(x), int(y), mask, value):
            return
        x += size[0] + (1 if chance(0.93) else size[0] // 2 + 1)
        if x > end:
            return


def coarse_noise(width, height, rows, columns, interpolation=cv2.INTER_LINEAR, low=0.0, high=255.0):
    cells = np.random.uniform(low, high, (rows, columns)).astype(np.float32)
    return cv2.resize(cells, (width, height), interpolation=interpolation)


def draw_emblem(canvas, x, y, width, height):
    """Draws a shield or a disc with details, as between the groups of a number."""
    grey = lambda: float(uniform(0, 255))
    if chance(0.6):
        outline = np.array(
            [[x, y], [x + width, y], [x + width, y + height * 0.6], [x + width / 2, y + height], [x, y + height * 0.6]],
            np.int32,
        )
        cv2.fillPoly(canvas, [outline], grey())
        if chance(0.6):
            cv2.polylines(canvas, [outline], True, grey(), random.randint(1, 3))
    else:
        axes = (max(1, int(width / 2)), max(1, int(height / 2)))
        cv2.ellipse(canvas, (int(x + width / 2), int(y + height / 2)), axes, 0, 0, 360, grey(), -1)
    for _ in range(random.randint(1, 5)):
        cx = int(x + width * uniform(0.2, 0.8))
        cy = int(y + height * uniform(0.15, 0.75))
        reach = max(1, int(width * uniform(0.06, 0.22)))
        kind = random.random()
        if kind < 0.4:
            cv2.circle(canvas, (cx, cy), reach, grey(), -1)
        elif kind < 0.7:
            cv2.line(canvas, (cx, cy - reach), (cx, cy + reach), grey(), random.randint(1, 4))
        else:
            cv2.line(canvas, (cx - reach, cy), (cx + reach, cy), grey(), random.randint(1, 4))


def draw_gap(canvas, centre, top, width, kind, ink, ground):
    """Draws the gap between two groups: mostly empty."""
    middle = top + GLYPH_HEIGHT // 2
    if kind < 0:
        inner = width * uniform(0.6, 0.95)
        height = min(GLYPH_HEIGHT, inner * uniform(0.9, 1.4))
        draw_emblem(canvas, centre - inner / 2, middle - height / 2 + uniform(-0.1, 0.1) * GLYPH_HEIGHT, inner, height)
    elif width <= 6 or kind >= 0.5:
        return
    elif kind < 0.2:
        reach = int(width * 0.22)
        cv2.line(canvas, (int(centre) - reach, middle), (int(centre) + reach, middle), ink, random.randint(2, 6))
    elif kind < 0.3:
        cv2.circle(canvas, (int(centre), middle), random.randint(2, 4), ink, -1)
    elif kind < 0.42:
        for _ in range(random.randint(1, 2)):
            y = int(top + GLYPH_HEIGHT * uniform(0.15, 0.85))
            cv2.circle(canvas, (int(centre), y), int(min(width * 0.4, GLYPH_HEIGHT * 0.22)), uniform(0, 255), -1)
    else:
        axes = (int(width * 0.35), int(GLYPH_HEIGHT * uniform(0.2, 0.45)))
        cv2.ellipse(canvas, (int(centre), middle), axes, 0, 0, 360, ink + (ground - ink) * uniform(0.2, 0.8), -1)


class Row:
    """A row of characters: its text, first and last column of each character, and the first and last line."""

    def __init__(self, text, spans, top, bottom):
        self.text, self.spans, self.top, self.bottom = text, spans, top, bottom


class Plate:
    """A flat plate: grey pixels with some surroundings, and its one or two rows of characters."""

    def __init__(self, canvas, rows, outline):
        self.canvas = canvas
        self.rows = rows
        self.outline = outline  # left, top, right, bottom of the plate


def draw_shapes(follows_format):
    """The glyph for each character: on many plates O and 0, or I and 1, look the same."""
    shapes = {character: character for character in CHARACTERS}
    if follows_format and chance(0.4):
        for alike in "O0", "I1":
            if chance(0.8):
                shapes[alike[0]] = shapes[alike[1]] = random.choice(alike)
    if chance(0.4):
        shapes["W"] = UPRIGHT_W
    return shapes


def lay_out(font, groups, shapes):
    """Returns the characters as (mask, x, width) and the gaps as (None, x, width, kind); the text; its width."""
    items, text, x = [], "", 0.0
    squeeze = uniform(0.5, 1.12) if chance(0.85) else 1.0
    cells = chance(0.45)  # every character in a cell of one width
    gap = uniform(0.02, 0.30) * GLYPH_HEIGHT * 0.6 + 1
    cell = GLYPH_HEIGHT * 0.75 * squeeze
    for number, group in enumerate(groups):
        if number:
            width, kind = uniform(0.0, 1.5) * GLYPH_HEIGHT * 0.6, random.random()
            if chance(0.12):
                width, kind = uniform(0.45, 0.8) * GLYPH_HEIGHT, -1
            items.append((None, x, width, kind))
            x += width
        for character in group:
            mask = font.masks[shapes[character]]
            width = max(3, int(round(mask.shape[1] * squeeze)))
            room = max(cell, width) if cells else width
            items.append((mask, x + (room - width) / 2, width))
            x += room + gap
            text += character
    return items, text, int(x) + 2


def draw_surface(canvas, left, top, right, bottom, ground, contrast, ink):
    canvas[top:bottom, left:right] = ground
    if chance(0.25):
        picture = coarse_noise(
            right - left, bottom - top, random.randint(2, 5), random.randint(2, 6), cv2.INTER_CUBIC, -1, 1
        )
        canvas[top:bottom, left:right] += picture * contrast * uniform(0.05, 0.3)
    if chance(0.4):
        inset = random.randint(0, 5)
        corners = (left + inset, top + inset), (right - 1 - inset, bottom - 1 - inset)
        cv2.rectangle(canvas, *corners, ink, random.randint(1, 4))
    if chance(0.3):
        cv2.rectangle(canvas, (left - 2, top - 2), (right + 1, bottom + 1), uniform(0, 90), random.randint(2, 6))


def draw_band(canvas, font, x, y, width, height, value):
    """Draws a coloured band with a ring of stars or a flag, and the letters of the country."""
    canvas[y : y + height, x : x + width] = value
    light = min(255.0, value + uniform(60, 200)) if value < 170 else max(0.0, value - uniform(60, 200))
    centre, radius = (x + width // 2, y + int(height * uniform(0.25, 0.4))), max(2, int(width * uniform(0.2, 0.38)))
    kind = random.random()
    if kind < 0.35:
        for star in range(12):
            angle = star * np.pi / 6
            place = (int(centre[0] + radius * np.cos(angle)), int(centre[1] + radius * np.sin(angle)))
            cv2.circle(canvas, place, random.choice([1, 1, 2]), light, -1)
    elif kind < 0.45:
        cv2.circle(canvas, centre, radius, light, random.randint(1, 3))
    elif kind < 0.75:
        draw_emblem(canvas, centre[0] - radius, centre[1] - radius, 2 * radius, 2 * radius)
    if chance(0.8):
        letters = width * uniform(0.35, 0.6)
        small_text(canvas, font, x + width * uniform(0.08, 0.3), y + height * uniform(0.6, 0.72), letters, width * 0.45, light)


def draw_extras(canvas, fonts, font, x, text_width, margins, plate, ink, ground):
    """Draws a country band, coloured or not, state and slogan, and a dealer's frame."""
    left, top, right, bottom = plate
    side, above, below = margins
    if chance(0.6) and side > 0.35 * GLYPH_HEIGHT:
        width = int(min(side * uniform(0.7, 0.97), uniform(0.35, 0.8) * GLYPH_HEIGHT))
        value = ground if chance(0.35) else uniform(0, 255)
        draw_band(canvas, font, left, top, width, bottom - top, value)
        if chance(0.3):
            draw_band(canvas, font, right - width, top, width, bottom - top, value)
    start = x + random.randint(0, max(1, text_width // 2))
    if above > 0.4 * GLYPH_HEIGHT and chance(0.6):
        height = uniform(0.15, 0.45) * min(above, GLYPH_HEIGHT)
        small_text(canvas, random.choice(fonts), start, top + 3, height, text_width, ink if chance(0.6) else uniform(0, 255))
    if below > 0.4 * GLYPH_HEIGHT and chance(0.6):
        height = uniform(0.15, 0.45) * min(below, GLYPH_HEIGHT)
        value = ink if chance(0.6) else uniform(0, 255)
        small_text(canvas, random.choice(fonts), start, int(bottom - height - 6), height, text_width, value)
    if chance(0.33):
        dark = chance(0.75)
        value = uniform(5, 70) if dark else uniform(150, 240)
        letters = uniform(170, 255) if dark else uniform(0, 70)
        lower = int(min(below * 0.95, uniform(0.15, 0.55) * GLYPH_HEIGHT))
        upper = int(min(above * 0.9, uniform(0.05, 0.5) * GLYPH_HEIGHT))
        edge = random.randint(2, 7)
        canvas[bottom - lower : bottom, left:right] = value
        canvas[top : top + upper, left:right] = value
        canvas[top:bottom, left : left + edge] = value
        canvas[top:bottom, right - edge : right] = value
        start = left + random.randint(4, max(5, (right - left) // 3))
        width = (right - left) * 0.8
        if lower > 6 and chance(0.85):
            small_text(canvas, random.choice(fonts), start, bottom - lower + 1, lower * 0.85, width, letters)
        if upper > 6 and chance(0.6):
            small_text(canvas, random.choice(fonts), start, top + 1, upper * 0.85, width, letters)


def draw_characters(canvas, items, x, y, ground, contrast, ink, weight, relief):
    """Draws a row of characters and returns the first and last column of each."""
    spans = []
    for item in items:
        if item[0] is None:
            draw_gap(canvas, x + item[1] + item[2] / 2, y, item[2], item[3], ink, ground)
            continue
        mask, start, glyph_width = item
        if glyph_width != mask.shape[1]:
            mask = cv2.resize(mask, (glyph_width, mask.shape[0]), interpolation=cv2.INTER_AREA)
        if weight > 0:
            mask = cv2.dilate(mask, np.ones((3, 3), np.uint8))
        elif weight < 0:
            mask = cv2.erode(mask, np.ones((2, 2), np.uint8))
        mask = mask.astype(np.float32) / 255
        left = x + int(start)
        if relief:
            across, down, light = relief
            blend(canvas, left + across, y - GLYPH_MARGIN + down, mask, min(255.0, max(0.0, ground + light)))
        blend(canvas, left, y - GLYPH_MARGIN, mask, ink)
        spans.append((left, left + glyph_width))
    return spans


def draw_plate(fonts):
    font = random.choice(fonts)
    groups, follows_format = plate_formats.draw_text(random)
    shapes = draw_shapes(follows_format)
    texts = [groups]
    if chance(0.16):  # two rows
        texts = plate_formats.split_rows(random, groups)
    rows = [lay_out(font, row, shapes) for row in texts]
    widest = max(row[2] for row in rows)
    pitch = int(GLYPH_HEIGHT * uniform(1.1, 1.5))
    side, above, below = (uniform(0.1, 1.6) * GLYPH_HEIGHT, uniform(0.1, 1.3) * GLYPH_HEIGHT, uniform(0.1, 1.3) * GLYPH_HEIGHT)
    outside = int(0.8 * GLYPH_HEIGHT)
    text_height = GLYPH_HEIGHT + pitch * (len(rows) - 1)
    width = int(widest + 2 * side) + 2 * outside
    height = int(text_height + above + below) + 2 * outside
    x, y = int(side) + outside, int(above) + outside

    contrast = uniform(45, 215)
    grey = uniform(20, 255)
    if chance(0.8):
        ground = min(255.0, max(grey, contrast + 5))
        ink = ground - contrast
    else:
        ground = max(0.0, min(grey, 250 - contrast))
        ink = ground + contrast

    infrared = chance(0.08)
    if infrared:  # the plate reflects the camera's light, its surroundings are dark
        canvas = coarse_noise(width, height, random.randint(2, 6), random.randint(2, 8), high=uniform(10, 70))
        ground, ink = uniform(190, 255), uniform(0, 110)
        contrast = ground - ink
    elif chance(0.5):
        canvas = coarse_noise(
            width, height, random.randint(2, 6), random.randint(2, 8), random.choice([cv2.INTER_LINEAR, cv2.INTER_NEAREST])
        )
    else:
        canvas = np.full((height, width), uniform(0, 255), np.float32)
    plate = (outside, outside, width - outside, height - outside)
    draw_surface(canvas, *plate, ground, contrast, ink)
    draw_extras(canvas, fonts, font, x, widest, (side, above, below), plate, ink, ground)
    for _ in range(2):  # a seal or an emblem beside the characters
        if chance(0.07):
            size = uniform(0.4, 0.9) * GLYPH_HEIGHT
            centre = x - size * uniform(0.55, 0.9) if chance(0.5) else x + widest + size * uniform(0.55, 0.9)
            draw_emblem(canvas, centre - size / 2, y + uniform(0, 0.5) * GLYPH_HEIGHT, size, size * uniform(0.8, 1.3))

    weight = random.choice([-1, 0, 0, 0, 0, 1, 1])
    relief = (*random.choice([(1, 1), (1, 2), (-1, 1), (0, 2), (2, 1)]), uniform(-0.5, 0.5) * contrast) if chance(0.3) else None
    drawn = []
    for number, (items, text, row_width) in enumerate(rows):
        left = x + random.choice([0, (widest - row_width) // 2])
        top = y + number * pitch
        spans = draw_characters(canvas, items, left, top, ground, contrast, ink, weight, relief)
        drawn.append(Row(text, spans, top, top + GLYPH_HEIGHT))

    if chance(0.3):  # bolts
        for _ in range(random.randint(1, 4)):
            place = (random.randint(plate[0], plate[2]), random.choice([plate[1] + 6, plate[3] - 6]))
            cv2.circle(canvas, place, random.randint(2, 5), uniform(0, 255), -1)
    if chance(0.1):  # dirt
        dirt = coarse_noise(width, height, random.randint(4, 9), random.randint(8, 24), cv2.INTER_CUBIC, -1, 1)
        amount = np.clip(dirt, 0, 1) * uniform(0.1, 0.5)
        canvas[:] = canvas * (1 - amount) + uniform(30, 180) * amount
    if infrared and chance(0.6):  # the light plate dazzles
        canvas = canvas + cv2.GaussianBlur(canvas, (0, 0), GLYPH_HEIGHT * uniform(0.1, 0.5)) * uniform(0.1, 0.6)
    return Plate(canvas, drawn, plate)


def motion_kernel(length, angle):
    size = length | 1
    kernel = np.zeros((size, size), np.float32)
    reach = (length - 1) / 2
    centre = size // 2
    end = (int(round(reach * np.cos(angle))), int(round(reach * np.sin(angle))))
    cv2.line(kernel, (centre - end[0], centre - end[1]), (centre + end[0], centre + end[1]), 1.0, 1)
    return kernel / kernel.sum()


def degrade(image, character_height):
    """Applies the effects of lens, light, sensor and compression; `character_height` is in pixels."""
    height, width = image.shape
    if chance(0.6):
        sigma = uniform(0.2, 0.75) * (1 if character_height < 14 else character_height / 16)
        image = cv2.GaussianBlur(image, (0, 0), sigma)
    if chance(0.2):
        max_length = max(2, min(9, int(character_height * 0.3)))
        angle = random.choice([0.0, np.pi / 2, uniform(0, np.pi)])
        image = cv2.filter2D(image, -1, motion_kernel(random.randint(2, max_length), angle), borderType=cv2.BORDER_REPLICATE)
    if chance(0.35):
        image = image * coarse_noise(width, height, 2, random.randint(2, 3), low=0.55, high=1.3)
    if chance(0.12):  # the edge of a shadow
        left, right = random.randint(0, height - 1), random.randint(0, height - 1)
        far = height if chance(0.5) else 0
        shade = np.zeros((height, width), np.float32)
        cv2.fillPoly(shade, [np.array([[0, left], [width, right], [width, far], [0, far]], np.int32)], 1.0)
        image = image * (1 - shade * uniform(0.2, 0.6))
    if chance(0.15):  # over-exposure
        image = image * uniform(1.1, 1.6)
    if chance(0.12):  # dusk
        image = image * uniform(0.15, 0.5) + uniform(0, 40)
    image = image + np.random.normal(0, uniform(0, 1) ** 2 * 14, image.shape)
    image = np.clip(image, 0, 255).astype(np.uint8)
    if chance(0.55):
        _, packed = cv2.imencode(".jpg", image, [cv2.IMWRITE_JPEG_QUALITY, random.randint(25, 92)])
        image = cv2.imdecode(packed, cv2.IMREAD_GRAYSCALE)
    return image


def draw_strip(fonts, photographs):
    """An example for the reader: 8-bit STRIP_HEIGHT x STRIP_WIDTH, text, first and last column of each character."""
    if chance(0.07):
        return draw_empty_strip(photographs)
    plate = draw_plate(fonts)
    row = random.choice(plate.rows)
    if chance(0.5):
        seen_height = float(np.exp(uniform(np.log(7.5), np.log(34))))
    else:
        seen_height = float(np.exp(uniform(np.log(8.5), np.log(17))))

    # The part to cut out, in pixels of the flat plate: characters fill half to nearly all of its height.
    character_height = row.bottom - row.top
    height = character_height / uniform(0.5, 0.93)
    middle = (row.top + row.bottom) / 2 + uniform(-0.5, 0.5) * (height - character_height) * 0.8
    first, last = row.spans[0][0], row.spans[-1][1]
    length = last - first
    def margin(whole):
        if chance(0.3):  # up to the end of the plate, with its other markings
            return max(2, whole * uniform(0.6, 1.1))
        return max(2, uniform(0.0, 0.12) * length if chance(0.75) else uniform(0.1, 0.3) * length)

    left, right = first - margin(first - plate.outline[0]), last + margin(plate.outline[2] - last)

    # The slope, slant and perspective that remain after the row has been cut out along its slope.
    slope, slant = np.tan(np.deg2rad(random.gauss(0, 2.0))), random.gauss(0, 0.09)
    centre = (left + right) / 2

    def bend(x, y):
        y += random.gauss(0, 0.02) * height
        dx, dy = x - centre, y - middle
        return dx + slant * dy + centre, dy + slope * dx + middle

    top, bottom = middle - height / 2, middle + height / 2
    corners = np.float32([bend(left, top), bend(right, top), bend(right, bottom), bend(left, bottom)])
    scale = seen_height / character_height
    seen_width = max(12, int(max(12, int((right - left) * scale)) * uniform(0.75, 1.08)))
    seen_rows = max(6, int(height * scale))
    frame = np.float32([[0, 0], [seen_width, 0], [seen_width, seen_rows], [0, seen_rows]])
    matrix = cv2.getPerspectiveTransform(corners, frame)
    source = cv2.GaussianBlur(plate.canvas, (0, 0), 0.45 / scale) if scale < 0.7 else plate.canvas
    seen = cv2.warpPerspective(
        source, matrix, (seen_width, seen_rows), flags=cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE
    )
    seen = degrade(seen, seen_height)
    interpolation = random.choice([cv2.INTER_LINEAR, cv2.INTER_CUBIC, cv2.INTER_AREA])
    strip = cv2.resize(seen, (STRIP_WIDTH, STRIP_HEIGHT), interpolation=interpolation)
    ends = np.float32([[[a, middle], [b, middle]] for a, b in row.spans]).reshape(-1, 1, 2)
    spans = cv2.perspectiveTransform(ends, matrix).reshape(-1, 2, 2)[:, :, 0] * STRIP_WIDTH / seen_width
    return strip, row.text, spans


def draw_empty_strip(photographs):
    """Returns a strip without text."""
    if photographs and chance(0.6):
        photograph = random.choice(photographs)
        rows = random.randint(10, 80)
        columns = int(rows * uniform(2, 6))
        y = random.randint(0, photograph.shape[0] - rows - 1)
        x = random.randint(0, photograph.shape[1] - columns - 1)
        image = photograph[y : y + rows, x : x + columns].astype(np.float32)
    else:
        rows, columns = random.randint(10, 40), random.randint(40, 160)
        interpolation = random.choice([cv2.INTER_NEAREST, cv2.INTER_LINEAR])
        image = coarse_noise(columns, rows, random.randint(1, 6), random.randint(1, 20), interpolation)
        if chance(0.4):
            bars = random.randint(2, 30)
            for bar in range(bars):
                x = int(columns * bar / bars)
                cv2.line(image, (x, 0), (x + random.randint(-3, 3), rows), uniform(0, 255), random.randint(1, 3))
    return cv2.resize(degrade(image, 15), (STRIP_WIDTH, STRIP_HEIGHT)), "", np.zeros((0, 2))


def load_photographs():
    """Returns grey photographs without plates, at most 1280 wide; from mate-backgrounds (GPL 2 or later)."""
    photographs = []
    folder = "/usr/share/backgrounds/mate/nature"
    names = ["Aqua", "Blinds", "Dune", "FreshFlower", "GreenMeadow", "RainDrops", "Storm", "TwoWings", "Wood"]
    for name in names:
        picture = cv2.imread(f"{folder}/{name}.jpg", cv2.IMREAD_GRAYSCALE)
        if picture is None:
            raise SystemExit(f"{folder}/{name}.jpg is missing; install mate-backgrounds")
        scale = 1280 / max(picture.shape)
        photographs.append(cv2.resize(picture, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA))
    return photographs
