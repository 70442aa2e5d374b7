"""Draws small scenes with plates, and the expected output of the detector's cells for each."""
import random

import cv2
import numpy as np

import plate_drawing
from plate_drawing import chance, coarse_noise, uniform

WIDTH, HEIGHT = 320, 192
CELL = 8  # pixels; the side of the square that one output of the detector covers

# The units of a cell's output about its row of characters, as in reference/reader/plate_detector.cpp.
SIDE_SCALE = 32.0  # pixels to the left and the right end
OFFSET_SCALE = 8.0  # pixels down to the middle line
HEIGHT_UNIT = 14.0  # pixels; the logarithm of the characters' height over it
SLOPE_SCALE = 0.25


def draw_ground(photographs):
    if chance(0.55):
        photograph = random.choice(photographs)
        scale = uniform(0.35, 1.6)
        rows = min(int(HEIGHT / scale), photograph.shape[0] - 1)
        columns = min(int(WIDTH / scale), photograph.shape[1] - 1)
        y, x = random.randint(0, photograph.shape[0] - rows - 1), random.randint(0, photograph.shape[1] - columns - 1)
        part = photograph[y : y + rows, x : x + columns]
        scene = cv2.resize(part, (WIDTH, HEIGHT), interpolation=cv2.INTER_AREA).astype(np.float32)
        return (scene - scene.mean()) * uniform(0.5, 1.6) + uniform(40, 200)
    interpolation = random.choice([cv2.INTER_NEAREST, cv2.INTER_LINEAR, cv2.INTER_CUBIC])
    scene = coarse_noise(WIDTH, HEIGHT, random.randint(1, 5), random.randint(1, 6), interpolation)
    if chance(0.4):
        for _ in range(random.randint(1, 3)):
            size = random.choice([2, 4, 8, 16, 32])
            grains = np.random.normal(0, uniform(3, 40), (HEIGHT // size + 1, WIDTH // size + 1)).astype(np.float32)
            scene += cv2.resize(grains, (WIDTH, HEIGHT), interpolation=cv2.INTER_LINEAR)
    return scene


def draw_clutter(scene, fonts):
    """Draws a part of a car or of a street: bars, grilles, meshes, discs, lettering that is not a plate's."""
    kind = random.random()
    x, y = random.randint(-40, WIDTH), random.randint(-30, HEIGHT)
    width, height = random.randint(4, 160), random.randint(3, 100)
    value = uniform(0, 255)
    if kind < 0.25:
        cv2.rectangle(scene, (x, y), (x + width, y + height), value, random.choice([-1, -1, 1, 2, 3]))
    elif kind < 0.4:
        axes = (width // 2 + 1, height // 2 + 1)
        cv2.ellipse(scene, (x, y), axes, uniform(0, 180), 0, 360, value, random.choice([-1, -1, 1, 2, 4]))
    elif kind < 0.52:
        end = (random.randint(-40, WIDTH + 40), random.randint(-40, HEIGHT + 40))
        cv2.line(scene, (x, y), end, value, random.randint(1, 5))
    elif kind < 0.7:
        bars, pitch, lean = random.randint(3, 24), uniform(2.5, 14), random.gauss(0, 0.12)
        thickness = max(1, int(pitch * uniform(0.2, 0.6)))
        upright = chance(0.5)
        for bar in range(bars):
            if upright:
                start = (int(x + bar * pitch), y)
                cv2.line(scene, start, (int(start[0] + height * lean), y + height), value, thickness)
            else:
                start = (x, int(y + bar * pitch))
                cv2.line(scene, start, (x + width, int(start[1] + width * lean)), value, thickness)
    elif kind < 0.82:
        pitch = random.randint(4, 14)
        radius = max(1, int(pitch * uniform(0.15, 0.4)))
        for row, cy in enumerate(range(max(0, y), min(HEIGHT, y + height), pitch)):
            for cx in range(max(0, x), min(WIDTH, x + width), pitch):
                cv2.circle(scene, (cx + (pitch // 2 if row % 2 else 0), cy), radius, value, -1)
    else:
        draw_lettering(scene, fonts, x, y)


def draw_vehicle(scene, corners):
    """Draws the end of a vehicle around a plate: panels, edges, a grille, lights, a badge; all lean as the plate does."""
    along, down = corners[1] - corners[0], corners[3] - corners[0]
    width, height = float(np.linalg.norm(along)), float(np.linalg.norm(down))
    along, down = along / width, down / height
    centre = corners.mean(0)

    def place(x, y):
        return centre + x * along + y * down

    def panel(left, top, right, bottom, value):
        quadrangle = [place(left, top), place(right, top), place(right, bottom), place(left, bottom)]
        cv2.fillConvexPoly(scene, np.int32(np.round(quadrangle)), value)

    def line(x, y, end_x, end_y, value, thickness):
        ends = np.int32(np.round([place(x, y), place(end_x, end_y)]))
        cv2.line(scene, ends[0].tolist(), ends[1].tolist(), value, thickness)

    def disc(x, y, axes, value, thickness):
        middle = np.int32(np.round(place(x, y))).tolist()
        cv2.ellipse(scene, middle, axes, 0, 0, 360, value, thickness)

    half, body = width / 2, uniform(5, 250)
    left, right = -half - width * uniform(0.2, 2.5), half + width * uniform(0.2, 2.5)
    top, bottom = -height * uniform(0.8, 4), height * uniform(0.7, 3)
    panel(left, top, right, bottom, body)
    if chance(0.5):  # light from above
        scene *= coarse_noise(WIDTH, HEIGHT, random.randint(2, 5), 1, low=uniform(0.5, 1.0), high=uniform(1.0, 1.3))
    for _ in range(random.randint(0, 3)):  # parts of another colour, above or below
        value = uniform(0, 255) if chance(0.5) else body * uniform(0.2, 0.9)
        side, edge = random.choice([-1, 1]), height * uniform(0.55, 1.6)
        far = edge + height * uniform(0.1, 1.5)
        panel(left * uniform(0.3, 1), side * edge, right * uniform(0.3, 1), side * far, value)
    if chance(0.5):  # grille
        upright, pitch, value = chance(0.4), uniform(2.5, 9), uniform(0, 255)
        start = (-1 if chance(0.7) else 1) * height * uniform(0.55, 1.5)
        end, reach = start + np.sign(start) * height * uniform(0.3, 1.8), half * uniform(0.6, 2.5)
        panel(-reach, start, reach, end, uniform(0, 90))
        thickness = max(1, int(pitch * uniform(0.2, 0.6)))
        if upright:
            for x in np.arange(-reach, reach, pitch):
                line(x, start, x, end, value, thickness)
        else:
            for y in np.arange(min(start, end), max(start, end), pitch):
                line(-reach, y, reach, y, value, thickness)
    if chance(0.4):  # a recess or a holder
        value = body * uniform(0.3, 0.95) if chance(0.8) else uniform(0, 255)
        margin = height * uniform(0.05, 0.5)
        aside, below = half + margin * uniform(0.5, 4), height / 2 + margin
        panel(-aside, -below, aside, below, value)
    for _ in range(random.randint(0, 5)):  # edges, gaps, chrome
        y = random.choice([-1, 1]) * height * uniform(0.55, 2.5)
        line(left, y, right, y + height * random.gauss(0, 0.1), uniform(0, 255), random.randint(1, 1 + int(height * 0.2)))
    if chance(0.5):  # lights
        x, y, value = half + width * uniform(0.2, 1.5), height * uniform(-1.5, 0.8), uniform(40, 255)
        axes = (max(1, int(width * uniform(0.1, 0.5))), max(1, int(height * uniform(0.2, 0.8))))
        for side in (-1, 1):
            disc(side * x, y, axes, value, -1)
    if chance(0.3):  # a badge
        axes = (max(1, int(height * 0.35)), max(1, int(height * 0.25)))
        x, y = uniform(-0.2, 0.2) * width, -height * uniform(0.8, 1.8)
        disc(x, y, axes, uniform(0, 255), random.choice([-1, 2]))


def draw_words():
    """Returns what is written on signs, on vehicles and over the picture; plates differ by their ground and their text."""
    letters, digits = plate_drawing.plate_formats.LETTERS, plate_drawing.plate_formats.DIGITS
    some = lambda characters, low, high: "".join(random.choices(characters, k=random.randint(low, high)))
    kind = random.random()
    if kind < 0.25:  # date and time
        date = random.choice(["-", "/", "."]).join(some(digits, n, n) for n in random.choice([(4, 2, 2), (2, 2, 4), (2, 2, 2)]))
        time = ":".join(some(digits, 2, 2) for _ in range(random.choice([2, 3])))
        return random.choice([date, time, date + " " + time])
    if kind < 0.32:  # telephone numbers, web addresses
        return random.choice([some(digits, 7, 11), "www." + some(letters.lower(), 4, 9) + ".", some(digits, 1, 3)])
    words = [some(letters, 2, 9) for _ in range(random.choice([1, 1, 1, 2, 3]))]
    if chance(0.4):
        words = [word[0] + word[1:].lower() for word in words]
    return " ".join(words)


def draw_lettering(scene, fonts, x, y):
    """Draws lines of words: on a sign, or over the scene with or without an outline."""
    font, value = random.choice(fonts), uniform(0, 255)
    height = float(np.exp(uniform(np.log(6), np.log(40))))
    lines = [draw_words() for _ in range(random.choice([1, 1, 1, 2, 3]))]
    x, y = max(2, x), max(2, y)
    if chance(0.4):  # a sign, larger than its words
        width, below = int(height * uniform(0.4, 0.9) * max(map(len, lines))), int(height * 1.4 * len(lines))
        edge = [int(height * uniform(0.2, 2.5)) for _ in range(4)]
        cv2.rectangle(scene, (x - edge[0], y - edge[1]), (x + width + edge[2], y + below + edge[3]), uniform(0, 255), -1)
    outline = chance(0.3)
    squeeze = uniform(0.6, 1.1)
    for line in lines:
        scale = height / plate_drawing.GLYPH_HEIGHT
        right = x
        for character in line:
            if character == " ":
                right += int(height * 0.5)
                continue
            glyph = font.masks[character]
            size = (max(1, int(glyph.shape[1] * scale * squeeze)), max(2, int(glyph.shape[0] * scale)))
            mask = cv2.resize(glyph, size, interpolation=cv2.INTER_AREA).astype(np.float32) / 255
            if outline:
                plate_drawing.blend(scene, right, y, cv2.dilate(mask, np.ones((3, 3))), 255.0 if value < 128 else 0.0)
            if not plate_drawing.blend(scene, right, y, mask, value):
                break
            right += size[0] + 1
        y += int(height * uniform(1.2, 1.7))
        height *= uniform(0.6, 1.2)


class Row:
    """The characters of one plate in the scene: their ends on the middle line, height, and the box of the plate."""

    def __init__(self, left, right, height, box):
        self.left, self.right, self.height, self.box = left, right, height, box

    def overlaps(self, box):
        return not (
            box[2] < self.box[0] or box[0] > self.box[2] or box[3] < self.box[1] or box[1] > self.box[3]
        )


def place_plate(scene, fonts, rows):
    """Draws a plate at a random place and returns the scene; unchanged if the plate would cover another."""
    plate = plate_drawing.draw_plate(fonts)
    seen_height = float(np.exp(uniform(np.log(6.5), np.log(32))))
    scale = seen_height / plate_drawing.GLYPH_HEIGHT
    across = scale * uniform(0.75, 1.05)
    turn, slant = np.deg2rad(random.gauss(0, 6)), random.gauss(0, 0.12)
    left, top, right, bottom = plate.outline
    cosine, sine = np.cos(turn), np.sin(turn)
    matrix = np.float32(
        [[cosine * across, -sine * scale + cosine * slant * scale], [sine * across, cosine * scale + sine * slant * scale]]
    )
    centre = np.float32([uniform(10, WIDTH - 10), uniform(8, HEIGHT - 8)])
    shift = centre - matrix @ np.float32([(left + right) / 2, (top + bottom) / 2])
    corners = np.float32([[left, top], [right, top], [right, bottom], [left, bottom]]) @ matrix.T + shift
    box = (*corners.min(0), *corners.max(0))
    if any(row.overlaps(box) for row in rows):
        return scene
    if not rows and chance(0.7):
        draw_vehicle(scene, corners)
        if chance(0.3):
            draw_clutter(scene, fonts)
    source = cv2.GaussianBlur(plate.canvas, (0, 0), 0.45 / scale) if scale < 0.7 else plate.canvas
    seen = cv2.warpAffine(
        source, np.hstack([matrix, shift[:, None]]).astype(np.float32), (WIDTH, HEIGHT), borderMode=cv2.BORDER_REPLICATE
    )
    mask = np.zeros((HEIGHT, WIDTH), np.float32)
    cv2.fillConvexPoly(mask, (corners * 16).astype(np.int32), 1.0, lineType=cv2.LINE_AA, shift=4)
    mask = cv2.GaussianBlur(mask, (0, 0), 0.5)
    for row in plate.rows:
        first, last = row.spans[0][0], row.spans[-1][1]
        middle = (row.top + row.bottom) / 2
        points = np.float32([[first, middle], [last, middle], [(first + last) / 2, row.top], [(first + last) / 2, row.bottom]])
        points = points @ matrix.T + shift
        rows.append(Row(points[0], points[1], float(np.linalg.norm(points[3] - points[2])), box))
    return scene * (1 - mask) + seen * mask


def cell_targets(rows):
    """Returns for each cell: 1 on a row, 0 away from all rows, -1 near one; and the five numbers about the row."""
    shape = (HEIGHT // CELL, WIDTH // CELL)
    found = np.zeros(shape, np.float32)
    about = np.zeros((5, *shape), np.float32)
    y, x = np.mgrid[0 : shape[0], 0 : shape[1]] * float(CELL) + CELL / 2
    for row in rows:
        width = max(4.0, row.right[0] - row.left[0])
        slope = (row.right[1] - row.left[1]) / width
        centre = (row.left + row.right) / 2
        down = centre[1] + slope * (x - centre[0]) - y
        along = np.abs(x - centre[0]) / width
        on = (along < 0.36) & (np.abs(down) < max(4.1, row.height * 0.34))
        near = (along < 0.6) & (np.abs(down) < max(8.0, row.height * 0.85)) & ~on
        found[near & (found == 0)] = -1
        found[on] = 1
        numbers = [
            (x - row.left[0]) / SIDE_SCALE,
            (row.right[0] - x) / SIDE_SCALE,
            down / OFFSET_SCALE,
            np.full(shape, np.log(row.height / HEIGHT_UNIT)),
            np.full(shape, slope / SLOPE_SCALE),
        ]
        for number, values in zip(about, numbers):
            number[on] = values[on]
    return found, about


def draw_scene(fonts, photographs):
    """Returns a scene, 8-bit HEIGHT x WIDTH, and for each cell 1, 0 or -1 (undefined) and its five numbers."""
    scene = draw_ground(photographs)
    for _ in range(random.choice([0, 1, 2, 4, 8, 14])):
        draw_clutter(scene, fonts)
    rows = []
    for _ in range(random.choice([0, 1, 1, 1, 1, 1, 2])):
        scene = place_plate(scene, fonts, rows)
    scene = plate_drawing.degrade(np.clip(scene, -50, 350), uniform(8, 22))
    return (scene, *cell_targets(rows))
