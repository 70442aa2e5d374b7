"use strict";
(() => {
  const byId = (id) => document.getElementById(id);
  const data = JSON.parse(byId("data").textContent);
  const { run, events, truth } = data;
  const svgSpace = byId("svg-template").content.firstChild.namespaceURI;
  const picturesPerElement = 16;  // as in report.cpp
  const gap = 16;
  const manyMistakes = 24;
  const mostPrinted = 300;

  function fill(node, attributes, children) {
    for (const [name, value] of Object.entries(attributes || {})) {
      if (value !== undefined && value !== null) node.setAttribute(name, value);
    }
    node.append(...children.flat().filter((child) => child !== null && child !== undefined));
    return node;
  }
  const make = (tag, attributes, ...children) => fill(document.createElement(tag), attributes, children);
  const draw = (tag, attributes, ...children) => fill(document.createElementNS(svgSpace, tag), attributes, children);

  const grouped = (number) => Number(number).toLocaleString("en-GB");
  const rounded = (number) =>
    number >= 100 ? grouped(Math.round(number)) : number >= 10 ? number.toFixed(1) : number.toFixed(2);
  const counted = (number, word, plural = word + "s") => `${grouped(number)} ${number === 1 ? word : plural}`;
  const two = (number) => String(number).padStart(2, "0");

  /** 83450 is "1:23.45"; with an hour or more, "1:01:23.45". */
  function clock(ms, decimals = 2) {
    const sign = ms < 0 ? "−" : "";
    const factor = 10 ** decimals;
    const total = Math.round(Math.abs(ms) / 1000 * factor) / factor;
    const hours = Math.floor(total / 3600);
    const minutes = Math.floor(total / 60) % 60;
    const seconds = (total % 60).toFixed(decimals).padStart(decimals ? decimals + 3 : 2, "0");
    return sign + (hours ? `${hours}:${two(minutes)}` : minutes) + ":" + seconds;
  }

  // ---- summary

  const videoName = run.video.split(/[\\/]/).pop() || run.video || "Run without a video's name";
  const count = run.frames - run.frames_after_video;
  document.title = `${videoName}: run report`;
  byId("title").textContent = videoName === "-" ? "Standard input" : videoName;
  byId("subtitle").textContent = [
    run.start_time.replace("T", " ").replace("Z", " UTC"), run.system, counted(data.channels.length, "channel"),
  ].filter(Boolean).join(" · ");

  function figure(list, name, value, more, kind) {
    list.append(make("div", { class: kind },
      make("dt", {}, name, more ? make("div", { class: "more" }, more) : null),
      make("dd", {}, ...[value].flat())));
  }
  const unit = (text) => make("small", {}, " " + text);
  const figures = byId("figures");
  figure(figures, "events", grouped(run.events));
  figure(figures, "length of the video", clock(run.video_ms, 1));
  figure(figures, "frames", grouped(count),
    run.frames_after_video ? `and ${grouped(run.frames_after_video)} empty ones after the video` : null);
  if (run.seconds) {
    figure(figures, "frames per second", rounded(run.frames / run.seconds), `${run.seconds.toFixed(1)} s for the run`);
  }
  if (run.engine_ms !== undefined) figure(figures, "engine, mean", [rounded(run.engine_ms), unit("ms")]);
  figure(figures, "frames failed", grouped(run.frames_failed), null, run.frames_failed ? "bad" : null);

  const notes = [...data.notes];
  if (run.recorder === "engine") {
    notes.unshift("The recording was made beside the engine: it has no events, no settings and no end.");
  } else if (run.seconds === undefined) notes.unshift("The recording was cut off: it has no end. What was recorded before is shown.");
  byId("notes").append(...notes.map((text) => make("p", { class: "note" }, text)));

  // ---- the part of the video that the timeline and the plots show

  const plot = data.plot;
  const plotCount = plot.frames_per_second.length;
  const eventTimes = events.map((event) => event.time);
  const truthTimes = truth ? truth.matches.filter((match) => match.outcome === "missed").flatMap((match) => [match.from, match.to]) : [];
  const least = (values, start) => values.reduce((found, value) => Math.min(found, value), start);
  const most = (values, start) => values.reduce((found, value) => Math.max(found, value), start);
  const begin = least(truthTimes, least(eventTimes, plotCount ? plot.first : 0));
  const end = Math.max(begin + 1000, most(truthTimes, most(eventTimes, plot.first + plot.step * plotCount)));
  const view = { from: begin, to: end };
  const viewers = [];
  let isDrawn = false;

  function redraw() {
    if (isDrawn) return;
    isDrawn = true;
    requestAnimationFrame(() => {
      isDrawn = false;
      for (const viewer of viewers) viewer();
    });
  }
  function show(from, to) {
    const span = Math.min(end - begin, Math.max(200, to - from));
    view.from = Math.max(begin, Math.min(from, end - span));
    view.to = view.from + span;
    redraw();
  }
  function zoom(factor, around = (view.from + view.to) / 2) {
    show(around - (around - view.from) * factor, around + (view.to - around) * factor);
  }
  const move = (share) => show(view.from + (view.to - view.from) * share, view.to + (view.to - view.from) * share);

  const steps = [1, 2, 5, 10, 20, 50, 100, 200, 500, 1e3, 2e3, 5e3, 1e4, 15e3, 3e4, 6e4, 12e4, 3e5, 6e5, 9e5, 18e5, 36e5,
    72e5, 144e5, 288e5, 864e5];
  function timeMarks(width) {
    const span = view.to - view.from;
    const step = steps.find((each) => each / span * width >= 76) || Math.ceil(span / width * 76 / 864e5) * 864e5;
    const marks = [];
    for (let time = Math.ceil(view.from / step) * step; time <= view.to; time += step) marks.push(time);
    return { marks, decimals: step >= 1000 ? 0 : step >= 100 ? 1 : step >= 10 ? 2 : 3 };
  }

  // ---- events: what the comparison says of them

  const outcomeNames = {
    right: "right", wrong: "wrong text", twice: "second event", none: "of no vehicle", uncounted: "not counted", missed: "missed",
  };
  if (truth) {
    for (const match of truth.matches) {
      if (match.event !== undefined) Object.assign(events[match.event], { outcome: match.outcome, truePlate: match.plate });
    }
  }
  const titleOf = (event) => event.text || event.name || "event without text";

  // ---- pictures

  const pictureElements = document.getElementsByClassName("pictures");
  /** The page is still being read while the first cards are drawn, and its last element may be incomplete. */
  function pictureOf(index) {
    const element = Math.floor(index / picturesPerElement);
    const available = pictureElements.length - (document.readyState === "loading" ? 1 : 0);
    return element < available ? pictureElements[element].textContent.split("\n")[index % picturesPerElement] : null;
  }
  const waiting = new Set();
  function loadPicture(image) {
    const picture = pictureOf(Number(image.dataset.picture));
    if (picture === null) {
      waiting.add(image);
    } else {
      image.src = "data:image/jpeg;base64," + picture;
    }
  }
  document.addEventListener("DOMContentLoaded", () => {
    for (const image of waiting) loadPicture(image);
    waiting.clear();
  });

  /** Where a picture would have been cut out of the frame. */
  function surroundings(event) {
    const [left, top, right, bottom] = event.plate || [0, 0, ...event.frame];
    const width = Math.max(event.plate ? 3 * (right - left) : right, 120);
    return [(left + right) / 2 - width / 2, (top + bottom) / 2 - width / 3, width, width / 1.5];
  }

  function placesOf(track) {
    const places = [];
    for (let index = 0; index + 1 < track.length; index += 2) places.push([track[index], track[index + 1]]);
    return places;
  }

  function overlayOf(event) {
    const box = event.crop || surroundings(event);
    const [left, top, width, height] = box;
    const overlay = draw("svg", { viewBox: box.join(" "), "aria-hidden": "true", preserveAspectRatio: "xMidYMid meet" });
    if (event.track) {
      const places = placesOf(event.track);
      overlay.append(draw("polyline", { class: "track", points: places.join(" ") }),
        ...places.map(([x, y]) => draw("circle", { class: "place", cx: x, cy: y, r: width / 130 })));
    }
    const size = width / 15;
    let x = left + size / 3;
    let y = top + height - size / 2;
    if (event.plate) {
      const [plateLeft, plateTop, plateRight, plateBottom] = event.plate;
      overlay.append(draw("rect", { class: "plate", x: plateLeft, y: plateTop,
        width: Math.max(0, plateRight - plateLeft), height: Math.max(0, plateBottom - plateTop) }));
      x = Math.min(Math.max(plateLeft, left + size / 3), left + width * 0.7);
      y = plateTop - size * 0.45;
      if (y - size < top) y = plateBottom + size * 1.15;
    }
    overlay.append(draw("text", { x, y, "font-size": size, "stroke-width": size / 5 }, titleOf(event)));
    return overlay;
  }

  function pictureBox(event, lazily) {
    const box = make("div", { class: "picture" });
    if (event.picture === undefined) {
      box.append(overlayOf(event), make("span", { class: "none" }, "no picture"));
      return box;
    }
    const image = make("img", { alt: `Plate ${titleOf(event)} at ${clock(event.time)}`, decoding: isPrinting ? "sync" : "async",
      "data-picture": event.picture });
    if (lazily) lazily.observe(image); else loadPicture(image);
    box.append(image, overlayOf(event));
    return box;
  }

  // ---- comparison with the truth

  function plateText(text, other) {
    const plate = make("span", { class: "number-plate" });
    if (other && other.length === text.length) {
      plate.append(...[...text].map((character, index) =>
        character === [...other][index] ? character : make("mark", {}, character)));
    } else {
      plate.textContent = text || "–";
    }
    return plate;
  }

  const lazyPictures = new IntersectionObserver((entries) => {
    for (const entry of entries) {
      if (entry.isIntersecting) {
        lazyPictures.unobserve(entry.target);
        loadPicture(entry.target);
      }
    }
  }, { rootMargin: "400px" });

  function mistakeEntry(match) {
    const event = match.event === undefined ? null : events[match.event];
    const where = data.channels.length > 1 ? `channel ${event ? event.channel : match.channel}, ` : "";
    const what = make("div", { class: "what" }, plateText(event ? event.text : match.plate, match.outcome === "wrong" ? match.plate : null));
    if (event && match.plate !== undefined) what.append(make("span", {}, "true: ", make("code", {}, match.plate)));
    const button = make("button", { type: "button", class: "link" },
      where + (event ? clock(event.time) : `${clock(match.from, 1)} to ${clock(match.to, 1)}`));
    button.addEventListener("click", () => {
      if (event) {
        goToCard(match.event);
      } else {
        show(match.from - 5000, match.to + 5000);
        canvas.focus();
        canvas.scrollIntoView({ block: "center" });
      }
    });
    what.append(button);
    return make("li", {}, event ? pictureBox(event, lazyPictures) : null, what);
  }

  function showTruth() {
    const list = byId("truth-figures");
    const share = truth.vehicles ? `${Math.round(100 * truth.exact / truth.vehicles)} % of the vehicles` : null;
    figure(list, "vehicles", grouped(truth.vehicles));
    figure(list, "exact texts", grouped(truth.exact), share, truth.exact ? "good" : null);
    figure(list, "with O = 0 = Q, I = 1", grouped(truth.alike));
    figure(list, "missed", grouped(truth.missed), null, truth.missed ? "bad" : null);
    figure(list, "second events", grouped(truth.twice), null, truth.twice ? "bad" : null);
    figure(list, "of no vehicle", grouped(truth.of_none), null, truth.of_none ? "bad" : null);
    if (truth.mean_delay !== undefined) {
      figure(list, "mean delay", [(truth.mean_delay / 1000).toFixed(2), unit("s")], "from the first readable frame");
    }
    const titles = { missed: "Missed vehicles", wrong: "Wrong texts", twice: "Second events", none: "Events of no vehicle" };
    for (const [outcome, title] of Object.entries(titles)) {
      const matches = truth.matches.filter((match) => match.outcome === outcome);
      if (!matches.length) continue;
      const entries = make("ul", {});
      const block = make("div", { class: "mistakes" }, make("h3", {}, `${title}: ${grouped(matches.length)}`), entries);
      let next = 0;
      const button = make("button", { type: "button", class: "more no-print" });
      const more = () => {
        entries.append(...matches.slice(next, next + manyMistakes).map(mistakeEntry));
        next = Math.min(matches.length, next + manyMistakes);
        button.textContent = `Show more (${grouped(matches.length - next)})`;
        button.hidden = next === matches.length;
      };
      button.addEventListener("click", more);
      more();
      block.append(button);
      byId("mistakes").append(block);
    }
    byId("truth").hidden = false;
    byId("outcome-label").hidden = false;
  }

  // ---- timeline

  const canvas = byId("timeline-canvas");
  const tip = byId("tip");
  const missed = truth ? truth.matches.filter((match) => match.outcome === "missed") : [];
  const laneOf = new Map(data.channels.map((channel, index) => [channel.number, index]));
  const laneHeight = data.channels.length <= 1 ? 64 : data.channels.length <= 8 ? 34 : data.channels.length <= 24 ? 18
    : Math.max(3, Math.min(8, Math.floor(480 / data.channels.length)));
  const top = 6;
  const missedHeight = missed.length ? 16 : 0;
  const lanesHeight = Math.max(1, data.channels.length) * laneHeight;
  const axisHeight = 24;
  const byTime = events.map((event, index) => index).sort((left, right) => events[left].time - events[right].time || left - right);
  let selected = -1;  // an index of byTime
  let gutter = 0;
  let isShown = () => true;

  const colourOf = (event) =>
    ({ wrong: "--bad", twice: "--warn", none: "--warn", right: "--good" })[event.outcome] || "--accent";
  const xOf = (time, width) => gutter + (time - view.from) / (view.to - view.from) * (width - gutter);
  const timeAt = (x, width) => view.from + (x - gutter) / (width - gutter) * (view.to - view.from);

  function drawTimeline() {
    const width = canvas.clientWidth;
    const height = top + lanesHeight + missedHeight + axisHeight;
    const scale = window.devicePixelRatio || 1;
    canvas.style.height = height + "px";
    canvas.width = Math.round(width * scale);
    canvas.height = Math.round(height * scale);
    const style = getComputedStyle(document.documentElement);
    const colours = new Map();  // reading a style is slow
    const colour = (name) => {
      if (!colours.has(name)) colours.set(name, style.getPropertyValue(name).trim());
      return colours.get(name);
    };
    const pen = canvas.getContext("2d");
    pen.scale(scale, scale);
    pen.font = "12px system-ui, sans-serif";
    pen.textBaseline = "middle";
    const hasLabels = laneHeight >= 18 && data.channels.length > 1;
    gutter = hasLabels || missedHeight ? 58 : 8;

    const bottom = top + lanesHeight + missedHeight;
    const { marks, decimals } = timeMarks(width - gutter);
    for (const time of marks) {
      const x = Math.round(xOf(time, width)) + 0.5;
      pen.fillStyle = colour("--grid");
      pen.fillRect(x - 0.5, top, 1, bottom - top);
      pen.fillStyle = colour("--quiet");
      pen.textAlign = x < gutter + 20 ? "left" : x > width - 22 ? "right" : "center";
      pen.fillText(clock(time, decimals), Math.min(x, width), bottom + 13);
    }
    pen.textAlign = "left";
    data.channels.forEach((channel, lane) => {
      const y = top + lane * laneHeight;
      pen.fillStyle = colour("--line");
      pen.fillRect(gutter, y + laneHeight - 1, width - gutter, 1);
      if (hasLabels) {
        pen.fillStyle = colour("--quiet");
        pen.fillText(`ch. ${channel.number}`, 0, y + laneHeight / 2);
      }
    });
    if (missedHeight) {
      const y = top + lanesHeight;
      pen.fillStyle = colour("--quiet");
      pen.fillText("missed", 0, y + missedHeight / 2);
      pen.fillStyle = colour("--bad");
      for (const match of missed) {
        const left = Math.max(gutter, xOf(match.from, width));
        const right = Math.min(width, xOf(match.to, width));
        if (right >= gutter && left <= width) pen.fillRect(left, y + 5, Math.max(2, right - left), 6);
      }
    }
    // A label needs the place up to its lane's next event.
    const nextPlace = new Map();
    const spaces = byTime.map(() => 0);
    for (let order = byTime.length - 1; order >= 0; --order) {
      const event = events[byTime[order]];
      if (!isShown(byTime[order])) continue;
      const x = xOf(event.time, width);
      spaces[order] = (nextPlace.has(event.channel) ? nextPlace.get(event.channel) : width) - x;
      nextPlace.set(event.channel, x);
    }
    byTime.forEach((index, order) => {
      const event = events[index];
      const x = xOf(event.time, width);
      if (x < gutter - 1 || x > width + 1) return;
      const lane = top + (laneOf.get(event.channel) || 0) * laneHeight;
      const share = event.confidence === undefined ? 1 : Math.max(0.25, Math.min(1, event.confidence / 100));
      const size = (laneHeight - (laneHeight >= 34 ? 15 : 3)) * share;
      pen.globalAlpha = isShown(index) ? 1 : 0.2;
      pen.fillStyle = colour(colourOf(event));
      pen.fillRect(x - 1, lane + laneHeight - 1 - size, order === selected ? 4 : 2, size);
      // Not by colour alone: a dot for a wrong text, a square for an event too many.
      const head = lane + laneHeight - 1 - size;
      if (laneHeight >= 18 && ["twice", "none"].includes(event.outcome)) pen.fillRect(x - 3, head - 3, 7, 7);
      if (order === selected || (laneHeight >= 18 && event.outcome === "wrong")) {
        pen.beginPath();
        pen.arc(x, head, order === selected ? 5 : 4, 0, 7);
        pen.fill();
      }
      if (laneHeight >= 34 && isShown(index)) {
        const text = titleOf(event).slice(0, 16);
        if (spaces[order] > pen.measureText(text).width + 4) {
          pen.fillStyle = colour("--text");
          pen.fillText(text, x - 1, lane + 7);
        }
      }
    });
    pen.globalAlpha = 1;
  }

  function eventAt(x, y) {
    const width = canvas.clientWidth;
    let found = -1;
    let nearest = 8;
    byTime.forEach((index, order) => {
      const lane = top + (laneOf.get(events[index].channel) || 0) * laneHeight;
      const distance = Math.abs(xOf(events[index].time, width) - x);
      if (distance < nearest && y >= lane && y < lane + laneHeight && isShown(index)) {
        nearest = distance;
        found = order;
      }
    });
    return found;
  }

  function describe(event) {
    return [titleOf(event), clock(event.time) + (data.channels.length > 1 ? `, channel ${event.channel}` : ""),
      event.confidence === undefined ? "" : `${event.confidence} %`,
      event.outcome ? outcomeNames[event.outcome] + (event.outcome === "wrong" ? `: ${event.truePlate}` : "") : ""]
      .filter(Boolean).join("\n");
  }

  function placeTip(order) {
    tip.hidden = order < 0;
    if (order < 0) return;
    const event = events[byTime[order]];
    tip.textContent = describe(event);
    const width = canvas.clientWidth;
    const x = xOf(event.time, width);
    tip.style.left = Math.max(0, Math.min(x + 10, width - tip.offsetWidth)) + "px";
    tip.style.top = top + ((laneOf.get(event.channel) || 0) + 1) * laneHeight + 4 + "px";
  }

  function select(order) {
    selected = order;
    if (order >= 0) {
      const event = events[byTime[order]];
      const span = view.to - view.from;
      if (event.time < view.from || event.time > view.to) show(event.time - span / 2, event.time + span / 2);
      byId("timeline-state").textContent = describe(event).replaceAll("\n", ", ");
    }
    redraw();
    requestAnimationFrame(() => placeTip(order));
  }

  function step(direction) {
    let order = selected;
    if (order < 0) order = (direction > 0 ? byTime.findIndex((index) => events[index].time >= view.from) - 1 : byTime.length);
    do order += direction; while (byTime[order] !== undefined && !isShown(byTime[order]));
    if (byTime[order] !== undefined) select(order);
  }

  const pointers = new Map();
  let dragged = 0;
  let lastScroll = 0;
  canvas.addEventListener("pointerdown", (pressed) => {
    canvas.setPointerCapture(pressed.pointerId);
    pointers.set(pressed.pointerId, pressed.offsetX);
    dragged = 0;
  });
  canvas.addEventListener("pointermove", (moved) => {
    const before = pointers.get(moved.pointerId);
    const width = canvas.clientWidth;
    if (before === undefined) {
      const order = eventAt(moved.offsetX, moved.offsetY);
      canvas.style.cursor = order < 0 ? "" : "pointer";
      placeTip(order);
      return;
    }
    const others = [...pointers].filter(([id]) => id !== moved.pointerId);
    if (others.length) {
      const other = others[0][1];
      const factor = Math.abs(before - other) / Math.max(10, Math.abs(moved.offsetX - other));
      zoom(factor, timeAt(other, width));
    } else {
      const distance = moved.offsetX - before;
      dragged += Math.abs(distance);
      if (dragged > 3) {
        canvas.classList.add("drag");
        placeTip(-1);
        const time = distance / (width - gutter) * (view.to - view.from);
        show(view.from - time, view.to - time);
      }
    }
    pointers.set(moved.pointerId, moved.offsetX);
  });
  function release(released) {
    if (pointers.delete(released.pointerId) && released.type === "pointerup" && dragged <= 3) {
      const order = eventAt(released.offsetX, released.offsetY);
      if (order >= 0) {
        selected = order;
        goToCard(byTime[order]);
      }
    }
    canvas.classList.remove("drag");
  }
  canvas.addEventListener("pointerup", release);
  canvas.addEventListener("pointercancel", release);
  canvas.addEventListener("pointerleave", () => placeTip(-1));
  canvas.addEventListener("blur", () => placeTip(-1));
  // The page scrolls over the timeline, and on when there is nothing more to show.
  canvas.addEventListener("wheel", (wheel) => {
    const isWhole = view.to - view.from >= end - begin;
    if (wheel.timeStamp - lastScroll < 400 || (isWhole && wheel.deltaY > 0 && !wheel.ctrlKey)) return;
    wheel.preventDefault();
    if (Math.abs(wheel.deltaX) > Math.abs(wheel.deltaY)) {
      move(wheel.deltaX / canvas.clientWidth);
    } else {
      zoom(Math.exp(Math.max(-100, Math.min(100, wheel.deltaY)) / 250), timeAt(wheel.offsetX, canvas.clientWidth));
    }
    placeTip(-1);
  }, { passive: false });
  canvas.addEventListener("keydown", (pressed) => {
    const actions = {
      ArrowLeft: () => (pressed.shiftKey ? move(-0.2) : step(-1)), ArrowRight: () => (pressed.shiftKey ? move(0.2) : step(1)),
      "+": () => zoom(0.6), "=": () => zoom(0.6), "-": () => zoom(1 / 0.6), 0: () => show(begin, end),
      Enter: () => selected >= 0 && goToCard(byTime[selected]), Escape: () => select(-1),
    };
    if (!actions[pressed.key] || pressed.ctrlKey || pressed.metaKey || pressed.altKey) return;
    pressed.preventDefault();
    actions[pressed.key]();
  });
  byId("zoom-in").addEventListener("click", () => zoom(0.6));
  byId("zoom-out").addEventListener("click", () => zoom(1 / 0.6));
  byId("move-left").addEventListener("click", () => move(-0.4));
  byId("move-right").addEventListener("click", () => move(0.4));
  byId("zoom-all").addEventListener("click", () => show(begin, end));
  viewers.push(drawTimeline);

  function legend() {
    const entry = (name, text) => {
      const mark = make("i", {});
      mark.style.background = `var(${name})`;
      return make("span", {}, mark, text);
    };
    byId("timeline-legend").append(
      ...(truth ? [entry("--good", "right"), entry("--bad", "wrong text or missed"), entry("--warn", "second event or of no vehicle")]
        : [entry("--accent", "event")]),
      make("span", {}, "the height shows the confidence; a click goes to the card"));
  }

  // ---- plots

  function niceTop(value) {
    const power = 10 ** Math.floor(Math.log10(value));
    return power * [1, 2, 4, 6, 8, 10].find((factor) => factor * power >= value);
  }

  function makePlot(svg, series, text) {
    const readout = svg.parentNode.querySelector(".readout");
    let cursor = -1;
    const marginLeft = 40;
    const marginBottom = 20;
    const timeOf = (index) => plot.first + (index + 0.5) * plot.step;

    function drawPlot() {
      const width = svg.clientWidth;
      const height = svg.clientHeight;
      const right = width - 4;
      const bottom = height - marginBottom;
      const x = (time) => marginLeft + (time - view.from) / (view.to - view.from) * (right - marginLeft);
      const first = Math.max(0, Math.floor((view.from - plot.first) / plot.step) - 1);
      const last = Math.min(plotCount - 1, Math.ceil((view.to - plot.first) / plot.step) + 1);
      let highest = 0;
      for (const { values } of series) {
        for (let index = first; index <= last; ++index) highest = Math.max(highest, values[index] || 0);
      }
      svg.setAttribute("viewBox", `0 0 ${width} ${height}`);
      svg.replaceChildren();
      if (highest === 0) {
        svg.append(draw("text", { x: marginLeft, y: height / 2 }, "No values here."));
        return;
      }
      highest = niceTop(highest);
      const y = (value) => bottom - value / highest * (bottom - 8);
      for (let part = 0; part <= 4; ++part) {
        const value = highest * part / 4;
        svg.append(draw("line", { class: "grid", x1: marginLeft, x2: right, y1: y(value), y2: y(value) }),
          draw("text", { x: marginLeft - 6, y: y(value) + 4, "text-anchor": "end" }, String(Number(value.toPrecision(3)))));
      }
      const { marks, decimals } = timeMarks(right - marginLeft);
      for (const time of marks) {
        if (x(time) <= right - 10 || marks.length === 1) {
          svg.append(draw("text", { x: x(time), y: height - 4, "text-anchor": "middle" }, clock(time, decimals)));
        }
      }
      // A drawing inside the drawing cuts the lines off at the edges.
      const inside = draw("svg", { x: marginLeft, width: right - marginLeft, height: bottom,
        viewBox: `${marginLeft} 0 ${right - marginLeft} ${bottom}` });
      for (const { values, kind } of series) {
        let path = "";
        let isJoined = false;
        for (let index = first; index <= last; ++index) {
          if (values[index] === null) {
            isJoined = false;
            continue;
          }
          path += `${isJoined ? "L" : "M"}${x(timeOf(index)).toFixed(1)} ${y(values[index]).toFixed(1)}`;
          if (!isJoined && (index === last || values[index + 1] === null)) path += "h1";
          isJoined = true;
        }
        inside.append(draw("path", { class: kind, d: path }));
      }
      svg.append(inside);
      if (cursor >= first && cursor <= last) {
        const place = Math.max(marginLeft, Math.min(right, x(timeOf(cursor))));
        svg.append(draw("line", { class: "cursor", x1: place, x2: place, y1: 8, y2: bottom }));
        for (const { values, kind } of series) {
          if (values[cursor] !== null) svg.append(draw("circle", { class: `dot ${kind}`, cx: place, cy: y(values[cursor]), r: 3.5 }));
        }
      }
    }
    function point(index) {
      cursor = index < 0 ? -1 : Math.max(0, Math.min(plotCount - 1, index));
      readout.textContent = cursor < 0 ? "" : `${clock(timeOf(cursor), 1)}: ` +
        (series.every(({ values }) => values[cursor] === null) ? "no frames" : text(cursor));
      drawPlot();
    }
    svg.addEventListener("pointermove", (moved) => {
      const share = (moved.offsetX - marginLeft) / (svg.clientWidth - 4 - marginLeft);
      point(Math.floor((view.from + share * (view.to - view.from) - plot.first) / plot.step));
    });
    svg.addEventListener("pointerleave", () => point(-1));
    svg.addEventListener("blur", () => point(-1));
    svg.addEventListener("keydown", (pressed) => {
      const direction = { ArrowLeft: -1, ArrowRight: 1 }[pressed.key];
      if (!direction) return;
      pressed.preventDefault();
      const middle = Math.floor(((view.from + view.to) / 2 - plot.first) / plot.step);
      point(Math.max(0, cursor < 0 ? middle : cursor + direction));
    });
    viewers.push(drawPlot);
  }

  // ---- tables

  function table(caption, rows, badge) {
    return make("table", {},
      caption || badge ? make("caption", {}, caption || "", " ", badge) : null,
      make("tbody", {}, ...rows.map(([name, value, isText]) =>
        make("tr", {}, make("th", { scope: "row" }, name), make("td", { class: isText ? null : "number" }, value)))));
  }

  function showTables() {
    byId("ledger-panel").hidden = !data.ledger.length;
    byId("ledger").append(...data.ledger.map((section) =>
      table(section.title, section.lines.map(([label, number]) => [label, grouped(number)]),
        section.closes === undefined ? null
          : make("span", { class: `badge ${section.closes ? "closed" : "open"}` }, section.closes ? "✓ sums close" : "✗ sums do not close"))));

    const failures = byId("errors");
    if (data.errors.length) failures.append(table("", data.errors.map(([text, number]) => [text, grouped(number)])));
    if (data.failed_events.length) {
      failures.append(table("Events that failed, by step", data.failed_events.map(([text, number]) => [text, grouped(number)])));
    }
    if (!failures.hasChildNodes()) failures.append(make("p", { class: "quiet" }, "None."));

    // Channels with the same settings are shown once.
    const alike = new Map();
    for (const channel of data.channels) {
      const key = JSON.stringify([channel.settings, channel.area, channel.size]);
      alike.set(key, [...(alike.get(key) || []), channel]);
    }
    for (const channels of alike.values()) {
      const [channel] = channels;
      const numbers = channels.map(({ number }) => number);
      const total = (name) => channels.reduce((sum, each) => sum + each[name], 0);
      const rows = channel.settings.map(([key, value]) => [make("code", {}, key), make("code", {}, value), true]);
      if (channel.area) rows.push(["area of single frames", `${channel.area.join(", ")} %`, true]);
      if (!rows.length) rows.push(["settings", "all by default", true]);
      rows.push(["frame", `${channel.size[0]} × ${channel.size[1]}`, true],
        ["frames, failed, events", `${grouped(total("frames"))}, ${grouped(total("failed"))}, ${grouped(total("events"))}`, true]);
      byId("settings").append(table(numbers.length === 1 ? `Channel ${numbers[0]}` : `Channels ${numbers.join(", ")}`, rows));
    }
    for (const [name, value] of [["video", run.video], ["library", run.library], ["engine", run.engine],
      ["system", run.system], ["recorded by", run.recorder], ["started", run.start_time]]) {
      if (value) byId("programs").append(make("dt", {}, name), make("dd", { class: "path" }, value));
    }
  }

  // ---- cards: only those near the visible part of the page exist

  const list = byId("cards");
  const cards = new Map();  // by place in `order`
  let order = byTime;
  let layout = { columns: 1, width: 300, height: 300 };
  let focused = 0;  // the place of the card that Tab reaches
  let isPrinting = false;
  const factsHeight = truth ? 158 : 132;

  function mapOf(event) {
    const [width, height] = event.frame;
    if (!width || !height) return null;
    const shown = draw("svg", { class: "map", viewBox: `0 0 ${width} ${height}`, width: 80,
      height: Math.round(Math.max(24, Math.min(60, 80 * height / width))), role: "img",
      "aria-label": "Place of the plate and its track in the frame" });
    if (event.track) shown.append(draw("polyline", { class: "track", points: placesOf(event.track).join(" ") }));
    if (event.plate) {
      const [left, top_, right, bottom] = event.plate;
      shown.append(draw("rect", { class: "plate", x: left, y: top_, width: Math.max(0, right - left), height: Math.max(0, bottom - top_) }));
    }
    return shown;
  }

  function makeCard(place) {
    const index = order[place];
    const event = events[index];
    const confidence = make("div", { class: "confidence" });
    if (event.confidence !== undefined) {
      const meter = make("meter", { min: 0, max: 100, low: 60, high: 80, optimum: 100, value: event.confidence, "aria-label": "Confidence" });
      confidence.append(`${event.confidence} %`, meter);
    }
    const time = make("button", { type: "button", class: "link", tabindex: -1, title: "Show on the timeline" }, clock(event.time));
    time.addEventListener("click", () => {
      show(event.time - 10000, event.time + 10000);
      select(byTime.indexOf(index));
      canvas.focus({ preventScroll: true });
      canvas.scrollIntoView({ block: "center" });
    });
    const facts = make("ul", {}, make("li", {}, time, data.channels.length > 1 ? ` · channel ${event.channel}` : ""),
      make("li", {}, event.country ? `country ${event.country}` : "country unknown"));
    if (event.readings) {
      facts.append(make("li", {}, `${counted(event.readings, "reading")} in ${((event.to - event.from) / 1000).toFixed(2)} s`));
    } else {
      facts.append(make("li", {}, "no track"));
    }
    const outcome = !event.outcome ? null : make("div", { class: "outcome" },
      make("span", { class: `badge ${event.outcome}` }, outcomeNames[event.outcome]),
      event.truePlate !== undefined && event.outcome !== "right" ? make("span", {}, " true: ", make("code", {}, event.truePlate)) : null);
    const card = make("article", { class: "card panel", role: "listitem", tabindex: place === focused ? 0 : -1,
      "aria-posinset": place + 1, "aria-setsize": order.length, "data-place": place, "data-event": index,
      "aria-label": describe(event).replaceAll("\n", ", ") },
    pictureBox(event), make("div", { class: "facts" }, plateText(titleOf(event), event.outcome === "wrong" ? event.truePlate : null),
      confidence, outcome, facts, mapOf(event)));
    if (index === lit) card.classList.add("lit");
    return card;
  }

  function placeCard(card, place) {
    const x = place % layout.columns * (layout.width + gap);
    const y = Math.floor(place / layout.columns) * (layout.height + gap);
    card.style.width = layout.width + "px";
    card.style.height = layout.height + "px";
    card.style.transform = `translate(${x}px, ${y}px)`;
  }

  function drawCards() {
    if (isPrinting) return;
    const rowHeight = layout.height + gap;
    const above = -list.getBoundingClientRect().top;
    const firstRow = Math.max(0, Math.floor((above - 500) / rowHeight));
    const lastRow = Math.ceil((above + window.innerHeight + 500) / rowHeight);
    const first = firstRow * layout.columns;
    const last = Math.min(order.length, lastRow * layout.columns);
    for (const [place, card] of cards) {
      if ((place < first || place >= last) && !card.contains(document.activeElement)) {
        waiting.delete(card.querySelector("img"));
        card.remove();
        cards.delete(place);
      }
    }
    // In the order of the page, which the reading order of assistive technology follows.
    for (let place = first; place < last; ++place) {
      if (!cards.has(place)) {
        const card = makeCard(place);
        placeCard(card, place);
        const next = [...list.children].find((other) => Number(other.dataset.place) > place);
        list.insertBefore(card, next || null);
        cards.set(place, card);
      }
    }
    // Tab always reaches a card, even if the one that it last reached is far away.
    const reachable = cards.get(focused) || cards.get(first);
    for (const card of cards.values()) card.tabIndex = card === reachable ? 0 : -1;
  }

  function clearCards() {
    list.replaceChildren();
    cards.clear();
    waiting.clear();
  }

  function layOut() {
    const available = list.clientWidth;
    const columns = Math.max(1, Math.floor((available + gap) / (270 + gap)));
    const width = Math.floor((available - gap * (columns - 1)) / columns);
    layout = { columns, width, height: Math.round(width / 1.5) + factsHeight };
    list.style.height = Math.max(0, Math.ceil(order.length / columns) * (layout.height + gap) - gap) + "px";
    for (const [place, card] of cards) placeCard(card, place);
    drawCards();
  }

  let lit = -1;
  function focusCard(place) {
    const rowHeight = layout.height + gap;
    const y = Math.floor(place / layout.columns) * rowHeight;
    const head = byId("filter").offsetHeight + 12;
    const current = -list.getBoundingClientRect().top;
    if (y < current + head || y + layout.height > current + window.innerHeight) {
      window.scrollBy(0, y - current - head);
    }
    focused = place;
    drawCards();
    cards.get(place)?.focus({ preventScroll: true });
  }

  function goToCard(index) {
    if (!order.includes(index)) {
      byId("search").value = byId("channel").value = byId("outcome").value = "";
      filter();
    }
    if (lit >= 0) list.querySelector(".lit")?.classList.remove("lit");
    lit = index;
    const place = order.indexOf(index);
    focusCard(place);
    cards.get(place)?.classList.add("lit");
  }

  list.addEventListener("focusin", (entered) => {
    const card = entered.target.closest(".card");
    if (card) focused = Number(card.dataset.place);
  });
  list.addEventListener("keydown", (pressed) => {
    const card = pressed.target.closest(".card");
    if (!card || pressed.target !== card || pressed.ctrlKey || pressed.metaKey || pressed.altKey) return;
    const place = Number(card.dataset.place);
    const target = { ArrowLeft: place - 1, ArrowRight: place + 1, ArrowUp: place - layout.columns,
      ArrowDown: place + layout.columns, Home: 0, End: order.length - 1 }[pressed.key];
    if (pressed.key === "Enter") card.querySelector("button").click();
    if (target === undefined) return;
    pressed.preventDefault();
    if (target >= 0 && target < order.length) focusCard(target);
  });

  const normal = (text) => text.toLocaleLowerCase();
  function filter() {
    const wanted = normal(byId("search").value.trim());
    const channel = byId("channel").value;
    const outcome = byId("outcome").value;
    const matches = (event) => (!wanted || normal(event.text).includes(wanted) || normal(event.country || "").includes(wanted)) &&
      (!channel || event.channel === Number(channel)) && (!outcome || event.outcome === outcome);
    order = byTime.filter((index) => matches(events[index]));
    const shownEvents = new Set(order);
    isShown = (index) => shownEvents.has(index);
    const sorting = byId("order").value;
    if (sorting === "confidence") {
      order.sort((left, right) => (events[left].confidence ?? 101) - (events[right].confidence ?? 101));
    } else if (sorting === "text") {
      order.sort((left, right) => (events[left].text < events[right].text ? -1 : events[left].text > events[right].text ? 1 : 0));
    }
    focused = 0;
    selected = -1;
    byId("shown").textContent = order.length === events.length ? counted(events.length, "event")
      : `${grouped(order.length)} of ${counted(events.length, "event")}`;
    byId("nothing").hidden = order.length > 0;
    byId("nothing").textContent = events.length ? "No event matches." : "The recording has no events.";
    clearCards();
    layOut();
    redraw();
  }

  for (const id of ["search", "channel", "outcome", "order"]) byId(id).addEventListener("input", filter);
  byId("filter").addEventListener("submit", (submitted) => submitted.preventDefault());
  for (const part of ["plate", "track", "text"]) {
    byId(`show-${part}`).addEventListener("change", (changed) =>
      document.body.classList.toggle(`no-${part}`, !changed.target.checked));
  }
  for (const input of document.getElementsByName("theme")) {
    input.addEventListener("change", () => {
      if (input.value) document.documentElement.dataset.theme = input.value;
      else delete document.documentElement.dataset.theme;
      redraw();
    });
  }
  window.matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redraw);

  // ---- start

  if (data.channels.length > 1) {
    byId("channel").append(...data.channels.map(({ number }) => make("option", { value: number }, `Channel ${number}`)));
  } else {
    byId("channel-label").hidden = true;
  }
  legend();
  makePlot(byId("plot-rate"), [{ values: plot.frames_per_second, kind: "rate" }],
    (index) => `${rounded(plot.frames_per_second[index])} frames per second`);
  makePlot(byId("plot-engine"), [{ values: plot.engine_longest, kind: "longest" }, { values: plot.engine_mean, kind: "mean" }],
    (index) => `mean ${rounded(plot.engine_mean[index])} ms, longest ${rounded(plot.engine_longest[index])} ms`);
  if (truth) showTruth();
  showTables();
  filter();

  let isScrolled = false;
  window.addEventListener("scroll", (scrolled) => {
    lastScroll = scrolled.timeStamp;
    if (isScrolled) return;
    isScrolled = true;
    requestAnimationFrame(() => {
      isScrolled = false;
      drawCards();
    });
  }, { passive: true });
  new ResizeObserver(() => {
    layOut();
    redraw();
  }).observe(document.querySelector("header"));

  window.addEventListener("beforeprint", () => {
    isPrinting = true;
    clearCards();
    list.append(...order.slice(0, mostPrinted).map((index, place) => makeCard(place)));
    byId("print-rest").textContent = order.length > mostPrinted ? `Only the first ${mostPrinted} of ${grouped(order.length)} events are printed.` : "";
  });
  window.addEventListener("afterprint", () => {
    isPrinting = false;
    clearCards();
    layOut();
  });
})();
